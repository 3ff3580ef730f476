// SPDX-License-Identifier: Apache-2.0
// Any bytes as a saved page, whose document is then asked for what its parts give.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "documents/SavedPage.h"
#include "documents/html/HtmlDocument.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string error;
  const auto page = zeph::ReadMhtml({reinterpret_cast<const char*>(data), size}, error);
  if (!page) return 0;
  zeph::HtmlDocument document(page->html, {page->url, {}, page->charset, page->resources});
  zeph::IHTMLElementCollection* const images = document.get_images().value;
  for (std::int32_t i = 0; i < images->get_length().value; ++i) {
    images->item(i).value->QueryImg()->get_width();
  }
  zeph::IHTMLElementCollection* const scripts = document.get_scripts().value;
  for (std::int32_t i = 0; i < scripts->get_length().value; ++i) {
    const auto src = scripts->item(i).value->QueryScript()->get_src().value;
    document.Retrieve(std::string(src->begin(), src->end()));
  }
  return 0;
}
