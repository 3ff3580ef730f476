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
      : document_(document), cache_(document.UrlCache()), data_(data) {}

  Status Collect() {
    IHTMLElementCollection* const scripts = reader_.Take(document_.get_scripts());
    data_.scriptCount = reader_.Length(scripts);
    reader_.Walk(scripts, data_.scriptCount, [&](DocumentObject& object) {
      IHTMLScriptElement* const script = object.QueryScript();
      return script == nullptr || ReadScript(object, *script);
    });
    SortSources();
    return reader_.LastStatus();
  }

 private:
  /// False when the walk ends here.
  bool ReadScript(DocumentObject& object, IHTMLScriptElement& script) {
    const std::optional<std::u16string_view> text = reader_.Take(script.get_text());
    if (reader_.Failed()) return true;
    if (text && !text->empty() && budget_.Take(text->size())) data_.texts.emplace_back(*text);

    IHTMLElement* const element = object.QueryElement();
    if (element == nullptr) return false;
    const std::optional<std::u16string_view> language = reader_.Take(element->getAttribute(u"language"));
    if (reader_.Failed()) return true;
    if (language && budget_.Take(language->size())) data_.languages.emplace_back(*language);

    const std::optional<std::u16string_view> source = reader_.Take(script.get_src());
    if (source && !source->empty() && budget_.Take(source->size())) ReadSource(*source);
    return true;
  }

  void ReadSource(std::u16string_view source) {
    data_.sources.emplace_back(source);
    ++data_.sourceCount;
    if (IsHttpUrl(source)) {
      data_.absoluteSources.emplace_back(source);
      ReadCached(std::u16string(source));
    } else {
      data_.relativeSources.emplace_back(source);
      AddTo(data_.relativeTally, source);
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
    if (cached.Open(StripFragment(url)) != 0 || !budget_.Take(cached.Length())) return;
    std::u16string text;
    if (cached.ReadText(text) == 0 && !text.empty()) data_.texts.push_back(std::move(text));
  }

  void SortSources() {
    UrlSorter sorter(data_.validUrls, data_.urlTally, data_.hostTally, data_.invalidUrls);
    for (const std::u16string& url : data_.absoluteSources) sorter.Add(url);
  }

  IHTMLDocument2& document_;
  IUrlCache* cache_;
  ScriptData& data_;
  DocumentReader reader_;
  TextBudget budget_;
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
