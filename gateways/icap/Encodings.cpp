// SPDX-License-Identifier: Apache-2.0
#include "gateways/icap/Encodings.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <utility>

#include <brotli/decode.h>
#include <zlib.h>

namespace zeph::icap {

namespace {

constexpr std::size_t kStep = 64 * 1024;
constexpr std::size_t kMostEncodings = 4;

/// Room for the next piece of output; none when the limit is reached.
std::size_t Widen(std::string& out, std::size_t used, std::size_t limit) {
  const std::size_t room = std::min(kStep, limit - used);
  out.resize(used + room);
  return room;
}

Decoding Inflate(std::string_view in, int windowBits, std::size_t limit, std::string& out) {
  z_stream stream{};
  if (inflateInit2(&stream, windowBits) != Z_OK) return Decoding::kBroken;
  const std::unique_ptr<z_stream, int (*)(z_stream*)> ending(&stream, inflateEnd);
  std::size_t used = 0;
  const auto finish = [&](Decoding how) {
    out.resize(used);
    return how;
  };
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(in.data()));
  stream.avail_in = static_cast<uInt>(in.size());
  while (true) {
    const std::size_t room = Widen(out, used, limit);
    if (room == 0) return finish(Decoding::kCut);
    stream.next_out = reinterpret_cast<Bytef*>(out.data() + used);
    stream.avail_out = static_cast<uInt>(room);
    const int status = inflate(&stream, Z_NO_FLUSH);
    used += room - stream.avail_out;
    if (status == Z_STREAM_END) {
      // What follows may be a further member; what is no member is passed over, as browsers do.
      const bool hasMore = windowBits > MAX_WBITS && stream.avail_in > 2 && stream.next_in[0] == 0x1F && stream.next_in[1] == 0x8B;
      if (!hasMore || inflateReset(&stream) != Z_OK) return finish(Decoding::kWhole);
      continue;
    }
    if (status != Z_OK && status != Z_BUF_ERROR) return finish(Decoding::kBroken);
    if (stream.avail_in == 0 && stream.avail_out != 0) return finish(Decoding::kBroken);
  }
}

Decoding Unbrotli(std::string_view in, std::size_t limit, std::string& out) {
  const std::unique_ptr<BrotliDecoderState, void (*)(BrotliDecoderState*)> state(
      BrotliDecoderCreateInstance(nullptr, nullptr, nullptr), BrotliDecoderDestroyInstance);
  if (state == nullptr) return Decoding::kBroken;
  std::size_t used = 0;
  const auto finish = [&](Decoding how) {
    out.resize(used);
    return how;
  };
  const auto* next = reinterpret_cast<const std::uint8_t*>(in.data());
  std::size_t rest = in.size();
  while (true) {
    const std::size_t room = Widen(out, used, limit);
    if (room == 0) return finish(Decoding::kCut);
    auto* to = reinterpret_cast<std::uint8_t*>(out.data() + used);
    std::size_t left = room;
    const BrotliDecoderResult result = BrotliDecoderDecompressStream(state.get(), &rest, &next, &left, &to, nullptr);
    used += room - left;
    if (result == BROTLI_DECODER_RESULT_SUCCESS) return finish(Decoding::kWhole);
    if (result != BROTLI_DECODER_RESULT_NEEDS_MORE_OUTPUT) return finish(Decoding::kBroken);
  }
}

/// Browsers take deflate with zlib's frame, which it should have, and without, which it often lacks.
Decoding Undeflate(std::string_view in, std::size_t limit, std::string& out) {
  const bool hasFrame = in.size() > 1 && (in[0] & 0x0F) == Z_DEFLATED &&
                        (static_cast<unsigned char>(in[0]) * 256U + static_cast<unsigned char>(in[1])) % 31U == 0;
  return Inflate(in, hasFrame ? MAX_WBITS : -MAX_WBITS, limit, out);
}

}  // namespace

Decoding Decode(const std::vector<std::string>& encodings, std::size_t limit, std::string& bytes) {
  if (encodings.size() > kMostEncodings || bytes.size() > std::numeric_limits<uInt>::max()) return Decoding::kUnknown;
  Decoding worst = Decoding::kWhole;
  for (auto encoding = encodings.rbegin(); encoding != encodings.rend(); ++encoding) {
    if (*encoding == "identity") continue;
    std::string out;
    Decoding how = Decoding::kUnknown;
    if (*encoding == "gzip" || *encoding == "x-gzip") how = Inflate(bytes, MAX_WBITS + 16, limit, out);
    if (*encoding == "deflate") how = Undeflate(bytes, limit, out);
    if (*encoding == "br") how = Unbrotli(bytes, limit, out);
    bytes = std::move(out);
    if (how == Decoding::kUnknown) return how;
    worst = std::max(worst, how);
  }
  if (bytes.size() > limit) {
    bytes.resize(limit);
    worst = Decoding::kCut;
  }
  return worst;
}

}  // namespace zeph::icap
