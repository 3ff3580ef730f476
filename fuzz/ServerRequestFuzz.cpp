// SPDX-License-Identifier: Apache-2.0
// What strangers send to the classification server; and what an engine sends is read as it was meant.
#include <cstdlib>

#include "DetectionEngine/base/StringTable.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/server/ServerRequests.h"
#include "tools/classification-server/Requests.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace zeph;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const std::string path = Narrow(StringEntry(0xBA));
  static_cast<void>(server::ParseEngineRequest(path, text));
  static_cast<void>(server::ParseEngineRequest(text, ""));

  constexpr std::size_t kUrlLength = 2083;
  const std::u16string url = Widen(text.substr(0, kUrlLength));
  const std::string body = "cmd=" + Narrow(StringEntry(0xBD)) + "&ver=2.0&el=" + SealUrl(url) +
                           "&er=-3&ctx=" + std::string(text.substr(0, 255));
  const auto request = server::ParseEngineRequest(path, body);
  if (!request || request->kind != server::RequestKind::kReport || request->url != Narrow(url) ||
      request->reportCode != -3 || request->context != text.substr(0, 255)) {
    std::abort();
  }
  return 0;
}
