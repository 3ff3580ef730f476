// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/page/ImageCollector.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

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
  ImageReader(IHTMLDocument2& document, const UrlRecord& pageUrl, ImageData& data)
      : document_(document), pageUrl_(pageUrl), data_(data), kept_(document) {}

  Status Collect() {
    reader_.Walk(reader_.Take(document_.get_images()), [&](DocumentObject& object) {
      IHTMLImgElement* const image = object.QueryImg();
      if (image != nullptr) ReadImage(*image);
    });
    SortSources();
    CountUp();
    return reader_.LastStatus();
  }

 private:
  void ReadImage(IHTMLImgElement& image) {
    const std::optional<std::u16string_view> source = reader_.Take(image.get_src());
    if (!source) return;
    kept_.Take(kBytesOfSizes);
    sources_.Add(*source);

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

  void AddArea(std::int64_t area) {
    using Range = std::numeric_limits<std::int32_t>;
    data_.totalArea =
        static_cast<std::int32_t>(std::clamp<std::int64_t>(data_.totalArea + area, Range::min(), Range::max()));
  }

  /// What one source comes to. Pages show few images many times.
  struct Source {
    std::u16string_view text;
    bool isLocal = false;
    std::optional<std::u16string_view> url;  ///< as which it is valid
    std::optional<std::u16string_view> path;
  };

  void SortSources() {
    const DistinctTexts& distinct = sources_.Distinct();
    std::vector<Source> sources;
    sources.reserve(distinct.Size());
    std::vector<Tally::Entry> urls;
    std::vector<Tally::Entry> paths;
    std::vector<Tally::Entry> locals;
    for (std::uint32_t i = 0; i < distinct.Size(); ++i) {
      const std::int32_t count = distinct[i].count;
      const Source& source = sources.emplace_back(Resolve(distinct[i].text, count));
      if (source.url) urls.emplace_back(*source.url, count);
      if (source.path) paths.emplace_back(*source.path, count);
      if (source.isLocal) locals.emplace_back(source.text, count);
    }
    data_.urlTally = Tally(std::move(urls));
    data_.pathTally = Tally(std::move(paths));
    data_.localTally = Tally(std::move(locals));
    data_.hostTally = sources_.HostCounts();

    data_.sources.reserve(sources_.Order().size());
    for (const std::uint32_t number : sources_.Order()) {
      const Source& source = sources[number];
      data_.sources.push_back(source.text);
      if (source.isLocal) data_.localUrls.push_back(source.text);
      if (!source.isLocal && !source.url) data_.invalidUrls.push_back(source.text);
      if (source.url) data_.validUrls.push_back(*source.url);
    }
  }

  Source Resolve(std::u16string_view text, std::int32_t count) {
    if (IsMhtmlUrl(text)) {
      std::u16string unescaped = UnescapeUrl(text);
      if (unescaped.size() > kUnescapedLimit) unescaped.clear();
      text = sources_.Keep(unescaped, text);
    }
    if (IsMhtmlUrl(text)) return {text, true, text, text};
    UrlParser parser;
    if (IsHttpUrl(text)) {
      if (sources_.CountHost(text, count) == nullptr || parser.DecodeUrl(text) != 0) return {text, false, {}, {}};
      return {text, false, text, Path(parser, text)};
    }
    std::u16string absolute;
    if (!CombineUrl(pageUrl_.RawUrl, text, absolute)) return {text, true, {}, text};
    if (absolute.empty()) return {text, true, {}, {}};
    const bool decodes = parser.DecodeUrl(absolute) == 0;
    const std::u16string_view url = sources_.Keep(absolute, text);
    return {text, true, url, decodes ? Path(parser, url) : text};
  }

  /// The path of a URL that the parser decoded.
  std::u16string_view Path(UrlParser& parser, std::u16string_view url) {
    std::u16string path = parser.TakeRecord().UrlPath;
    return sources_.Keep(path, url);
  }

  void CountUp() {
    data_.paths.reserve(data_.pathTally.size());
    for (const auto& [path, count] : data_.pathTally) data_.paths.push_back(path);
    data_.uniqueUrlCount = static_cast<std::int32_t>(data_.urlTally.size());
    const auto own = data_.hostTally.find(pageUrl_.HostName);
    data_.ownImageCount =
        (own == data_.hostTally.end() ? 0 : own->second) + static_cast<std::int32_t>(data_.localTally.size());
  }

  /// An image's sizes, and its place among local or valid sources.
  static constexpr std::size_t kBytesOfSizes = 48;

  IHTMLDocument2& document_;
  const UrlRecord& pageUrl_;
  ImageData& data_;
  KeptTexts kept_;
  DocumentReader reader_;
  UrlList sources_{kept_, data_.kept};
};

}  // namespace

Status CollectImageData(IHTMLDocument2* document, const UrlRecord& pageUrl, ImageData& data) {
  if (document == nullptr) return kStatusFail;
  return ImageReader(*document, pageUrl, data).Collect();
}

}  // namespace zeph
