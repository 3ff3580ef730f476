// SPDX-License-Identifier: Apache-2.0
// Markup, through both scanners. Law: they give what a reading character by character gives.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "DetectionEngine/page/StructureEncoder.h"
#include "DetectionEngine/platform/CodePage.h"
#include "tests/page/LiteralScanners.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace zeph;
  const std::u16string html = Widen({reinterpret_cast<const char*>(data), size});
  std::u16string structure;
  if (EncodeStructure(0, html, structure) != 0) std::abort();
  if (structure != LiteralStructureEncoder().Encode(html)) std::abort();

  const FormTexts texts = ScanFormTexts(html);
  const auto literal = LiteralFormTextScanner().Scan(html);
  if (texts.scanText != literal.scanText || texts.fieldCount != literal.fieldCount ||
      texts.fieldWithoutLabel != literal.fieldWithoutLabel || texts.forms.size() != literal.forms.size()) {
    std::abort();
  }
  for (std::size_t i = 0; i < texts.forms.size(); ++i) {
    if (texts.forms[i].action != literal.forms[i].action || texts.forms[i].labelText != literal.forms[i].labelText) {
      std::abort();
    }
  }
  return 0;
}
