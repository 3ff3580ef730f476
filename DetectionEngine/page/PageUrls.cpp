// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/page/PageUrls.h"

#include "DetectionEngine/text/FindAnyOf.h"
#include "DetectionEngine/url/UrlCracker.h"
#include "DetectionEngine/url/UrlParser.h"

namespace zeph {

std::int32_t& AddTo(Tally& tally, std::u16string_view key, std::int32_t count) {
  auto at = tally.lower_bound(key);
  if (at == tally.end() || at->first != key) at = tally.emplace_hint(at, key, 0);
  at->second += count;
  return at->second;
}

UrlHosts::Host* UrlHosts::HostOf(std::u16string_view url) {
  if (url.size() > kMaxUrlLength) return nullptr;
  url = TrimUrl(url);
  const std::size_t begin = url.find(u"//") + 2;
  const std::u16string_view authority = url.substr(0, FindAnyOf<u'/', u'\\', u'?', u'#'>(url, begin));
  auto at = hosts_.lower_bound(authority);
  if (at == hosts_.end() || at->first != authority) {
    UrlParser parser;
    std::optional<Host> host;
    if (parser.DecodeUrl(url) == 0) host = Host{parser.Record().HostName};
    at = hosts_.emplace_hint(at, authority, std::move(host));
  }
  return at->second ? &*at->second : nullptr;
}

void UrlSorter::Add(const std::u16string& url) {
  UrlHosts::Host* const host = hosts_.HostOf(url);
  if (host == nullptr) {
    invalidUrls_.push_back(url);
    return;
  }
  validUrls_.push_back(url);
  AddTo(urlTally_, url);
  if (host->count == nullptr) host->count = &AddTo(hostTally_, host->name, 0);
  ++*host->count;
}

}  // namespace zeph
