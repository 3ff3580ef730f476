// SPDX-License-Identifier: Apache-2.0
// Any list is read, with a fault or a verdict for each line; and an address that a line names is found.
#include <cstdlib>

#include "tools/classification-server/VerdictList.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using zeph::server::VerdictList;
  const std::string text(reinterpret_cast<const char*>(data), size);
  std::vector<VerdictList::Fault> faults;
  static_cast<void>(VerdictList::Parse(text, faults).Find(text));

  faults.clear();
  const VerdictList list = VerdictList::Parse(text + "\nconfirmed url http://last.example/\n", faults);
  if (list.size() == 0 || list.Find("http://last.example/") != 5) std::abort();
  return 0;
}
