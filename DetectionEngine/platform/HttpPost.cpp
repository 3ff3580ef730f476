// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/platform/HttpPost.h"

#include <algorithm>
#include <atomic>
#include <chrono>

#include <curl/curl.h>
#include <dlfcn.h>
#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>

#include "DetectionEngine/platform/Module.h"

namespace zeph {

namespace {

constexpr int kPollMs = 1000;            ///< how long one wait for the network may last; Abort cuts it short
constexpr std::size_t kBodyKept = 64;    ///< no caller reads more of a body
constexpr long kFirstFinalStatus = 200;  ///< below it a response only announces another one

/// Once for the process. The client library is never torn down, since others in the process may use it, and stays
/// mapped when this one is unloaded, since a name query that was given up on may still run in it.
bool IsClientReady() {
  static const bool ready = [] {
    dlopen("libcurl.so.4", RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
    return curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
  }();
  return ready;
}

struct FreeEasy {
  void operator()(CURL* easy) const noexcept { curl_easy_cleanup(easy); }
};
struct FreeMulti {
  void operator()(CURLM* multi) const noexcept { curl_multi_cleanup(multi); }
};
struct FreeList {
  void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
};

/// A server's own certificate may be out of date; everything else about the chain counts. The flag that SetUpTls
/// left says that the chain was refused: the client library's error code doesn't always tell it from other failures.
int AcceptOutdated(int verified, X509_STORE_CTX* store) {
  if (verified == 1) return 1;
  const int error = X509_STORE_CTX_get_error(store);
  const bool outdated = error == X509_V_ERR_CERT_HAS_EXPIRED || error == X509_V_ERR_CERT_NOT_YET_VALID;
  if (outdated && X509_STORE_CTX_get_error_depth(store) == 0) {
    X509_STORE_CTX_set_error(store, X509_V_OK);
    return 1;
  }
  const auto* ssl = static_cast<SSL*>(X509_STORE_CTX_get_ex_data(store, SSL_get_ex_data_X509_STORE_CTX_idx()));
  *static_cast<bool*>(SSL_CTX_get_app_data(SSL_get_SSL_CTX(ssl))) = true;
  return 0;
}

CURLcode SetUpTls(CURL*, void* sslContext, void* refusedFlag) {
  auto* context = static_cast<SSL_CTX*>(sslContext);
  SSL_CTX_set_app_data(context, refusedFlag);
  // Who started the program may have named a file for the connection's keys before this library was loaded.
  if (HasRaisedPrivileges()) SSL_CTX_set_keylog_callback(context, nullptr);
  SSL_CTX_set_verify(context, SSL_VERIFY_PEER, AcceptOutdated);
  return SSL_CTX_set_default_verify_paths(context) == 1 ? CURLE_OK : CURLE_SSL_CACERT_BADFILE;
}

/// Characters that end or split a host or a path.
bool HasUnsafe(std::string_view text, std::string_view unsafe) {
  return std::ranges::any_of(text, [&](char c) {
    return static_cast<unsigned char>(c) <= ' ' || c == 0x7F || unsafe.find(c) != std::string_view::npos;
  });
}

}  // namespace

struct HttpPost::Exchange {
  // In the order of tearing down: lists and options outlive the transfer that reads them.
  std::string url;
  std::string body;
  std::unique_ptr<curl_slist, FreeList> headers;
  std::unique_ptr<curl_slist, FreeList> connectTo;
  std::unique_ptr<CURL, FreeEasy> easy;
  std::unique_ptr<CURLM, FreeMulti> multi;
  std::atomic<bool> aborted{false};
  bool added = false;
  bool authorityRefused = false;
  bool headerDone = false;
  bool finished = false;  ///< the transfer ended; code tells how
  CURLcode code = CURLE_OK;
  std::string received;

  ~Exchange() {
    if (added) curl_multi_remove_handle(multi.get(), easy.get());
  }

  static std::size_t OnHeader(char* data, std::size_t size, std::size_t count, void* self) {
    auto& exchange = *static_cast<Exchange*>(self);
    const std::string_view line(data, size * count);
    if (line == "\r\n" || line == "\n") {
      long status = 0;
      curl_easy_getinfo(exchange.easy.get(), CURLINFO_RESPONSE_CODE, &status);
      exchange.headerDone = status >= kFirstFinalStatus;
    }
    return size * count;
  }

  static std::size_t OnBody(char* data, std::size_t size, std::size_t count, void* self) {
    auto& exchange = *static_cast<Exchange*>(self);
    const std::size_t room = kBodyKept - exchange.received.size();
    exchange.received.append(data, std::min(size * count, room));
    // A full buffer ends the transfer, so that an endless body costs nothing.
    return exchange.received.size() < kBodyKept ? size * count : 0;
  }

