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
  LinkReader(IHTMLDocument2& document, LinkData& data) : document_(document), data_(data), kept_(document) {}

  Status Collect() {
    reader_.Walk(reader_.Take(document_.get_links()), [&](DocumentObject& link) { ReadLink(link); });
    MakeLower(data_.linkText);
    SortUrls(targets_, true,
             {data_.urls, data_.validUrls, data_.urlTally, data_.hostTally, data_.invalidUrls, data_.otherUrls,
              data_.otherUrlTally});
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
      if (text) {
        kept_.TakeText(text->size() + 1);
        data_.linkText.append(1, u' ').append(*text);
      }
    }
    if (!target.empty()) targets_.Add(target);
  }

  IHTMLDocument2& document_;
  LinkData& data_;
  KeptTexts kept_;
  DocumentReader reader_;
  UrlList targets_{kept_, data_.kept};
};

}  // namespace

Status CollectLinkData(IHTMLDocument2* document, LinkData& data) {
  if (document == nullptr) return kStatusFail;
  return LinkReader(*document, data).Collect();
}

}  // namespace zeph
