// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/page/AllCollectionParser.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "DetectionEngine/base/StringTable.h"
#include "DetectionEngine/page/DocumentReading.h"
#include "DetectionEngine/text/CharacterClass.h"
#include "DetectionEngine/text/Text.h"
#include "DetectionEngine/url/UrlParser.h"

namespace zeph {

namespace {

/// Texts that were searched in vain. Elements lie in one another, and a list may name one element often: what was
/// searched once isn't searched again, so that all searches together stay linear in what the document holds.
class SearchedTexts {
 public:
  [[nodiscard]] bool Contains(std::u16string_view text, std::u16string_view needle) {
    const char16_t* const begin = text.data();
    const char16_t* const end = begin + text.size();
    const auto next = ranges_.upper_bound(begin);
    if (next != ranges_.begin() && !std::less<>()(std::prev(next)->second, end)) return false;
    if (ContainsExact(needle, text)) return true;
    ranges_[begin] = end;
    return false;
  }

 private:
  std::map<const char16_t*, const char16_t*, std::less<>> ranges_;
};

/// Case ignored.
bool EqualsNoCase(std::u16string_view text, std::u16string_view other) noexcept {
  return text.size() == other.size() && StartsWithNoCase(text, other);
}

/// A tag name as one number, the same for all that have units other than ASCII or more than eight: no row's has.
std::uint64_t TagKey(std::u16string_view tagName) noexcept {
  constexpr std::size_t kLongest = 8;
  if (tagName.size() > kLongest) return ~std::uint64_t{0};
  std::uint64_t key = 0;
  for (const char16_t c : tagName) {
    if (c >= 0x80) return ~std::uint64_t{0};
    key = key << 8 | c;
  }
  return key;
}

class Pass {
 public:
  Pass(IHTMLDocument2& document, AllParser& data) : data_(data), kept_(document) {
    for (std::size_t i = 0; i < kRows.size(); ++i) tags_[i] = TagKey(StringEntry(kRows[i].tag));
  }

  Status ReadFields(IHTMLDocument2& document) {
    const std::u16string_view inputTag = StringEntry(kInputTag);
    WalkAll(document, [&](std::u16string_view tagName, DocumentObject&, IHTMLElement& element) {
      if (tagName == inputTag) ReadField(element);
    });
    return reader_.LastStatus();
  }

  Status ReadEverything(IHTMLDocument2& document) {
    ReadPageSource(document);
    WalkAll(document, [&](std::u16string_view tagName, DocumentObject& object, IHTMLElement& element) {
      const auto at = std::ranges::find(tags_, TagKey(tagName));
      if (at != tags_.end()) (this->*kRows[static_cast<std::size_t>(at - tags_.begin())].read)(object, element);
    });
    return reader_.LastStatus();
  }

 private:
  static constexpr std::size_t kTagCount = 17;
  // Entries of the string table.
  static constexpr std::uint32_t kInputTag = 0x91;
  static constexpr std::uint32_t kTypeAttribute = 0x9F;
  static constexpr std::uint32_t kValueAttribute = 0xA3;
  static constexpr std::uint32_t kTextType = 0x9E;
  static constexpr std::uint32_t kPasswordType = 0xA0;
  static constexpr std::array<std::uint32_t, 2> kCaptionTypes = {0xA1, 0xA2};
  static constexpr std::array<std::uint32_t, 6> kOtherTypes = {0xA4, 0xA6, 0xA5, 0xA9, 0xA8, 0xA7};
  static constexpr std::uint32_t kRefresh = 0xAA;
  static constexpr std::uint32_t kMarkerText = 0xAB;

  using ReadElement = void (Pass::*)(DocumentObject&, IHTMLElement&);
  struct Row {
    std::uint32_t tag;  ///< entry of the string table
    ReadElement read;
  };
  /// The first row whose tag an element has decides.
  static const std::array<Row, kTagCount> kRows;

  template <class Visit>
  void WalkAll(IHTMLDocument2& document, Visit&& visit) {
    IHTMLElementCollection* const all = reader_.Take(document.get_all());
    if (all == nullptr) return;
    const std::int32_t length = reader_.Length(all);
    if (reader_.Failed()) return;
    data_.elementCount = length;
    reader_.Walk(all, length, [&](DocumentObject& object) {
      IHTMLElement* const element = object.QueryElement();
      if (element == nullptr) return;
      const std::optional<std::u16string_view> tagName = reader_.Take(element->get_tagName());
      if (tagName) visit(*tagName, object, *element);
    });
  }

