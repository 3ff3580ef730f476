// SPDX-License-Identifier: Apache-2.0
#include "documents/html/InnerPages.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "DetectionEngine/platform/CodePage.h"
#include "documents/DataUrl.h"
#include "documents/ScriptWrites.h"
#include "documents/html/Decoder.h"
#include "documents/html/HtmlText.h"
#include "documents/html/Sight.h"

namespace zeph {

namespace {

using namespace html;
using namespace html::name;

constexpr char LowerByte(char c) noexcept { return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c; }

/// The lines of a page's elements: follows the walk of its tree in the page's bytes. Gives up when it loses its way.
class LineFinder {
 public:
  explicit LineFinder(std::string_view bytes) noexcept : bytes_(bytes) {}

  /// To the next tag of that name, in lower case and with its "<" or "</".
  void Pass(std::string_view tag) noexcept {
    while (!isLost_) {
      const std::string_view rest = std::string_view(bytes_).substr(at_);
      const auto found = std::search(rest.begin(), rest.end(), tag.begin(), tag.end(), [](auto a, auto b) { return LowerByte(a) == b; });
      if (found == rest.end()) {
        isLost_ = true;
        return;
      }
      begin_ = at_ + static_cast<std::size_t>(found - rest.begin());
      at_ = begin_ + tag.size();
      const char next = at_ < bytes_.size() ? LowerByte(bytes_[at_]) : ' ';
      if ((next < 'a' || next > 'z') && (next < '0' || next > '9') && next != '-') return;
    }
  }
  /// Behind a comment, unless it was written in another way.
  void PassComment(std::u16string_view text) noexcept {
    const std::size_t begin = bytes_.find("<!--", at_);
    if (begin == std::string_view::npos) return;
    for (std::size_t i = 0; i < text.size() && i < 8 && text[i] > u' ' && text[i] < 0x80; ++i) {
      if (begin + 4 + i >= bytes_.size() || bytes_[begin + 4 + i] != static_cast<char>(text[i])) return;
    }
    const std::size_t end = bytes_.find("-->", begin + 4);
    if (end != std::string_view::npos) at_ = end;
  }
  /// Of the last tag that was passed; 0 when it isn't known.
  [[nodiscard]] std::size_t Line() noexcept {
    if (isLost_) return 0;
    line_ += static_cast<std::size_t>(std::count(bytes_.begin() + static_cast<std::ptrdiff_t>(counted_),
                                                 bytes_.begin() + static_cast<std::ptrdiff_t>(begin_), '\n'));
    counted_ = begin_;
    return line_;
  }

