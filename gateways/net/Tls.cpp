// SPDX-License-Identifier: Apache-2.0
#include "gateways/net/Tls.h"

#include <stdexcept>
#include <utility>

namespace zeph::net {

namespace asio = boost::asio;

Tls::Tls(std::function<Pem()> read) : read_(std::move(read)), context_(Make()) {}

std::shared_ptr<asio::ssl::context> Tls::Current() const {
  const std::lock_guard lock(mutex_);
  return context_;
}

std::string Tls::Reload() {
  try {
    auto fresh = Make();
    const std::lock_guard lock(mutex_);
    context_ = std::move(fresh);
    return {};
  } catch (const std::runtime_error& failure) {
    return failure.what();
  }
}

std::shared_ptr<asio::ssl::context> Tls::Make() const {
  const Pem pem = read_();
  auto context = std::make_shared<asio::ssl::context>(asio::ssl::context::tls_server);
  context->set_options(asio::ssl::context::no_tlsv1 | asio::ssl::context::no_tlsv1_1);
  try {
    context->use_certificate_chain(asio::buffer(pem.certificates));
    context->use_private_key(asio::buffer(pem.key), asio::ssl::context::pem);
  } catch (const boost::system::system_error& failure) {
    throw std::runtime_error("certificate and key: " + failure.code().message());
  }
  return context;
}

}  // namespace zeph::net
