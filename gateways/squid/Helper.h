// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "gateways/proxy/CurrentJudge.h"
#include "gateways/squid/HelperLine.h"

namespace zeph::squid {

struct HelperOptions {
  bool hasChannels = true;  ///< without, each line is answered before the next is read
  Unjudged unjudged = Unjudged::kBroken;
  unsigned threads = 2;     ///< that judge, with channels
};

/// Answers the lines of one descriptor on another until they end, or until nobody takes the answers any more. Each answer
/// is written at once and whole; with channels in the order in which they are found. A file is never looked at, whatever
/// a line says. Keeps at most kMaxLine bytes of a line, and as many lines as threads can have before them.
void RunHelper(int input, int output, const HelperOptions& options, CurrentJudge& judge);

}  // namespace zeph::squid
