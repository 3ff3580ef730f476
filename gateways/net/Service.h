// SPDX-License-Identifier: Apache-2.0
// The life of a process that serves: its doors open together, are reloaded together and close together.
//
// Built on Boost.Beast because it serves any number of slow clients from a few threads, uses the same OpenSSL as the
// engine, and leaves limits and time-outs to its user.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "gateways/net/Loops.h"

namespace zeph::net {

/// One protocol at one place. All is called on the control loop's thread, in this order.
class Door {
 public:
  virtual ~Door() = default;
  /// Listens, and takes connections from then on. Throws std::runtime_error with the reason when it can't.
  virtual void Open(Loop& control, Workers& workers) = 0;
  /// Reads again what may have changed: lists, tokens, certificates. What can't be read stays as it was, and the log says so.
  virtual void Reload() = 0;
  /// Takes no more connections, and ends those that it has after the answer to what has come.
  virtual void Close() = 0;
  /// What has come is answered.
  [[nodiscard]] virtual bool IsDone() const = 0;
  /// Lets go of what stands on the loops, whose threads have ended. Also when Open has failed, or wasn't called.
  virtual void Finish() = 0;
};

struct ServiceOptions {
  unsigned threads = 2;                   ///< that answer
  std::chrono::milliseconds drain{5000};  ///< for what has come to be answered at the end
};

/// Opens the doors and serves until SIGTERM or SIGINT, reloads them upon SIGHUP, and at the end takes no more, lets
/// what was begun be answered and returns. Calls ready once all doors are open. The service manager that started the
/// process, if one did, is told of all this. Throws std::runtime_error with the reason when it can't start, and what
/// ready throws.
void RunService(const std::vector<std::shared_ptr<Door>>& doors, const ServiceOptions& options,
                const std::function<void()>& ready);

/// Tells the service manager (NOTIFY_SOCKET) of a state, "READY=1"; nothing happens when there is none.
void NotifyManager(std::string_view state);

}  // namespace zeph::net
