// SPDX-License-Identifier: Apache-2.0
// Markup and text of every element, which a document gives as slices of one text, against a second, plain walk of the
// same tree for that element alone.
#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "documents/html/Decoder.h"
#include "documents/html/HtmlText.h"
#include "documents/html/PageView.h"
#include "documents/html/Sight.h"
#include "documents/html/TreeBuilder.h"

namespace {

using namespace zeph::html;

constexpr std::size_t kLongest = 8192;

char16_t Upper(char16_t c) { return c >= u'a' && c <= u'z' ? static_cast<char16_t>(c - 32) : c; }
std::u16string Lower(std::u16string_view text) {
  std::u16string lower(text);
  std::ranges::transform(lower, lower.begin(), [](char16_t c) { return zeph::html::Lower(c); });
  return lower;
}

std::uint16_t Kinds(const Node& node) { return node.space == Space::kHtml ? KindsOf(node.name) : std::uint16_t{0}; }

class Plain {
 public:
  explicit Plain(PageView& view) : view_(view), tree_(view.Nodes()) {}

  std::u16string Outer(NodeId id) {
    std::u16string out;
    for (TreeWalk walk(tree_, id); !walk.Done(); walk.Next())
      out += walk.Entering() ? Opening(walk.Id()) : Closing(walk.Id());
    return out;
  }

  std::u16string Inner(NodeId id) {
    std::u16string out;
    for (NodeId child = tree_.FirstChild(id); child != 0; child = tree_.nodes[child].next) out += Outer(child);
    return out;
  }

  /// Reads the page's text letter by letter and keeps what falls into the element.
  std::u16string Text(NodeId wanted) {
    std::u16string line;  // what the element has so far
    bool inside = false;
    bool begun = false;  // something of it was met
    bool lineHasText = false;
    bool lineHasObject = false;
    std::vector<bool> blanks;         // that wait in this line: whether the element has them
    bool pending = false;             // the last of them still grows
    std::size_t written = 0;          // of the whole page
    std::vector<std::size_t> begins;  // of each open element: what was written before it
    std::size_t kept = 0;
    Sight sight(tree_, view_.All());
    const auto put = [&](char16_t c) {
      ++written;
      begun = inside;
      if (inside) line += c;
    };
    const auto blank = [&] {
      if (!pending) blanks.push_back(inside && begun);
      pending = true;
    };
    const auto object = [&] {
      pending = false;
      lineHasObject = true;
      begun = inside;
    };
    const auto flush = [&] {
      for (const bool wasInside : blanks) {
        ++written;
        if (wasInside && inside) line += u' ';
      }
      blanks.clear();
      pending = false;
    };
    const auto trim = [&] {
      if (pending) blanks.pop_back();
      pending = false;
      if (lineHasText) flush();
    };
    const auto begin = [&] {
      blanks.clear();
      lineHasText = lineHasObject = pending = false;
    };
    const auto end = [&] {
      trim();
      put(u'\r');
      put(u'\n');
      begin();
    };
    const auto boundary = [&](const Node& node) {
      if ((Kinds(node) & kBlock) != 0) {
        if (lineHasText) end();
        begin();
      } else if ((Kinds(node) & kCell) != 0) {
        blanks.clear();
        lineHasObject = pending = false;
        if (lineHasText) blank();
      }
    };
    const auto isHtml = [](const Node& node, std::initializer_list<NameId> names) {
      return node.space == Space::kHtml && std::ranges::find(names, node.name) != names.end();
    };
    const auto isKept = [&](const Node& node) {
      return isHtml(node, {name::kPre, name::kTextarea, name::kListing, name::kXmp, name::kPlaintext});
    };
    bool skip = false;
    for (TreeWalk walk(tree_, kDocument); !walk.Done(); walk.Next(skip)) {
      const NodeId id = walk.Id();
      const Node& node = tree_.nodes[id];
      skip = false;
      if (node.kind == NodeKind::kElement && walk.Entering()) {
        sight.Enter(id);
        skip = IsInert(tree_, id);
        if (sight.IsShown()) boundary(node);
        const bool isObject =
            (node.space == Space::kSvg && node.name == name::kSvg) ||
            isHtml(node, {name::kImg, name::kEmbed, name::kIframe, name::kCanvas, name::kVideo, name::kAudio,
                          name::kMeter, name::kProgress}) ||
            (isHtml(node, {name::kInput}) && Lower(tree_.AttributeText(id, name::kType)) != u"hidden");
        if (isObject && sight.SeesElement()) object();
        if (id == wanted) inside = true;
        if (sight.IsShown() && isHtml(node, {name::kBr})) end();
        kept += isKept(node) ? 1 : 0;
        begins.push_back(written);
      } else if (node.kind == NodeKind::kElement) {
        kept -= isKept(node) ? 1 : 0;
        if (isHtml(node, {name::kSelect, name::kTextarea, name::kButton, name::kObject}) && begins.back() == written &&
            sight.SeesElement()) {
          object();
        }
        begins.pop_back();
        if (sight.IsShown() && (Kinds(node) & kBlock) != 0) {
          trim();
        }
        if (id == wanted) inside = false;
        if (sight.IsShown()) boundary(node);
        sight.Leave();
      } else if (node.kind == NodeKind::kText && walk.Entering() && sight.SeesText()) {
        const std::u16string_view text = tree_.TextOf(node);
        for (std::size_t i = 0; i < text.size(); ++i) {
          i += InvisibleAt(text, i);
          if (i == text.size()) break;
          const char16_t c = text[i];
          if (kept == 0 && IsBlank(c)) {
            if (lineHasText || lineHasObject) blank();
            continue;
          }
          flush();
          put(c);
          lineHasText = kept == 0 || (c != u'\n' && c != u'\r');
        }
      }
    }
    return line;
  }

