// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/page/ScriptCollector.h"

#include <utility>

#include "DetectionEngine/page/DocumentReading.h"
#include "DetectionEngine/page/PageUrls.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/url/UrlParser.h"

namespace zeph {

namespace {

class ScriptReader {
 public:
  ScriptReader(IHTMLDocument2& document, ScriptData& data)
      : document_(document), cache_(document.UrlCache()), data_(data), kept_(document) {}

  Status Collect() {
    IHTMLElementCollection* const scripts = reader_.Take(document_.get_scripts());
    data_.scriptCount = reader_.Length(scripts);
    reader_.Walk(scripts, data_.scriptCount, [&](DocumentObject& object) {
      IHTMLScriptElement* const script = object.QueryScript();
      return script == nullptr || ReadScript(object, *script);
    });
    SortUrls(absolute_, false,
             {data_.absoluteSources, data_.validUrls, data_.urlTally, data_.hostTally, data_.invalidUrls, unused_,
              unusedTally_});
    data_.relativeTally = Tally(std::move(relative_));
    return reader_.LastStatus();
  }

 private:
  /// False when the walk ends here.
  bool ReadScript(DocumentObject& object, IHTMLScriptElement& script) {
    const std::optional<std::u16string_view> text = reader_.Take(script.get_text());
    if (reader_.Failed()) return true;
    if (text && !text->empty()) Keep(*text, data_.texts);

    IHTMLElement* const element = object.QueryElement();
    if (element == nullptr) return false;
    const std::optional<std::u16string_view> language = reader_.Take(element->getAttribute(u"language"));
    if (reader_.Failed()) return true;
    if (language) Keep(*language, data_.languages);

    const std::optional<std::u16string_view> source = reader_.Take(script.get_src());
    if (source && !source->empty()) ReadSource(*source);
    return true;
  }

  void Keep(std::u16string_view text, Texts& list) {
    kept_.TakeView(text);
    list.push_back(text);
  }

  void ReadSource(std::u16string_view source) {
    Keep(source, data_.sources);
    ++data_.sourceCount;
    if (IsHttpUrl(source)) {
      absolute_.Add(source);
      ReadCached(std::u16string(source));
    } else {
      Keep(source, data_.relativeSources);
      kept_.TakeView({});
      relative_.emplace_back(source, 1);
      ReadCachedRelative(source);
    }
  }

  void ReadCachedRelative(std::u16string_view source) {
    const std::u16string_view base = reader_.Take(document_.get_URL()).value_or(std::u16string_view());
    std::u16string absolute;
    if (cache_ != nullptr && CombineUrl(base, source, absolute)) ReadCached(std::move(absolute));
  }

  /// The text that the browser has of an external script. Without a cache there is no need to work out its URL.
  void ReadCached(std::u16string url) {
    if (cache_ == nullptr) return;
    std::u16string canonical;
    if (CanonicalizeUrl(url, canonical)) url = std::move(canonical);
    if (url.empty()) return;
    UrlCacheReader cached(cache_);
    if (cached.Open(StripFragment(url)) != 0) return;
    kept_.Take(2 * cached.Length());
    std::u16string text;
    if (cached.ReadText(text) == 0 && !text.empty()) Keep(data_.kept.Keep(text), data_.texts);
  }

  IHTMLDocument2& document_;
  IUrlCache* cache_;
  ScriptData& data_;
  KeptTexts kept_;
  DocumentReader reader_;
  UrlList absolute_{kept_, data_.kept};
  std::vector<Tally::Entry> relative_;
  Texts unused_;  ///< no absolute source has another beginning
  Tally unusedTally_;
};

}  // namespace

Status CollectScriptData(IHTMLDocument2* document, ScriptData& data) {
  if (document == nullptr) return kStatusFail;
  return ScriptReader(*document, data).Collect();
}

int UrlCacheReader::Open(std::u16string_view url) {
  bytes_ = cache_ == nullptr ? std::nullopt : cache_->Retrieve(Narrow(url));
  return bytes_ ? 0 : -1;
}

int UrlCacheReader::ReadText(std::u16string& out) const {
  if (!bytes_) return -1;
  out = Widen(bytes_->substr(0, bytes_->find('\0')));
  return 0;
}

}  // namespace zeph
