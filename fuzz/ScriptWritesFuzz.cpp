// SPDX-License-Identifier: Apache-2.0
// Any bytes as the scripts of a page (a zero ends one), as an expression, as an address that carries a page, and as a
// page that carries pages.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "DetectionEngine/platform/CodePage.h"
#include "documents/DataUrl.h"
#include "documents/ScriptWrites.h"
#include "documents/html/InnerPages.h"

namespace {

constexpr std::size_t kMostText = 65536;

void ReadPage(std::string_view bytes) {
  zeph::HtmlDocument document(bytes);
  zeph::InnerRoom room(bytes.size());
  const std::size_t before = room.bytes;
  std::size_t found = 0;
  for (const zeph::InnerPage& page : zeph::FindInnerPages(document, bytes, room)) {
    if (page.where.empty()) std::abort();
    if (!page.refusal.empty() && !page.bytes.empty()) std::abort();
    found += page.bytes.size();
  }
  if (found != before - room.bytes) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  zeph::ScriptReader reader(kMostText);
  for (std::string_view rest = bytes; !rest.empty();) {
    const std::string_view script = rest.substr(0, rest.find('\0'));
    rest.remove_prefix(std::min(rest.size(), script.size() + 1));
    const std::u16string text = zeph::Widen(script);
    std::size_t written = 0;
    for (const zeph::ScriptWrite& write : reader.Read(text)) written += write.text.size();
    // A text is counted once for each step that makes it, and at least once.
    if (written > 4 * (kMostText + text.size() + 4096)) std::abort();
    static_cast<void>(reader.ValueOf(text));
  }
  const std::u16string address = zeph::Widen(bytes);
  if (const auto read = zeph::ReadDataUrl(address, 100); read && read->bytes.size() > 104) std::abort();
  ReadPage(bytes);
  return 0;
}