 private:
  std::string_view bytes_;
  std::size_t at_ = 0;
  std::size_t begin_ = 0;
  std::size_t counted_ = 0;
  std::size_t line_ = 1;
  bool isLost_ = false;
};

/// The markup of what stands in an element, of so many units at the most.
std::u16string MarkupWithin(const Tree& tree, NodeId root, std::size_t most) {
  std::u16string out;
  const auto put = [&out](std::u16string_view text, bool isValue) {
    for (const char16_t c : text) {
      if (c == u'&') {
        out += u"&amp;";
      } else if (c == u'"' && isValue) {
        out += u"&quot;";
      } else if (c == u'<' && !isValue) {
        out += u"&lt;";
      } else {
        out += c;
      }
    }
  };
  for (TreeWalk walk(tree, root); !walk.Done() && out.size() < most; walk.Next()) {
    const NodeId id = walk.Id();
    const Node& node = tree.nodes[id];
    if (id == root) continue;
    if (node.kind == NodeKind::kText && walk.Entering()) {
      const Node& parent = tree.nodes[node.parent];
      if (parent.kind == NodeKind::kElement && parent.space == Space::kHtml && (KindsOf(parent.name) & kRaw) != 0) {
        out += tree.TextOf(node);
      } else {
        put(tree.TextOf(node), false);
      }
    } else if (node.kind == NodeKind::kElement) {
      if (!walk.Entering()) {
        if ((KindsOf(node.name) & kVoid) == 0) out.append(u"</").append(tree.NameText(node.name)).append(u">");
        continue;
      }
      out.append(u"<").append(tree.NameText(node.name));
      for (const Attribute& item : tree.AttributesOf(id)) {
        out.append(u" ").append(tree.NameText(item.name)).append(u"=\"");
        put(tree.TextOf(item), true);
        out += u'"';
      }
      out += u'>';
    }
  }
  return out;
}

/// The address that a META leads to; empty when it leads nowhere.
std::u16string_view RefreshAddress(std::u16string_view content) noexcept {
  const std::size_t mark = content.find_first_of(u";,");
  if (mark == std::u16string_view::npos) return {};
  content.remove_prefix(mark + 1);
  const auto skip = [&content] {
    while (!content.empty() && IsBlank(content.front())) content.remove_prefix(1);
  };
  skip();
  if (BeginsNoCase(content, u"url")) {
    content.remove_prefix(3);
    skip();
    if (!content.starts_with(u'=')) return {};
    content.remove_prefix(1);
    skip();
  }
  if (!content.empty() && (content.front() == u'"' || content.front() == u'\'')) {
    const char16_t quote = content.front();
    content.remove_prefix(1);
    content = content.substr(0, content.find(quote));
  }
  return content;
}

/// What a browser takes for a page, of what an address may carry.
bool IsPageType(std::string_view type) noexcept {
  return type == "text/html" || type == "application/xhtml+xml" || type == "image/svg+xml" || type == "text/xml" ||
         type == "application/xml";
}

bool IsScriptType(std::u16string_view type) {
  std::u16string lower(type);
  std::ranges::transform(lower, lower.begin(), Lower);
  return lower.empty() || lower == u"module" || lower.find(u"javascript") != std::u16string::npos ||
         lower.find(u"ecmascript") != std::u16string::npos || lower.find(u"jscript") != std::u16string::npos;
}

/// Behind "javascript:", its escapes undone; nothing for another address.
std::optional<std::u16string> ScriptOfAddress(std::u16string_view address) {
  constexpr std::u16string_view kScheme = u"javascript:";
  while (!address.empty() && address.front() <= u' ') address.remove_prefix(1);
  if (!BeginsNoCase(address, kScheme)) return std::nullopt;
  address.remove_prefix(kScheme.size());
  if (address.find(u'%') == std::u16string_view::npos) return std::u16string(address);
  // A data: address reads escapes the same way.
  const std::optional<DataUrl> decoded = ReadDataUrl(std::u16string(u"data:,").append(address), address.size() * 3);
  return decoded ? Widen(decoded->bytes) : std::u16string();
}

class Finder {
 public:
  Finder(HtmlDocument& document, std::string_view markup, InnerRoom& room)
      : view_(document.View()), tree_(view_.Nodes()), markup_(markup), room_(room), scripts_(8 * markup.size() + 65536) {}

  std::vector<InnerPage> Find() {
    bool mayWrite = false;
    for (const NodeId id : view_.Scripts()) mayWrite = mayWrite || ScriptReader::MayWrite(view_.TextContent(id));
    readsScripts_ = mayWrite;
    bool skip = false;
    for (TreeWalk walk(tree_, kDocument); !walk.Done() && !isFull_; walk.Next(skip)) {
      skip = false;
      const NodeId id = walk.Id();
      if (!walk.Entering() || tree_.nodes[id].kind != NodeKind::kElement) continue;
      skip = IsInert(tree_, id);
      Look(id, skip);
    }
    if (scripts_.WasCut()) Refuse("scripts make more text than is read of them");
    if (!owners_.empty()) FindLines();
    for (std::string& why : refusals_) pages_.push_back({"the page", "", "", std::move(why)});
    return std::move(pages_);
  }

