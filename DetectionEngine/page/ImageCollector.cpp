// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/page/ImageCollector.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "DetectionEngine/page/DocumentReading.h"
#include "DetectionEngine/page/PageUrls.h"
#include "DetectionEngine/url/UrlParser.h"

namespace zeph {

namespace {

/// The longest source of an image in a saved page, unescaped; a longer one counts as empty.
constexpr std::size_t kUnescapedLimit = 4095;

/// A size that isn't given.
constexpr std::int32_t kNoSize = -1;

class ImageReader {
 public:
  ImageReader(const UrlRecord& pageUrl, ImageData& data) : pageUrl_(pageUrl), data_(data) {}

  Status Collect(IHTMLDocument2& document) {
    reader_.Walk(reader_.Take(document.get_images()), [&](DocumentObject& object) {
      IHTMLImgElement* const image = object.QueryImg();
      if (image != nullptr) ReadImage(*image);
    });
    for (const std::u16string& source : data_.sources) SortSource(source);
    CountUp();
    return reader_.LastStatus();
  }

 private:
  void ReadImage(IHTMLImgElement& image) {
    const std::optional<std::u16string_view> source = reader_.Take(image.get_src());
    if (!source || !budget_.Take(source->size())) return;
    data_.sources.push_back(IsMhtmlUrl(*source) ? Unescape(*source) : std::u16string(*source));

    const std::int32_t width = reader_.Take(image.get_width());
    data_.widths.push_back(width == 0 ? kNoSize : width);
    if (width == 0) {
      data_.heights.push_back(kNoSize);
      return;
    }
    const std::int32_t height = reader_.Take(image.get_height());
    data_.heights.push_back(height == 0 ? kNoSize : height);
    AddArea(std::int64_t{width} * height);
  }

  static std::u16string Unescape(std::u16string_view source) {
    std::u16string text = UnescapeUrl(source);
    if (text.size() > kUnescapedLimit) text.clear();
    return text;
  }

  void AddArea(std::int64_t area) {
    using Range = std::numeric_limits<std::int32_t>;
    data_.totalArea =
        static_cast<std::int32_t>(std::clamp<std::int64_t>(data_.totalArea + area, Range::min(), Range::max()));
  }

  /// What one source comes to. Pages show few images many times.
  struct Source {
    bool isLocal = false;
    std::optional<std::u16string> url;   ///< as which it is valid
    std::optional<std::u16string> host;  ///< of an absolute one that decodes
    std::optional<std::u16string> path;
  };

  void SortSource(const std::u16string& text) {
    auto at = sources_.lower_bound(text);
    if (at == sources_.end() || at->first != text) at = sources_.emplace_hint(at, text, Resolve(text));
    const Source& source = at->second;
    if (source.isLocal) {
      data_.localUrls.push_back(text);
      AddTo(data_.localTally, text);
    } else if (!source.url) {
      data_.invalidUrls.push_back(text);
    }
    if (source.url) {
      data_.validUrls.push_back(*source.url);
      AddTo(data_.urlTally, *source.url);
    }
    if (source.host) AddTo(data_.hostTally, *source.host);
    if (source.path) AddTo(data_.pathTally, *source.path);
  }

  [[nodiscard]] Source Resolve(const std::u16string& text) const {
    if (IsMhtmlUrl(text)) return {true, text, std::nullopt, text};
    UrlParser parser;
    if (IsHttpUrl(text)) {
      if (parser.DecodeUrl(text) != 0) return {};
      return {false, text, parser.Record().HostName, parser.Record().UrlPath};
    }
    std::u16string absolute;
    if (!CombineUrl(pageUrl_.RawUrl, text, absolute)) return {true, std::nullopt, std::nullopt, text};
    if (absolute.empty()) return {true, std::nullopt, std::nullopt, std::nullopt};
    const bool decodes = parser.DecodeUrl(absolute) == 0;
    return {true, std::move(absolute), std::nullopt, decodes ? parser.Record().UrlPath : text};
  }

  void CountUp() {
    for (const auto& [path, count] : data_.pathTally) data_.paths.push_back(path);
    data_.uniqueUrlCount = static_cast<std::int32_t>(data_.urlTally.size());
    const auto own = data_.hostTally.find(pageUrl_.HostName);
    data_.ownImageCount =
        (own == data_.hostTally.end() ? 0 : own->second) + static_cast<std::int32_t>(data_.localTally.size());
  }

  const UrlRecord& pageUrl_;
  ImageData& data_;
  DocumentReader reader_;
  TextBudget budget_;
  std::map<std::u16string, Source, UnitOrder> sources_;
};

}  // namespace

Status CollectImageData(IHTMLDocument2* document, const UrlRecord& pageUrl, ImageData& data) {
  if (document == nullptr) return kStatusFail;
  return ImageReader(pageUrl, data).Collect(*document);
}

}  // namespace zeph
