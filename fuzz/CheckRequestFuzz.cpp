// SPDX-License-Identifier: Apache-2.0
// What strangers ask over HTTP: the query and the body. What is taken says what to judge; what isn't, why.
#include <cstdlib>

#include "gateways/http/CheckRequest.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace zeph::http_door;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  Problem problem;
  if (!ReadQuery(text, problem) && problem.what.empty()) std::abort();
  static_cast<void>(KindOfBody(text));
  problem = {};
  const auto question = ReadQuestion(text, problem);
  if (!question) {
    const std::string answer = ProblemJson(problem);
    if (problem.what.empty() || answer.find('\n') != std::string::npos) std::abort();
    return 0;
  }
  if (question->isAddress != !question->address.empty()) std::abort();
  // A byte that is no UTF-8 becomes three, and nothing grows more.
  if (question->address.size() + question->content.bytes.size() + question->content.url.size() > 3 * size + 16) std::abort();
  return 0;
}