  void ReadPageSource(IHTMLDocument2& document) {
    IHTMLElementCollection* const all = reader_.Take(document.get_all());
    if (all == nullptr) return;
    reader_.Walk(reader_.Take(all->tags(u"HTML")), [&](DocumentObject& object) {
      IHTMLElement* const element = object.QueryElement();
      if (element == nullptr) return true;
      const std::optional<std::u16string_view> source = reader_.Take(element->get_outerHTML());
      if (source) data_.pageSource = *source;
      return !source.has_value();
    });
  }

  /// The attribute's text; empty when there is none.
  std::u16string_view ReadAttribute(IHTMLElement& element, std::u16string_view name) {
    return reader_.Take(element.getAttribute(name)).value_or(std::u16string_view());
  }

  void Keep(std::u16string_view text, Texts& list) {
    if (text.empty()) return;
    kept_.TakeView(text);
    list.push_back(text);
  }

  void ReadField(IHTMLElement& element) {
    const std::u16string_view type = ReadAttribute(element, StringEntry(kTypeAttribute));
    if (type.empty()) return;
    const auto isType = [&](std::uint32_t entry) { return type == StringEntry(entry); };
    if (isType(kTextType)) return ReadTextField(element);
    if (isType(kPasswordType)) {
      ++data_.passwordInputCount;
    } else if (std::ranges::any_of(kCaptionTypes, isType)) {
      Keep(ReadAttribute(element, StringEntry(kValueAttribute)), data_.captions);
    } else if (type == u"file") {
      ++data_.fileInputCount;
    } else if (std::ranges::none_of(kOtherTypes, isType)) {
      ReadTextField(element);
    }
  }

  void ReadTextField(IHTMLElement& element) {
    ++data_.textInputCount;
    const std::u16string_view value = ReadAttribute(element, StringEntry(kValueAttribute));
    if (value.empty()) return;
    kept_.TakeText(value.size() + 1);
    data_.inputValues.append(1, u' ').append(value);
  }

  void ReadMarkerElement(DocumentObject&, IHTMLElement& element) {
    const std::optional<std::u16string_view> html = reader_.Take(element.get_innerHTML());
    if (html && !data_.hasMarkerText) data_.hasMarkerText = searched_.Contains(*html, StringEntry(kMarkerText));
  }
  void ReadBlockA(DocumentObject&, IHTMLElement& element) {
    const std::optional<std::u16string_view> html = reader_.Take(element.get_innerHTML());
    if (reader_.Failed()) return;
    if (html && !html->empty()) ++data_.nonEmptyBlockCount;
    ++data_.blockCountA;
  }
  void ReadBlockB(DocumentObject&, IHTMLElement&) { ++data_.blockCountB; }
  void ReadBlockC(DocumentObject&, IHTMLElement&) { ++data_.blockCountC; }
  void ReadBackground(DocumentObject&, IHTMLElement& element) {
    Keep(ReadAttribute(element, u"background"), data_.backgrounds);
  }
  void ReadInput(DocumentObject&, IHTMLElement& element) { ReadField(element); }
  void ReadTagD(DocumentObject&, IHTMLElement&) { ++data_.tagCountD; }
  void ReadTagE(DocumentObject&, IHTMLElement&) { ++data_.tagCountE; }
  void ReadTagG(DocumentObject&, IHTMLElement& element) { Keep(ReadAttribute(element, u"SRC"), data_.sourcesOfTagG); }
  void ReadTagH(DocumentObject&, IHTMLElement& element) { Keep(ReadAttribute(element, u"SRC"), data_.sourcesOfTagH); }
  void ReadCaption(DocumentObject&, IHTMLElement& element) {
    Keep(reader_.Take(element.get_innerText()).value_or(u""), data_.captions);
  }
  void ReadTagF(DocumentObject&, IHTMLElement& element) {
    Keep(reader_.Take(element.get_innerText()).value_or(u""), data_.textsOfTagF);
  }

  void ReadComment(DocumentObject& object, IHTMLElement&) {
    IHTMLCommentElement* const comment = object.QueryComment();
    if (comment == nullptr) return;
    const std::optional<std::u16string_view> text = reader_.Take(comment->get_text());
    if (!text) return;
    kept_.TakeView(*text);
    data_.comments.push_back(*text);
  }

