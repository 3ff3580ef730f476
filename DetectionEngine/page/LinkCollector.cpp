// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/page/LinkCollector.h"

#include <optional>
#include <string>
#include <string_view>

#include "DetectionEngine/page/DocumentReading.h"
#include "DetectionEngine/page/PageUrls.h"
#include "DetectionEngine/text/Text.h"
#include "DetectionEngine/url/UrlParser.h"

namespace zeph {

namespace {

class LinkReader {
 public:
  explicit LinkReader(LinkData& data) : data_(data) {}

  Status Collect(IHTMLDocument2& document) {
    reader_.Walk(reader_.Take(document.get_links()), [&](DocumentObject& link) { ReadLink(link); });
    MakeLower(data_.linkText);
    SortTargets();
    return reader_.LastStatus();
  }

 private:
  void ReadLink(DocumentObject& link) {
    // An element that answers both has the area's target.
    std::u16string_view target;
    if (IHTMLAnchorElement* const anchor = link.QueryAnchor()) {
      const std::optional<std::u16string_view> href = reader_.Take(anchor->get_href());
      if (!href) return;
      target = *href;
    }
    if (IHTMLAreaElement* const area = link.QueryArea()) {
      const std::optional<std::u16string_view> href = reader_.Take(area->get_href());
      if (!href) return;
      target = *href;
    }
    if (IHTMLElement* const element = link.QueryElement()) {
      const std::optional<std::u16string_view> text = reader_.Take(element->get_innerText());
      if (reader_.Failed()) return;
      if (text && budget_.Take(text->size())) data_.linkText.append(1, u' ').append(*text);
    }
    if (!target.empty() && budget_.Take(target.size())) data_.urls.push_back(ToLower(target));
  }

  void SortTargets() {
    UrlSorter sorter(data_.validUrls, data_.urlTally, data_.hostTally, data_.invalidUrls);
    for (const std::u16string& url : data_.urls) {
      if (IsHttpUrl(url)) {
        sorter.Add(url);
      } else {
        data_.otherUrls.push_back(url);
        AddTo(data_.otherUrlTally, url);
      }
    }
  }

  LinkData& data_;
  DocumentReader reader_;
  TextBudget budget_;
};

}  // namespace

Status CollectLinkData(IHTMLDocument2* document, LinkData& data) {
  if (document == nullptr) return kStatusFail;
  return LinkReader(data).Collect(*document);
}

}  // namespace zeph
