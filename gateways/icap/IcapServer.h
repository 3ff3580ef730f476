// SPDX-License-Identifier: Apache-2.0
// An ICAP service: what a web proxy asks before it lets a request out ("reqmod", judged by its address) or a page in
// ("respmod", judged by its content).
//
// It stands on Boost.Asio rather than on the module interface of an ICAP server. A module would be loaded into a process
// that forks its workers as it likes: the engine's package, its memory and the threads that load packages would be there
// once for each, out of reach of this project's own bounds, and a module is bound to the one version of the server that
// it was built for. The protocol itself is small, and what reads it can be driven by a fuzzer, byte by byte. Beast knows
// HTTP alone, so only its floor is used.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "gateways/proxy/CurrentJudge.h"

namespace zeph::icap {

struct IcapOptions {
  std::string address = "127.0.0.1";
  std::uint16_t port = 1344;            ///< 0: a free one
  unsigned connections = 2048;          ///< at a time
  unsigned connectionsPerClient = 0;    ///< of one address; 0: half of all
  std::size_t bodyLimit = 10U << 20U;   ///< bytes of a page, as it comes and undone; longer ones pass unjudged
  std::size_t memoryLimit = 512U << 20U;  ///< bytes of all pages that are held at a time; beyond it pages pass unjudged
  std::chrono::seconds timeout{60};         ///< for a client to send or to take anything at all
  std::chrono::seconds messageTimeout{300};  ///< for a whole exchange
  unsigned threads = 2;                 ///< that judge
};

/// Serves until SIGTERM or SIGINT, then lets what is under way end, for ten seconds at most. SIGHUP looks for a newer
/// package and writes the counters on standard error, where they also go once a minute when something passed unjudged.
/// ready is called with the port in use. Throws std::runtime_error when it can't listen.
///
/// A page is held back until it is judged. Whatever can't be judged passes: too long, too costly, of an encoding that
/// isn't known, or with no memory left; each has a counter.
void RunIcap(const IcapOptions& options, CurrentJudge& judge, const std::function<void(std::uint16_t)>& ready);

}  // namespace zeph::icap
