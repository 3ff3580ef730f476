// SPDX-License-Identifier: Apache-2.0
// Any bytes as an HTML page: decoded, parsed, printed, and read by every collector and scanner. The first byte chooses
// how the page comes.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <string>
#include <string_view>

#include "DetectionEngine/configuration/Configuration.h"
#include "DetectionEngine/engine/PageReading.h"
#include "documents/html/Decoder.h"
#include "documents/html/HtmlDocument.h"
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  constexpr std::string_view kCharsets[] = {"",          "utf-8",   "windows-1252", "utf-16",
                                            "shift_jis", "gb18030", "iso-2022-jp",  "big5"};
  const std::string_view charset = kCharsets[data[0] % std::size(kCharsets)];

  zeph::html::ParseOptions options;
  options.noscriptIsText = (data[0] & 8) != 0;
  const zeph::html::Tree tree = zeph::html::ParseTree(zeph::html::DecodeMarkup(bytes, charset).text, options);
  CheckTree(tree);
  zeph::html::PrintTree(tree, [](std::string_view) {});

  zeph::HtmlDocument document(bytes, {u"http://www.example.test/a/b?c", u"", std::string(charset), nullptr});
  zeph::PageData pageData;
  zeph::PageReading reading{&document, pageData, {}};
  for (const zeph::PageStep& step : zeph::PageSteps()) {
    if (step.IsBad(step.run(reading))) std::abort();  // an HTML document never fails
  }
  return 0;
}
