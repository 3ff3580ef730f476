// SPDX-License-Identifier: Apache-2.0
#include "documents/html/PageView.h"

#include <algorithm>
#include <array>
#include <new>
#include <utility>

#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/url/UrlCracker.h"
#include "documents/ImageSize.h"
#include "documents/html/HtmlText.h"
#include "documents/html/Sight.h"

namespace zeph::html {
namespace {

using namespace name;

/// What an entry of a table takes, at the most.
constexpr std::size_t kBytesOfEntry = 96;

constexpr bool IsUpper(char16_t c) noexcept { return c >= u'A' && c <= u'Z'; }

std::u16string LowerText(std::u16string_view text) {
  std::u16string lower(text);
  std::ranges::transform(lower, lower.begin(), Lower);
  return lower;
}

/// The host of an address as a browser writes it, with its port; empty when it has none.
std::u16string_view HostOf(std::u16string_view address) noexcept {
  const std::size_t begin = address.find(u"://");
  if (begin == std::u16string_view::npos) return {};
  address.remove_prefix(begin + 3);
  address = address.substr(0, address.find_first_of(u"/?#"));
  return address.substr(address.rfind(u'@') + 1);
}

/// The address names its scheme.
bool HasScheme(std::u16string_view address) noexcept {
  const std::size_t end = address.find_first_of(u":/?#\\");
  return end != std::u16string_view::npos && address[end] == u':';
}

bool IsControl(NameId name) noexcept {
  switch (name) {
    case kButton:
    case kFieldset:
    case kInput:
    case kObject:
    case kOutput:
    case kSelect:
    case kTextarea:
      return true;
    default:
      return false;
  }
}

/// Digits at the text's start, up to nine; nothing when there are none. rest is left behind them and a fraction.
std::optional<std::int32_t> TakeNumber(std::u16string_view& rest) {
  while (!rest.empty() && IsBlank(rest.front())) rest.remove_prefix(1);
  std::int32_t number = 0;
  std::size_t digits = 0;
  for (; digits < rest.size() && rest[digits] >= u'0' && rest[digits] <= u'9'; ++digits) {
    if (digits < 9) number = number * 10 + (rest[digits] - u'0');
  }
  if (digits == 0) return std::nullopt;
  rest.remove_prefix(digits);
  if (!rest.empty() && rest.front() == u'.') {
    rest.remove_prefix(1);
    while (!rest.empty() && rest.front() >= u'0' && rest.front() <= u'9') rest.remove_prefix(1);
  }
  return number;
}

}  // namespace

PageView::PageView(Tree tree, std::u16string url, std::shared_ptr<const PageResources> resources, PageBudget budget)
    : tree_(std::move(tree)), base_(ReadBrowserUrl(url)), resources_(std::move(resources)), budget_(budget) {
  Collect();
  // That much hangs on the page's length alone.
  const std::size_t lists =
      all_.size() + forms_.size() + links_.size() + images_.size() + scripts_.size() + 2 * controls_.size();
  (void)budget_.Take(tree_.nodes.size() * sizeof(Node) + tree_.attributes.size() * sizeof(Attribute) +
                     tree_.text.size() * sizeof(char16_t) + lists * sizeof(NodeId));
}

void PageView::Take(std::size_t bytes) {
  if (!budget_.Take(bytes)) throw std::bad_alloc();
}

std::u16string_view PageView::Keep(std::u16string& text) {
  Take(2 * text.size());
  return arena_.Keep(text);
}

void PageView::Collect() {
  // The tree is finished: previous, which only building asks for, now holds 1 + the element's place in all_.
  for (Node& node : tree_.nodes) node.previous = 0;
  GrowArray<NodeId> open;  // forms that the walk is in
  NodeId base = 0;
  bool skip = false;
  const Tree::Owner* owner = tree_.owners.begin();
  std::vector<std::pair<std::size_t, std::u16string_view>> named;  // controls that name their form
  for (TreeWalk walk(tree_, kDocument); !walk.Done(); walk.Next(skip)) {
    const NodeId id = walk.Id();
    Node& node = tree_.nodes[id];
    skip = false;
    if (node.kind != NodeKind::kElement && node.kind != NodeKind::kComment) continue;
    const bool isForm = tree_.IsHtml(id, kForm);
    if (!walk.Entering()) {
      if (isForm) open.Pop();
      continue;
    }
    all_.Push(id);
    node.previous = static_cast<std::uint32_t>(all_.size());
    if (node.kind != NodeKind::kElement) continue;
    skip = IsInert(tree_, id);
    if (node.name == kScript && node.space != Space::kMathMl) scripts_.Push(id);
    if (node.space != Space::kHtml) continue;
    switch (node.name) {
      case kForm:
        forms_.Push(id);
        open.Push(id);
        break;
      case kA:
      case kArea:
        if (tree_.FindAttribute(id, kHref) != nullptr) links_.Push(id);
        break;
      case kImg:
        images_.Push(id);
        break;
      case kTitle:
        if (title_ == 0) title_ = id;
        break;
      case kBase:
        if (base == 0 && tree_.FindAttribute(id, kHref) != nullptr) base = id;
        break;
      case kBody:
      case kFrameset:
        if (body_ == 0 && tree_.IsHtml(node.parent, kHtml) && tree_.nodes[node.parent].parent == kDocument) body_ = id;
        break;
      default:
        break;
    }
    if (!IsControl(node.name)) continue;
    // A control belongs to the form that it names, else to the one that the parser told, else to the one around it.
    owner = std::lower_bound(tree_.owners.begin(), tree_.owners.end(), id,
                             [](const Tree::Owner& item, NodeId wanted) { return item.control < wanted; });
    NodeId form = open.empty() ? 0 : open.back();
    if (owner != tree_.owners.end() && owner->control == id) form = owner->form;
    if (const Attribute* const item = tree_.FindAttribute(id, kForm)) {
      named.emplace_back(controls_.size(), tree_.TextOf(*item));
      form = 0;
    }
    controls_.Push({id, form});
  }
  if (!named.empty()) {
    std::unordered_map<std::u16string_view, NodeId> ids;
    for (const NodeId form : forms_) {
      const std::u16string_view formId = tree_.AttributeText(form, kId);
      if (!formId.empty()) ids.emplace(formId, form);
    }
    for (const auto& [control, formId] : named) {
      if (const auto found = ids.find(formId); found != ids.end()) controls_[control].form = found->second;
    }
  }
  std::stable_sort(controls_.begin(), controls_.end(), [this](const Control& a, const Control& b) {
    return tree_.nodes[a.form].previous < tree_.nodes[b.form].previous;
  });
  if (base_) host_ = HostOf(base_->Text());
  if (const std::u16string_view href = tree_.AttributeText(base, kHref); base != 0 && href.size() <= kMaxUrlLength) {
    std::optional<BrowserUrl> own = ReadBrowserUrl(href, base_ ? &*base_ : nullptr);
    if (own && own->scheme != u"data" && own->scheme != u"javascript") base_ = std::move(own);
  }
}

std::u16string_view PageView::Title() {
  if (!titleText_) {
    titleText_.emplace();
    const std::u16string_view written = title_ == 0 ? std::u16string_view() : TextContent(title_);
    for (std::size_t at = 0; at < written.size(); ++at) {
      at += InvisibleAt(written, at);
      if (at == written.size()) break;
      if (const char16_t c = written[at]; !IsBlank(c)) {
        *titleText_ += c;
      } else if (!titleText_->empty() && titleText_->back() != u' ') {
        *titleText_ += u' ';
      }
    }
    if (!titleText_->empty() && titleText_->back() == u' ') titleText_->pop_back();
  }
  return *titleText_;
}

std::u16string_view PageView::TagName(NodeId id) {
  const Node& node = tree_.nodes[id];
  if (node.kind == NodeKind::kComment) return u"!";
  if (node.name < kKnownCount) return KnownNameInUpperCase(node.name);
  const auto [found, isNew] = tagNames_.try_emplace(node.name);
  if (isNew) {
    std::u16string upper(tree_.NameText(node.name));
    std::ranges::transform(upper, upper.begin(),
                           [](char16_t c) { return c >= u'a' && c <= u'z' ? static_cast<char16_t>(c - 32) : c; });
    Take(kBytesOfEntry);
    found->second = Keep(upper);
  }
  return found->second;
}

bool PageView::HasTagName(NodeId id, std::u16string_view name) const {
  const Node& node = tree_.nodes[id];
  if (node.kind == NodeKind::kComment) return name == u"!";
  return std::ranges::equal(tree_.NameText(node.name), name, {}, {}, Lower);
}

std::optional<std::u16string_view> PageView::AttributeValue(NodeId id, std::u16string_view name) {
  std::u16string longName;
  std::array<char16_t, 32> buffer;
  std::u16string_view lower;
  if (name.size() <= buffer.size()) {
    std::ranges::transform(name, buffer.begin(), Lower);
    lower = {buffer.data(), name.size()};
  } else {
    longName = LowerText(name);
    lower = longName;
  }
  const std::int64_t known = tree_.names.Find(lower, tree_.text.data());
  if (known < 0) return std::nullopt;
  return AttributeValue(id, static_cast<NameId>(known));
}

std::optional<std::u16string_view> PageView::AttributeValue(NodeId id, NameId name) {
  const Attribute* const item = tree_.FindAttribute(id, name);
  if (item == nullptr) return std::nullopt;
  return Read(id, *item);
}

std::u16string_view PageView::Read(NodeId element, const Attribute& attribute) {
  const Node& node = tree_.nodes[element];
  const std::u16string_view value = tree_.TextOf(attribute);
  if (node.space != Space::kHtml) return value;
  switch (attribute.name) {
    case kHref:
      return node.name == kA || node.name == kArea || node.name == kLink ? Absolute(attribute) : value;
    case kSrc:
      return node.name == kImg ? Absolute(attribute) : node.name == kScript ? Elsewhere(attribute) : value;
    case kAction:
      return node.name == kForm ? Elsewhere(attribute) : value;
    case kType:
      if ((node.name == kInput || node.name == kButton) && std::ranges::any_of(value, IsUpper)) {
        const std::uint32_t number = types_.written.Add(value);
        if (number >= types_.read.size()) {
          Take(kBytesOfEntry);
          scratch_ = LowerText(value);
          types_.read.push_back(Keep(scratch_));
        }
        return types_.read[number];
      }
      return value;
    default:
      return value;
  }
}

std::u16string_view PageView::Absolute(const Attribute& attribute) {
  const std::u16string_view written = tree_.TextOf(attribute);
  if (written.empty() || written.size() > kMaxUrlLength) return written;
  const std::uint32_t number = addresses_.written.Add(written);
  if (number >= addresses_.read.size()) {
    Take(kBytesOfEntry);
    const bool differs = Resolve(written, scratch_) && scratch_ != written;
    addresses_.read.push_back(differs ? Keep(scratch_) : written);
  }
  return addresses_.read[number];
}

bool PageView::Resolve(std::u16string_view written, std::u16string& absolute) const {
  const std::optional<BrowserUrl> address = ReadBrowserUrl(written, base_ ? &*base_ : nullptr);
  if (!address) return false;
  absolute = address->Text();
  return absolute.size() <= kMaxUrlLength;
}

std::u16string_view PageView::Elsewhere(const Attribute& attribute) {
  const std::u16string_view written = tree_.TextOf(attribute);
  const std::u16string_view absolute = Absolute(attribute);
  const std::u16string_view host = HostOf(absolute);
  return HasScheme(written) || (!host.empty() && host != host_) ? absolute : written;
}

const Markup& PageView::WrittenMarkup() {
  if (!markup_) markup_ = WriteMarkup(tree_, all_, *this, budget_);
  return *markup_;
}

const VisibleText& PageView::WrittenText() {
  if (!text_) text_ = WriteVisibleText(tree_, all_, budget_);
  return *text_;
}

std::u16string_view PageView::InnerMarkup(NodeId id) { return WrittenMarkup().Inner(NumberOf(id)); }
std::u16string_view PageView::OuterMarkup(NodeId id) { return WrittenMarkup().Outer(NumberOf(id)); }
std::u16string_view PageView::InnerText(NodeId id) { return WrittenText().Inner(NumberOf(id)); }

std::u16string_view PageView::TextContent(NodeId id) {
  if (tree_.nodes[id].kind == NodeKind::kComment) return tree_.TextOf(tree_.nodes[id]);
  const NodeId child = tree_.FirstChild(id);
  if (child == 0) return {};
  if (tree_.nodes[child].kind == NodeKind::kText && tree_.nodes[child].next == 0) {
    return tree_.TextOf(tree_.nodes[child]);
  }
  const auto [found, isNew] = contents_.try_emplace(id);
  if (isNew) {
    // Left empty when it can't be kept: the budget then says that the page isn't read to its end.
    scratch_.clear();
    for (TreeWalk walk(tree_, id); !walk.Done(); walk.Next()) {
      if (walk.Entering() && tree_.nodes[walk.Id()].kind == NodeKind::kText) {
        scratch_ += tree_.TextOf(tree_.nodes[walk.Id()]);
      }
    }
    Take(kBytesOfEntry);
    found->second = Keep(scratch_);
  }
  return found->second;
}

std::int32_t PageView::ImageLength(NodeId id, NameId name) {
  const std::u16string styledText = StyleValue(tree_.AttributeText(id, kStyle), KnownNameText(name));
  std::u16string_view styled = styledText;
  if (const auto number = TakeNumber(styled)) {
    if (styled.size() >= 2 && Lower(styled[0]) == u'p' && Lower(styled[1]) == u'x') return *number;
  }
  std::u16string_view written = tree_.AttributeText(id, name);
  if (const auto number = TakeNumber(written)) {
    if (written.empty() || written.front() != u'%') return *number;
  }
  const Attribute* const source = tree_.FindAttribute(id, kSrc);
  if (source == nullptr) return 0;
  const std::u16string_view url = tree_.TextOf(*source);
  const auto [found, isNew] = sizes_.try_emplace(url);
  if (isNew) {
    found->second = ReadDataUrlImageSize(url);
    if (!found->second && resources_ != nullptr) {
      std::optional<std::string_view> bytes = resources_->Find(Narrow(Absolute(*source)));
      if (!bytes) bytes = resources_->Find(Narrow(url));
      if (bytes) found->second = ReadImageSize(*bytes);
    }
  }
  if (!found->second) return 0;
  return name == kWidth ? found->second->width : found->second->height;
}

GrowArray<NodeId> PageView::FormElements(NodeId form, std::u16string_view tagName) const {
  GrowArray<NodeId> result;
  const NameId known = FindKnownName(LowerText(tagName));
  if (known != kKnownCount && IsControl(known)) {
    const std::uint32_t number = tree_.nodes[form].previous;
    const Control* control = std::lower_bound(
        controls_.begin(), controls_.end(), number,
        [this](const Control& item, std::uint32_t wanted) { return tree_.nodes[item.form].previous < wanted; });
    for (; control != controls_.end() && control->form == form; ++control) {
      if (tree_.IsHtml(control->id, known)) result.Push(control->id);
    }
    return result;
  }
  bool skip = false;
  for (TreeWalk walk(tree_, form); !walk.Done(); walk.Next(skip)) {
    const NodeId id = walk.Id();
    skip = IsInert(tree_, id);
    if (walk.Entering() && id != form && tree_.nodes[id].previous != 0 && HasTagName(id, tagName)) result.Push(id);
  }
  return result;
}

GrowArray<NodeId> PageView::Children(NodeId id) const {
  GrowArray<NodeId> result;
  if (IsInert(tree_, id)) return result;
  for (NodeId child = tree_.FirstChild(id); child != 0; child = tree_.nodes[child].next) {
    if (!tree_.nodes[child].continues) result.Push(child);
  }
  return result;
}

}  // namespace zeph::html
