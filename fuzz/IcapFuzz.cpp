// SPDX-License-Identifier: Apache-2.0
// What a stranger sends instead of ICAP: the reader says the same of it however it is cut into pieces, keeps nothing
// beyond its limits, and what it calls whole can be written back.
#include <cstdint>
#include <cstdlib>

#include "gateways/icap/Encodings.h"
#include "gateways/icap/IcapReader.h"
#include "gateways/icap/PageType.h"
#include "gateways/icap/Replies.h"

namespace {

using zeph::icap::IcapReader;

/// All that the reader says of a stream that comes in pieces of one size.
std::string Told(std::string_view bytes, std::size_t piece) {
  IcapReader reader;
  std::string told;
  while (!bytes.empty()) {
    std::string_view some = bytes.substr(0, piece);
    bytes.remove_prefix(some.size());
    bool needsMore = false;
    while (!needsMore) {
      switch (reader.Next(some)) {
        case IcapReader::Event::kNeedMore:
          if (!some.empty()) std::abort();
          needsMore = true;
          break;
        case IcapReader::Event::kHead: {
          const auto& request = reader.Request();
          if (request.requestHead.size() + request.responseHead.size() > IcapReader::kMaxEncapsulated) std::abort();
          told += "\nhead " + HeadOfSame(request, "tag", request.isClosing);
          const auto response = zeph::icap::ReadHeaders(request.responseHead, false);
          static_cast<void>(PageTypeOf(*response));
          break;
        }
        case IcapReader::Event::kData:
          if (reader.Data().empty()) std::abort();
          told.append(reader.Data());
          break;
        case IcapReader::Event::kPreviewEnd:
          told += "\npreview";
          reader.Continue();
          break;
        case IcapReader::Event::kEnd:
          told += "\nend";
          reader.Reset();
          break;
        case IcapReader::Event::kBad:
          return told + "\nbad " + reader.Fault();
      }
    }
  }
  return told;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const std::string whole = Told(bytes, bytes.size());
  if (size < 20'000 && (Told(bytes, 1) != whole || Told(bytes, 7) != whole)) std::abort();

  constexpr std::size_t kLimit = 100'000;
  for (const char* const encoding : {"gzip", "deflate", "br"}) {
    std::string content(bytes);
    static_cast<void>(zeph::icap::Decode({encoding}, kLimit, content));
    if (content.size() > kLimit) std::abort();
  }
  static_cast<void>(zeph::icap::LooksLikePage(bytes));
  return 0;
}
