// SPDX-License-Identifier: Apache-2.0
// Any bytes as an HTML page: decoded, parsed, printed, and read by every collector and scanner. The first byte chooses
// how the page comes. With as few elements as may be, a page names what it names with all of them.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "DetectionEngine/configuration/Configuration.h"
#include "DetectionEngine/engine/PageReading.h"
#include "documents/html/Decoder.h"
#include "documents/html/HtmlDocument.h"
#include "documents/html/PageView.h"
#include "documents/html/TreeBuilder.h"
#include "documents/html/TreePrinter.h"

namespace {

/// The tree is one: every node that is reached knows its parent and its neighbours.
void CheckTree(const zeph::html::Tree& tree) {
  std::size_t reached = 0;
  for (zeph::html::TreeWalk walk(tree, zeph::html::kDocument); !walk.Done(); walk.Next()) {
    if (!walk.Entering()) continue;
    if (++reached > tree.nodes.size()) std::abort();
    zeph::html::NodeId last = 0;
    for (auto child = tree.FirstChild(walk.Id()); child != 0; child = tree.nodes[child].next) {
      if (tree.nodes[child].parent != walk.Id() || tree.PreviousSibling(child) != last) std::abort();
      last = child;
    }
    if (tree.LastChild(walk.Id()) != last) std::abort();
  }
}

/// So short a page stays clear of the bounds on depth and on copies, which do take things apart.
constexpr std::size_t kShort = 512;

/// The addresses of links, images, frames and scripts, the targets of forms, the types of fields.
std::set<std::u16string> Named(zeph::html::Tree tree) {
  namespace name = zeph::html::name;
  zeph::html::PageView view(std::move(tree), u"", nullptr);
  std::set<std::u16string> named;
  for (const zeph::html::NodeId id : view.All()) {
    const zeph::html::Node& node = view.Nodes().nodes[id];
    if (node.kind != zeph::html::NodeKind::kElement || node.space != zeph::html::Space::kHtml) continue;
    const auto add = [&](std::u16string_view what, zeph::html::NameId attribute, bool always) {
      const auto value = view.AttributeValue(id, attribute);
      if (value || always) named.insert(std::u16string(what).append(value.value_or(u"")));
    };
    switch (node.name) {
      case name::kA:
      case name::kArea:
        add(u"link ", name::kHref, false);
        break;
      case name::kImg:
      case name::kFrame:
        add(u"image ", name::kSrc, false);
        break;
      case name::kIframe:
      case name::kScript:
        add(u"script ", name::kSrc, true);
        break;
      case name::kForm:
        add(u"form ", name::kAction, true);
        break;
      case name::kInput:
        add(u"input ", name::kType, true);
        break;
      case name::kButton:
      case name::kSelect:
      case name::kTextarea:
        add(view.TagName(id), name::kId, true);
        break;
      default:
        break;
    }
  }
  return named;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  constexpr std::string_view kCharsets[] = {"",          "utf-8",   "windows-1252", "utf-16",
                                            "shift_jis", "gb18030", "iso-2022-jp",  "big5"};
  const std::string_view charset = kCharsets[data[0] % std::size(kCharsets)];

  zeph::html::ParseOptions options;
  options.noscriptIsText = (data[0] & 8) != 0;
  const auto parse = [&] { return zeph::html::ParseTree(zeph::html::DecodeMarkup(bytes, charset).text, options); };
  zeph::html::Tree tree = parse();
  CheckTree(tree);
  zeph::html::PrintTree(tree, [](std::string_view) {});
  options.freeElements = data[0] >> 4;
  zeph::html::Tree least = parse();
  CheckTree(least);
  if (size < kShort && Named(std::move(tree)) != Named(std::move(least))) std::abort();

  zeph::HtmlDocument document(bytes, {u"http://www.example.test/a/b?c", u"", std::string(charset), nullptr});
  zeph::PageData pageData;
  zeph::PageReading reading{&document, pageData, {}};
  for (const zeph::PageStep& step : zeph::PageSteps()) {
    const zeph::Status status = step.Run(reading);
    if (status == zeph::kStatusTooCostly) return 0;
    if (step.IsBad(status)) std::abort();  // an HTML document never fails otherwise
  }
  return 0;
}
