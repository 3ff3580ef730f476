// SPDX-License-Identifier: Apache-2.0
// What a page costs, against what it is long: the first byte chooses its form and how often the rest comes again, in
// front of which its first line stands alone.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "tests/costs/HeapMeter.h"
#include "tests/costs/JudgePage.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const zeph::ConfigurationPair package;
  if (size == 0) return 0;
  const std::string_view rest(reinterpret_cast<const char*>(data) + 1, size - 1);
  const std::size_t line = std::min(rest.find('\n'), rest.size() - 1) + 1;
  const std::string_view piece = rest.substr(std::min(line, rest.size()));
  std::string page(rest.substr(0, line));
  const std::size_t length = std::size_t{1} << (data[0] >> 2) % 20;
  do page += piece;
  while (!piece.empty() && page.size() < length);

  const zeph::HeapMeter meter;
  zeph::JudgePage(page, static_cast<zeph::PageForm>(data[0] % 3), package);
  if (meter.Peak() > zeph::MayTake(page.size())) std::abort();
  return 0;
}
