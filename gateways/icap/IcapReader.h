// SPDX-License-Identifier: Apache-2.0
// Reads the requests of an ICAP client (RFC 3507) out of a stream of bytes. A pure state machine: it knows no socket, no
// clock and no thread, keeps heads up to a limit and nothing of bodies.
//
//   RESPMOD icap://host/respmod ICAP/1.0            kHead when all of this has come:
//   Encapsulated: req-hdr=0, res-hdr=96, res-body=180   the request's own head
//                                                       and the heads that it encapsulates
//   GET http://example.org/ HTTP/1.1 ...
//   HTTP/1.1 200 OK ...
//   400                                             kData for each piece of the body
//   ...
//   0                                               kPreviewEnd: the client waits for word whether to go on,
//                                                   or kEnd
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "gateways/icap/Headers.h"

namespace zeph::icap {

/// A request without its body.
struct IcapRequest {
  std::string method;   ///< in capitals, as it was written
  std::string service;  ///< the path of its address, without slashes around it and without its query
  Headers headers;
  std::string requestHead;   ///< the encapsulated head of an HTTP request, byte for byte; may be empty
  std::string responseHead;  ///< and of an HTTP response
  bool hasBody = false;
  bool hasPreview = false;
  bool allows204 = false;  ///< behind the preview too
  bool isClosing = false;  ///< the client wants no further answer on this connection
};

class IcapReader {
 public:
  enum class Event : std::uint8_t {
    kNeedMore,    ///< all bytes are taken
    kHead,        ///< Request() is there
    kData,        ///< Data() is the next piece of the body
    kPreviewEnd,  ///< the preview was not all: call Continue, or Reset when the rest isn't wanted and won't come
    kEnd,         ///< the request has ended; call Reset
    kBad,         ///< no ICAP, Fault() tells why; for good
  };

  static constexpr std::size_t kMaxHead = 16 * 1024;          ///< bytes of the request's own head
  static constexpr std::size_t kMaxEncapsulated = 128 * 1024;  ///< bytes of the heads in it
  static constexpr std::size_t kMaxChunkLine = 1024;
  static constexpr std::size_t kMaxTrailer = 8 * 1024;

  /// Takes bytes off the front, up to the next event.
  [[nodiscard]] Event Next(std::string_view& bytes);

  [[nodiscard]] const IcapRequest& Request() const { return request_; }
  /// A view into the bytes that were given to Next.
  [[nodiscard]] std::string_view Data() const { return data_; }
  [[nodiscard]] const char* Fault() const { return fault_; }
  /// Nothing of a request has come yet.
  [[nodiscard]] bool IsIdle() const { return state_ == State::kHead && kept_.empty(); }

  void Continue();
  void Reset();

 private:
  enum class State : std::uint8_t {
    kHead, kEncapsulated, kChunkLine, kChunk, kChunkEnd, kTrailer, kPreviewEnd, kEnd, kBad
  };

  Event Bad(const char* why);
  /// Appends to kept_ up to and with the end of a line. True when it is there.
  bool TakeLine(std::string_view& bytes);
  Event TakeHead(std::string_view& bytes);
  Event ReadHead();
  /// Nothing, or what is wrong with it.
  const char* ReadEncapsulated();
  Event HeadsEnd();
  /// Nothing, or what is wrong with it.
  const char* ReadChunkLine();

  State state_ = State::kHead;
  std::string kept_;  ///< of a head or a line that isn't whole
  IcapRequest request_;
  std::string_view data_;
  const char* fault_ = "";
  std::size_t requestHeadSize_ = 0;
  std::size_t headsSize_ = 0;       ///< of all that is encapsulated in front of the body
  std::uint64_t chunkRest_ = 0;
  std::size_t trailerSize_ = 0;
  bool inPreview_ = false;
  bool isEndOfFile_ = false;  ///< the preview is all there is
};

}  // namespace zeph::icap