 private:
  void Look(NodeId id, bool isInert) {
    const Node& node = tree_.nodes[id];
    for (const Attribute& item : tree_.AttributesOf(id)) {
      // Handlers of events; their names aren't known beforehand, but for some.
      const std::u16string_view name = tree_.NameText(item.name);
      if (name.starts_with(u"on") && ScriptReader::MayWrite(tree_.TextOf(item))) {
        LookAtScript(id, tree_.TextOf(item), "handler " + Narrow(name));
      }
    }
    if (node.name == kScript && node.space != Space::kMathMl) {
      if (readsScripts_ && IsScriptType(tree_.AttributeText(id, kType))) {
        LookAtScript(id, view_.TextContent(id), "script");
      }
      return;
    }
    if (node.space != Space::kHtml) return;
    switch (node.name) {
      case kIframe:
      case kFrame:
        if (const Attribute* const page = node.name == kIframe ? tree_.FindAttribute(id, kSrcdoc) : nullptr) {
          AddMarkup(id, "frame with srcdoc", tree_.TextOf(*page));
        } else {
          LookAtAddress(id, "frame", tree_.AttributeText(id, kSrc));
        }
        break;
      case kObject:
        LookAtAddress(id, "object", tree_.AttributeText(id, kData));
        break;
      case kEmbed:
        LookAtAddress(id, "embed", tree_.AttributeText(id, kSrc));
        break;
      case kMeta:
        if (EqualsNoCase(tree_.AttributeText(id, kHttpEquiv), u"refresh")) {
          LookAtAddress(id, "refresh", RefreshAddress(tree_.AttributeText(id, kContent)));
        }
        break;
      case kA:
      case kArea:
        if (auto script = ScriptOfAddress(tree_.AttributeText(id, kHref)); script && ScriptReader::MayWrite(*script)) {
          LookAtScript(id, *script, "link with a javascript: address");
        }
        break;
      case kNoscript:
        AddMarkup(id, "noscript", view_.TextContent(id));
        break;
      case kTemplate:
        if (isInert) AddMarkup(id, "template", MarkupWithin(tree_, id, room_.bytes + 1));
        break;
      default:
        break;
    }
  }

  void LookAtAddress(NodeId id, const std::string& what, std::u16string_view address) {
    if (address.empty()) return;
    if (const auto script = ScriptOfAddress(address)) {
      const std::string where = what + " with a javascript: address";
      const std::u16string value = scripts_.ValueOf(*script);
      if (!value.empty()) return AddMarkup(id, where, value);
      if (ScriptReader::MayWrite(*script)) LookAtScript(id, *script, where);
      return;
    }
    AddAddress(id, what + " with a data: address", address);
  }

  void LookAtScript(NodeId id, std::u16string_view script, const std::string& what) {
    for (const ScriptWrite& write : scripts_.Read(script)) {
      const std::string where = what + " that writes by " + std::string(write.by);
      if (write.kind == ScriptWrite::Kind::kAddress) {
        AddAddress(id, where, write.text);
      } else {
        AddMarkup(id, where, write.text);
      }
    }
  }

  void AddAddress(NodeId id, const std::string& where, std::u16string_view address) {
    if (std::optional<DataUrl> data = ReadDataUrl(address, room_.bytes + 1); data && IsPageType(data->type)) {
      Add(id, where, std::move(data->bytes), std::move(data->charset));
    }
  }
  void AddMarkup(NodeId id, const std::string& where, std::u16string_view markup) {
    // What has no tag and few letters isn't worth a document.
    constexpr std::size_t kTwentyWords = 39;
    if (markup.size() < kTwentyWords && markup.find(u'<') == std::u16string_view::npos) return;
    if (markup.size() > room_.bytes) return Refuse("what it carries inside itself is too long to be read to its end");
    Add(id, where, Narrow(markup), "utf-8");
  }
  void Add(NodeId id, const std::string& where, std::string bytes, std::string charset) {
    if (room_.found == 0) {
      isFull_ = true;
      return Refuse("more than " + std::to_string(InnerRoom::kMostFound) + " pages or pieces of pages stand in it");
    }
    if (bytes.size() > room_.bytes || !view_.Budget().Take(bytes.size())) {
      return Refuse("what it carries inside itself is too long to be read to its end");
    }
    room_.bytes -= bytes.size();
    --room_.found;
    owners_.push_back(id);
    pages_.push_back({where, std::move(bytes), std::move(charset), ""});
  }
  /// Tells each reason once.
  void Refuse(std::string why) {
    if (std::ranges::find(refusals_, why) == refusals_.end()) refusals_.push_back(std::move(why));
  }

