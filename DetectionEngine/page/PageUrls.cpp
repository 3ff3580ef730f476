// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/page/PageUrls.h"

#include "DetectionEngine/platform/FindAnyOf.h"
#include "DetectionEngine/url/UrlCracker.h"
#include "DetectionEngine/url/UrlParser.h"

namespace zeph {

void AddTo(Tally& tally, std::u16string_view key, std::int32_t count) {
  const auto at = tally.lower_bound(key);
  if (at != tally.end() && at->first == key) {
    at->second += count;
  } else {
    tally.emplace_hint(at, key, count);
  }
}

const std::u16string* UrlHosts::HostOf(std::u16string_view url) {
  if (url.size() > kMaxUrlLength) return nullptr;
  url = TrimUrl(url);
  const std::size_t begin = url.find(u"//") + 2;
  const std::u16string_view authority = url.substr(0, FindAnyOf<u'/', u'\\', u'?', u'#'>(url, begin));
  auto at = hosts_.lower_bound(authority);
  if (at == hosts_.end() || at->first != authority) {
    UrlParser parser;
    std::optional<std::u16string> host;
    if (parser.DecodeUrl(url) == 0) host = parser.Record().HostName;
    at = hosts_.emplace_hint(at, authority, std::move(host));
  }
  return at->second ? &*at->second : nullptr;
}

void UrlSorter::Add(const std::u16string& url) {
  const std::u16string* const host = hosts_.HostOf(url);
  if (host == nullptr) {
    invalidUrls_.push_back(url);
    return;
  }
  validUrls_.push_back(url);
  AddTo(urlTally_, url);
  AddTo(hostTally_, *host);
}

}  // namespace zeph
