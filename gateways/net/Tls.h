// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include <boost/asio/ssl/context.hpp>

namespace zeph::net {

/// A server's certificate chain, its own certificate first, and the key.
struct Pem {
  std::string certificates;
  std::string key;
};

/// What connections are secured with; can be renewed while it is in use. Any thread.
class Tls {
 public:
  /// read gives what is in force now, and is called again by Reload; it may throw std::runtime_error. Throws that when
  /// certificate and key can't be used.
  explicit Tls(std::function<Pem()> read);
  [[nodiscard]] std::shared_ptr<boost::asio::ssl::context> Current() const;
  /// New connections get what read gives now. Empty, or why everything stays as it was.
  std::string Reload();

 private:
  [[nodiscard]] std::shared_ptr<boost::asio::ssl::context> Make() const;

  std::function<Pem()> read_;
  mutable std::mutex mutex_;
  std::shared_ptr<boost::asio::ssl::context> context_;
};

}  // namespace zeph::net