 private:
  std::u16string Escaped(std::u16string_view text, bool value) {
    std::u16string out;
    for (const char16_t c : text) {
      if (c == u'&') {
        out += u"&amp;";
      } else if (c == 0xA0) {
        out += u"&nbsp;";
      } else if (value && c == u'"') {
        out += u"&quot;";
      } else if (!value && (c == u'<' || c == u'>')) {
        out += c == u'<' ? u"&lt;" : u"&gt;";
      } else {
        out += c;
      }
    }
    return out;
  }

  std::u16string TagName(const Node& node) {
    std::u16string tag(tree_.NameText(node.name));
    std::ranges::transform(tag, tag.begin(), Upper);
    return tag;
  }

  std::u16string Opening(NodeId id) {
    const Node& node = tree_.nodes[id];
    switch (node.kind) {
      case NodeKind::kText: {
        const Node& parent = tree_.nodes[node.parent];
        const bool raw = parent.kind == NodeKind::kElement && (Kinds(parent) & kRaw) != 0;
        return raw ? std::u16string(tree_.TextOf(node)) : Escaped(tree_.TextOf(node), false);
      }
      case NodeKind::kComment:
        return u"<!--" + std::u16string(tree_.TextOf(node)) + u"-->";
      case NodeKind::kElement: {
        std::u16string out = u"<" + TagName(node);
        for (const Attribute& item : tree_.AttributesOf(id)) {
          const std::u16string value(*view_.AttributeValue(id, item.name));
          const bool bare = !value.empty() && std::ranges::all_of(value, [](char16_t c) {
            return c < 0x80 && (std::isalnum(static_cast<unsigned char>(c)) != 0 || c == u'-' || c == u'_' ||
                                c == u'/' || c == u'#');
          });
          out += u' ' + std::u16string(tree_.NameText(item.name)) + u'=';
          out += bare ? value : u'"' + Escaped(value, true) + u'"';
        }
        return out + u'>';
      }
      default:
        return {};
    }
  }

  std::u16string Closing(NodeId id) {
    const Node& node = tree_.nodes[id];
    if (node.kind != NodeKind::kElement || (Kinds(node) & kVoid) != 0) return {};
    return u"</" + TagName(node) + u'>';
  }

  PageView& view_;
  const Tree& tree_;
};

void Check(PageView view) {
  Plain plain(view);
  // All elements of small pages, some of large ones: the plain walk is quadratic.
  const std::size_t step = view.All().size() / 64 + 1;
  for (std::size_t i = 0; i < view.All().size(); i += step) {
    const NodeId id = view.All()[i];
    if (view.OuterMarkup(id) != plain.Outer(id)) std::abort();
    if (view.InnerMarkup(id) != plain.Inner(id)) std::abort();
    const bool comment = view.Nodes().nodes[id].kind == NodeKind::kComment;
    if (view.InnerText(id) != (comment ? std::u16string() : plain.Text(id))) std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > kLongest) return 0;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  // With all elements, and with as few as may be.
  for (const std::size_t freeElements : {kLongest, std::size_t{0}}) {
    ParseOptions options;
    options.freeElements = freeElements;
    Check(PageView(ParseTree(DecodeMarkup(bytes).text, options), u"http://www.example.test/a/b", nullptr));
  }
  return 0;
}