  void FindLines() {
    LineFinder lines(markup_);
    std::size_t next = 0;
    for (TreeWalk walk(tree_, kDocument); !walk.Done() && next < owners_.size(); walk.Next()) {
      const NodeId id = walk.Id();
      const Node& node = tree_.nodes[id];
      if (node.kind == NodeKind::kComment) {
        if (walk.Entering()) lines.PassComment(tree_.TextOf(node));
        continue;
      }
      if (node.kind != NodeKind::kElement) continue;
      const bool isOwner = walk.Entering() && owners_[next] == id;
      // Of others only what may hold what looks like one.
      const bool mayMislead = (KindsOf(node.name) & (kRaw | kUnseen)) != 0 && node.name != kHead;
      if (!isOwner && !mayMislead && !IsFollowed(node.name)) continue;
      const std::string name = Narrow(tree_.NameText(node.name));
      if (walk.Entering()) {
        lines.Pass("<" + name);
      } else if (mayMislead) {
        lines.Pass("</" + name);
      }
      if (!isOwner) continue;
      const std::size_t line = lines.Line();
      for (; next < owners_.size() && owners_[next] == id; ++next) {
        if (line != 0) pages_[next].where += ", line " + std::to_string(line);
      }
    }
  }
  static bool IsFollowed(NameId name) noexcept {
    return name == kFrame || name == kObject || name == kEmbed || name == kMeta || name == kTextarea;
  }

  PageView& view_;
  const Tree& tree_;
  std::string_view markup_;
  InnerRoom& room_;
  ScriptReader scripts_;
  bool readsScripts_ = false;
  bool isFull_ = false;
  std::vector<std::string> refusals_;
  std::vector<InnerPage> pages_;
  std::vector<NodeId> owners_;  ///< the elements that hold them, in their order
};

}  // namespace

InnerRoom::InnerRoom(std::size_t pageBytes) noexcept
    : bytes(std::min(std::max(2 * pageBytes, kLeastBytes), html::kMaxMarkup)) {}

std::vector<InnerPage> FindInnerPages(HtmlDocument& document, std::string_view markup, InnerRoom& room) {
  return Finder(document, markup, room).Find();
}

bool SaysAnything(HtmlDocument& document) {
  PageView& view = document.View();
  if (!view.Forms().empty() || !view.Links().empty()) return true;
  // Pixels that count visitors are no images that anybody sees.
  if (std::ranges::any_of(view.Images(), [&view](NodeId id) { return view.ImageWidth(id) != 1 || view.ImageHeight(id) != 1; })) {
    return true;
  }
  for (const NodeId id : view.All()) {
    if (view.Nodes().IsHtml(id, kInput) || view.Nodes().IsHtml(id, kTextarea)) return true;
  }
  if (view.Body() == 0) return false;
  constexpr std::size_t kWords = 20;
  std::size_t words = 0;
  bool inWord = false;
  for (const char16_t c : view.InnerText(view.Body())) {
    const bool isBlank = IsBlank(c);
    if (!isBlank && !inWord && ++words == kWords) return true;
    inWord = !isBlank;
  }
  return false;
}

}  // namespace zeph