  /// Drives the transfer until done() holds, it ends, the deadline passes or somebody aborts.
  template <class Done>
  void Drive(std::chrono::steady_clock::time_point deadline, Done&& done) {
    while (!finished && !aborted && !done()) {
      int running = 0;
      if (curl_multi_perform(multi.get(), &running) != CURLM_OK) break;
      int left = 0;
      while (const CURLMsg* message = curl_multi_info_read(multi.get(), &left)) {
        if (message->msg == CURLMSG_DONE) {
          finished = true;
          code = message->data.result;
        }
      }
      if (finished || done()) break;
      const auto now = std::chrono::steady_clock::now();
      if (now >= deadline) break;
      const auto wake = std::min(deadline, now + std::chrono::milliseconds(kPollMs));
      const auto rest = std::chrono::ceil<std::chrono::milliseconds>(wake - now).count();
      curl_multi_poll(multi.get(), nullptr, 0, static_cast<int>(rest), nullptr);
    }
  }
};

HttpPost::HttpPost() : exchange_(std::make_unique<Exchange>()) {}
HttpPost::~HttpPost() = default;

bool HttpPost::Open(std::string_view userAgent) {
  if (!IsClientReady()) return false;
  Exchange& exchange = *exchange_;
  exchange.easy.reset(curl_easy_init());
  exchange.multi.reset(curl_multi_init());
  if (exchange.easy == nullptr || exchange.multi == nullptr) return false;
  CURL* const easy = exchange.easy.get();
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  // A name query that hangs must not hold whoever gives up on it.
  curl_easy_setopt(easy, CURLOPT_QUICK_EXIT, 1L);
  curl_easy_setopt(easy, CURLOPT_USERAGENT, std::string(userAgent).c_str());
  curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "https");
  curl_easy_setopt(easy, CURLOPT_HTTP_VERSION, CURL_HTTP_VERSION_1_1);
  curl_easy_setopt(easy, CURLOPT_FRESH_CONNECT, 1L);
  curl_easy_setopt(easy, CURLOPT_FORBID_REUSE, 1L);
  curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 0L);
  curl_easy_setopt(easy, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 1L);
  curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 0L);
  curl_easy_setopt(easy, CURLOPT_CAINFO, nullptr);
  curl_easy_setopt(easy, CURLOPT_CAPATH, nullptr);
  curl_easy_setopt(easy, CURLOPT_SSL_CTX_FUNCTION, SetUpTls);
  curl_easy_setopt(easy, CURLOPT_SSL_CTX_DATA, &exchange.authorityRefused);
  curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, Exchange::OnHeader);
  curl_easy_setopt(easy, CURLOPT_HEADERDATA, &exchange);
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, Exchange::OnBody);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, &exchange);
  // The environment's proxies are for the user who set them.
  if (HasRaisedPrivileges()) curl_easy_setopt(easy, CURLOPT_PROXY, "");
  if (const auto elsewhere = TrustedEnvironment("ZEPH_CONNECT_TO")) {
    exchange.connectTo.reset(curl_slist_append(nullptr, elsewhere->c_str()));
    curl_easy_setopt(easy, CURLOPT_CONNECT_TO, exchange.connectTo.get());
  }
  return true;
}

bool HttpPost::Connect(std::string_view host, std::uint16_t port) {
  if (exchange_->easy == nullptr || host.empty() || HasUnsafe(host, "/?#@\\%\"<>")) return false;
  exchange_->url = "https://" + std::string(host) + ":" + std::to_string(port);
  return true;
}

bool HttpPost::Pin(std::string_view keys) {
  return exchange_->easy != nullptr &&
         curl_easy_setopt(exchange_->easy.get(), CURLOPT_PINNEDPUBLICKEY, std::string(keys).c_str()) == CURLE_OK;
}

bool HttpPost::OpenRequest(std::string_view path) {
  if (exchange_->easy == nullptr || !path.starts_with('/') || HasUnsafe(path, "#")) return false;
  exchange_->url += path;
  return curl_easy_setopt(exchange_->easy.get(), CURLOPT_URL, exchange_->url.c_str()) == CURLE_OK;
}

HttpPost::SendResult HttpPost::Send(std::string_view header, std::string_view body, int& errorCode) {
  Exchange& exchange = *exchange_;
  CURL* const easy = exchange.easy.get();
  exchange.body = body;
  exchange.headers.reset(curl_slist_append(nullptr, std::string(header).c_str()));
  // Without an Expect line the body goes with the request, whatever its length.
  curl_slist_append(exchange.headers.get(), "Expect:");
  curl_easy_setopt(easy, CURLOPT_HTTPHEADER, exchange.headers.get());
  curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(exchange.body.size()));
  curl_easy_setopt(easy, CURLOPT_POSTFIELDS, exchange.body.data());
  exchange.added = curl_multi_add_handle(exchange.multi.get(), easy) == CURLM_OK;
  if (exchange.added) {
    exchange.Drive(std::chrono::steady_clock::time_point::max(), [&] { return exchange.headerDone; });
  }
  if (exchange.headerDone) return SendResult::kResponse;
  errorCode = exchange.aborted ? CURLE_ABORTED_BY_CALLBACK : exchange.code;
  return exchange.authorityRefused ? SendResult::kUntrustedAuthority : SendResult::kFailed;
}

std::size_t HttpPost::Read(char* buffer, std::size_t size, int timeoutMs) {
  Exchange& exchange = *exchange_;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  exchange.Drive(deadline, [&] { return exchange.received.size() >= std::min(size, kBodyKept); });
  const std::size_t count = std::min(size, exchange.received.size());
  std::copy_n(exchange.received.data(), count, buffer);
  return count;
}

long HttpPost::Status() const {
  long status = 0;
  if (exchange_->easy != nullptr) curl_easy_getinfo(exchange_->easy.get(), CURLINFO_RESPONSE_CODE, &status);
  return status;
}

bool HttpPost::HasEnded() const noexcept { return exchange_->finished; }
bool HttpPost::IsWhole() const noexcept { return exchange_->finished && exchange_->code == CURLE_OK; }

void HttpPost::Abort() noexcept {
  exchange_->aborted = true;
  if (exchange_->multi != nullptr) curl_multi_wakeup(exchange_->multi.get());
}

}  // namespace zeph