  void ReadBody(DocumentObject& object, IHTMLElement&) {
    IHTMLBodyElement* const body = object.QueryBody();
    if (body == nullptr) return;
    const std::optional<std::u16string_view> background = reader_.Take(body->get_background());
    if (!background) return;
    kept_.TakeView(*background);
    data_.bodyBackground = *background;
    data_.backgrounds.push_back(*background);
    const std::size_t dot = background->rfind(u'.');
    if (dot != std::u16string_view::npos) data_.bodyBackgroundExtension = ToLower(background->substr(dot + 1));
  }

  void ReadLink(DocumentObject& object, IHTMLElement&) {
    IHTMLLinkElement* const link = object.QueryLink();
    if (link == nullptr) return;
    const std::optional<std::u16string_view> rel = reader_.Take(link->get_rel());
    if (!rel || !EqualsNoCase(*rel, u"shortcut icon")) return;
    const std::optional<std::u16string_view> href = reader_.Take(link->get_href());
    if (!href) return;
    kept_.TakeView(*href);
    UrlParser parser;
    if (parser.DecodeUrl(*href) == 0) data_.shortcutIconHost = parser.Record().HostName;
  }

  void ReadMeta(DocumentObject& object, IHTMLElement&) {
    IHTMLMetaElement* const meta = object.QueryMeta();
    if (meta == nullptr) return;
    const std::optional<std::u16string_view> httpEquiv = reader_.Take(meta->get_httpEquiv());
    if (!httpEquiv || !EqualsNoCase(*httpEquiv, StringEntry(kRefresh))) return;
    const std::optional<std::u16string_view> content = reader_.Take(meta->get_content());
    if (!content) return;
    kept_.TakeView(*content);
    ReadRefresh(*content);
  }

  /// The delay is the digits in front of the semicolon, whatever blanks, signs and quotes stand among them.
  void ReadRefresh(std::u16string_view content) {
    if (content.find(u';') == std::u16string_view::npos) return;
    std::u16string digits;
    for (const char16_t c : content) {
      if (IsDigit(c)) {
        digits.push_back(c);
      } else if (c != u' ' && c != u'-' && c != u'"') {
        break;
      }
    }
    if (!digits.empty()) data_.refreshSeconds = ReadNumber(digits);
  }

  AllParser& data_;
  std::array<std::uint64_t, kTagCount> tags_;  ///< keys of the rows' tags
  KeptTexts kept_;
  DocumentReader reader_;
  SearchedTexts searched_;
};

constexpr std::array<Pass::Row, Pass::kTagCount> Pass::kRows = {{{0x9C, &Pass::ReadMarkerElement},
                                                                 {0x8C, &Pass::ReadBlockA},
                                                                 {0x8D, &Pass::ReadBlockB},
                                                                 {0x8E, &Pass::ReadBlockC},
                                                                 {0x8F, &Pass::ReadBackground},
                                                                 {0x90, &Pass::ReadBackground},
                                                                 {kInputTag, &Pass::ReadInput},
                                                                 {0x93, &Pass::ReadTagD},
                                                                 {0x92, &Pass::ReadTagE},
                                                                 {0x95, &Pass::ReadTagG},
                                                                 {0x96, &Pass::ReadTagH},
                                                                 {0x97, &Pass::ReadCaption},
                                                                 {0x9D, &Pass::ReadTagF},
                                                                 {0x99, &Pass::ReadComment},
                                                                 {0x98, &Pass::ReadBody},
                                                                 {0x9A, &Pass::ReadLink},
                                                                 {0x9B, &Pass::ReadMeta}}};

}  // namespace

Status AllCollectionParser::GetAllCollectionData(IHTMLDocument2* document) {
  if (document == nullptr) return kStatusFail;
  return Pass(*document, data_).ReadFields(*document);
}

Status AllCollectionParser::ParseAllCollection(IHTMLDocument2* document) {
  if (document == nullptr) return kStatusFail;
  data_.textInputCount = 0;
  data_.passwordInputCount = 0;
  data_.fileInputCount = 0;
  data_.inputValues.clear();
  data_.captions.clear();
  return Pass(*document, data_).ReadEverything(*document);
}

}  // namespace zeph
