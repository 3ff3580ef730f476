// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/page/PageUrls.h"

#include <array>
#include <utility>

#include "DetectionEngine/text/FindAnyOf.h"
#include "DetectionEngine/text/Text.h"
#include "DetectionEngine/url/UrlCracker.h"
#include "DetectionEngine/url/UrlParser.h"

namespace zeph {

UrlHosts::Host* UrlHosts::HostOf(std::u16string_view url) {
  if (url.size() > kMaxUrlLength) return nullptr;
  url = TrimUrl(url);
  const std::size_t begin = url.find(u"//") + 2;
  const std::u16string_view authority = url.substr(0, FindAnyOf<u'/', u'\\', u'?', u'#'>(url, begin));
  const std::uint32_t number = authorities_.Add(authority);
  if (number == hosts_.size()) {
    Host& host = hosts_.emplace_back();
    UrlParser parser;
    host.decodes = parser.DecodeUrl(url) == 0;
    std::u16string name = parser.TakeRecord().HostName;
    const std::size_t at = authority.find(name);
    host.name = at != std::u16string_view::npos ? authority.substr(at, name.size()) : texts_.Keep(name);
  }
  Host& host = hosts_[number];
  return host.decodes ? &host : nullptr;
}

Tally UrlHosts::Counts() const {
  std::vector<Tally::Entry> counts;
  counts.reserve(hosts_.size());
  for (const Host& host : hosts_) {
    if (host.count != 0) counts.emplace_back(host.name, host.count);
  }
  return Tally(std::move(counts));
}

void SortUrls(UrlList& list, bool makeLower, const UrlLists& sorted) {
  enum Kind : std::uint8_t { kValid, kInvalid, kOther };
  struct Url {
    std::u16string_view text;
    Kind kind;
  };
  const DistinctTexts& distinct = list.Distinct();
  std::vector<Url> urls;
  urls.reserve(distinct.Size());
  std::array<std::size_t, 3> lengths{};
  std::array<std::vector<Tally::Entry>, 3> counts;
  for (std::uint32_t i = 0; i < distinct.Size(); ++i) {
    const auto& [text, hash, count] = distinct[i];
    Url url{text, kOther};
    if (makeLower) {
      std::u16string lower = ToLower(text);
      url.text = list.Keep(lower, text);
    }
    if (IsHttpUrl(url.text)) url.kind = list.CountHost(url.text, count) != nullptr ? kValid : kInvalid;
    lengths[url.kind] += static_cast<std::size_t>(count);
    if (url.kind != kInvalid) counts[url.kind].emplace_back(url.text, count);
    urls.push_back(url);
  }
  sorted.urlTally = Tally(std::move(counts[kValid]));
  sorted.otherTally = Tally(std::move(counts[kOther]));
  sorted.hostTally = list.HostCounts();

  const std::array<Texts*, 3> lists = {&sorted.validUrls, &sorted.invalidUrls, &sorted.otherUrls};
  for (std::size_t kind = 0; kind < lists.size(); ++kind) lists[kind]->reserve(lengths[kind]);
  sorted.urls.reserve(list.Order().size());
  for (const std::uint32_t number : list.Order()) {
    sorted.urls.push_back(urls[number].text);
    lists[urls[number].kind]->push_back(urls[number].text);
  }
}

}  // namespace zeph
