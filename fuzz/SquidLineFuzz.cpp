// SPDX-License-Identifier: Apache-2.0
// Any line that a proxy's clients can bring about has one answer on one line, for the channel that asked.
#include <cstdint>
#include <cstdlib>

#include "gateways/squid/HelperLine.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace zeph;
  const std::string_view line(reinterpret_cast<const char*>(data), size);
  for (const bool hasChannels : {true, false}) {
    const squid::HelperRequest request = squid::ReadHelperLine(line, hasChannels);
    if (request.address.empty() == request.refusal.empty()) std::abort();
    Judgement held;
    held.verdict = Verdict::kSpoofing;
    held.siteName = u"A \"brand\"\n7 ERR";
    held.reasons.push_back({"rule", std::string(line), "", 1.0F, 0.0F});
    for (const std::string& answer : {squid::AnswerLine(request, held, squid::Unjudged::kBroken),
                                      squid::RefusalLine(request, squid::Unjudged::kPasses)}) {
      if (answer.find('\n') != answer.size() - 1) std::abort();
      if (hasChannels == request.channel.empty() || !answer.starts_with(request.channel)) std::abort();
      // Every quote that opens a value closes it.
      std::size_t quotes = 0;
      for (std::size_t i = 0; i < answer.size(); ++i) {
        if (answer[i] == '\\') {
          ++i;
        } else if (answer[i] == '"') {
          ++quotes;
        }
      }
      if (quotes % 2 != 0) std::abort();
    }
  }
  return 0;
}
