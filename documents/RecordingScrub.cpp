// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "DetectionEngine/text/CharacterClass.h"
#include "DetectionEngine/text/Text.h"
#include "documents/RecordingWriter.h"

namespace zeph {

namespace {

/// Attributes that hold a URL.
constexpr std::array<std::u16string_view, 5> kUrlAttributes = {u"href", u"src", u"action", u"background", u"content"};

/// Fields whose value is what stands on a button.
constexpr std::array<std::u16string_view, 3> kButtonTypes = {u"submit", u"button", u"reset"};

bool EqualsNoCase(std::u16string_view text, std::u16string_view lower) noexcept {
  return text.size() == lower.size() && StartsWithNoCase(text, lower);
}

template <std::size_t kCount>
bool IsOneOf(std::u16string_view text, const std::array<std::u16string_view, kCount>& list) noexcept {
  return std::ranges::any_of(list, [&](std::u16string_view item) { return EqualsNoCase(text, item); });
}

std::u16string_view WithoutQuery(std::u16string_view url) noexcept { return url.substr(0, url.find(u'?')); }

/// Copies markup without the values of fields and the queries of URLs. Linear; knows tags, attributes, comments and the
/// elements whose content is no markup.
class MarkupScrubber {
 public:
  explicit MarkupScrubber(std::u16string_view markup) : markup_(markup) {}

  std::u16string Scrub() {
    scrubbed_.reserve(markup_.size());
    while (at_ < markup_.size()) {
      CopyUpTo(std::min(markup_.find(u'<', at_), markup_.size()));
      if (markup_.substr(at_, 4) == u"<!--") {
        CopyThrough(u"-->");
      } else if (at_ < markup_.size()) {
        ScrubTag();
      }
    }
    return std::move(scrubbed_);
  }

 private:
  struct Attribute {
    std::u16string_view name;
    std::u16string_view value;
    std::size_t valueBegin = 0;  ///< of the value itself, behind a quote
  };

  void CopyUpTo(std::size_t end) {
    scrubbed_.append(markup_.substr(at_, end - at_));
    at_ = end;
  }

  void CopyThrough(std::u16string_view text) {
    const std::size_t found = FindExact(markup_, text, at_);
    CopyUpTo(found == std::u16string_view::npos ? markup_.size() : found + text.size());
  }

  void ScrubTag() {
    const std::size_t begin = at_ + 1;
    std::size_t end = begin;
    while (end < markup_.size() && IsAlnum(markup_[end])) ++end;
    const std::u16string_view name = markup_.substr(begin, end - begin);
    std::vector<Attribute> attributes;
    const std::size_t behind = ReadAttributes(end, attributes);
    const bool isField =
        EqualsNoCase(name, u"input") && std::ranges::none_of(attributes, [](const Attribute& attribute) {
          return EqualsNoCase(attribute.name, u"type") && IsOneOf(attribute.value, kButtonTypes);
        });
    for (const Attribute& attribute : attributes) {
      std::size_t kept = attribute.value.size();
      if (isField && EqualsNoCase(attribute.name, u"value")) kept = 0;
      if (IsOneOf(attribute.name, kUrlAttributes)) kept = WithoutQuery(attribute.value).size();
      CopyUpTo(attribute.valueBegin + kept);
      at_ = attribute.valueBegin + attribute.value.size();
    }
    CopyUpTo(behind);
    if (EqualsNoCase(name, u"textarea")) at_ = FindEndOf(u"</textarea");
    if (EqualsNoCase(name, u"script")) CopyUpTo(FindEndOf(u"</script"));
    if (EqualsNoCase(name, u"style")) CopyUpTo(FindEndOf(u"</style"));
  }

  /// Where this end tag begins; the end of all when there is none.
  [[nodiscard]] std::size_t FindEndOf(std::u16string_view endTag) const {
    return at_ + FindNoCase(markup_.substr(at_), endTag).value_or(markup_.size() - at_);
  }

  /// Reads the attributes of a tag from behind its name, and gives the position behind the tag.
  std::size_t ReadAttributes(std::size_t at, std::vector<Attribute>& attributes) const {
    const auto ends = [&](std::size_t i) { return i == markup_.size() || markup_[i] == u'>'; };
    while (!ends(at)) {
      const std::size_t begin = at;
      while (!ends(at) && !IsSpace(markup_[at]) && markup_[at] != u'=') ++at;
      Attribute attribute{markup_.substr(begin, at - begin), {}, at};
      if (!ends(at) && markup_[at] == u'=') {
        ++at;
        const char16_t quote = ends(at) ? u'\0' : markup_[at];
        if (quote == u'"' || quote == u'\'') {
          attribute.valueBegin = at + 1;
          const std::size_t close = std::min(markup_.find(quote, at + 1), markup_.size());
          at = std::min(close + 1, markup_.size());
          attribute.value = markup_.substr(attribute.valueBegin, close - attribute.valueBegin);
        } else {
          attribute.valueBegin = at;
          while (!ends(at) && !IsSpace(markup_[at])) ++at;
          attribute.value = markup_.substr(attribute.valueBegin, at - attribute.valueBegin);
        }
        attributes.push_back(attribute);
      } else if (!ends(at)) {
        ++at;
      }
    }
    return std::min(at + 1, markup_.size());
  }

  std::u16string_view markup_;
  std::size_t at_ = 0;
  std::u16string scrubbed_;
};

void ScrubAnswers(std::span<RecordedAnswer> answers, TextArena& texts) {
  const RecordedAnswer* const type = FindAnswer(answers, Operation::kGetAttribute, u"type");
  const bool isButton = type != nullptr && type->text && IsOneOf(*type->text, kButtonTypes);
  for (RecordedAnswer& answer : answers) {
    if (!answer.text) continue;
    switch (answer.operation) {
      case Operation::kGetAttribute:
      case Operation::kAttributes:
        if (answer.name == u"value" && !isButton) answer.text = u"";
        if (IsOneOf(answer.name, kUrlAttributes)) answer.text = WithoutQuery(*answer.text);
        break;
      case Operation::kInnerHtml:
      case Operation::kOuterHtml: {
        std::u16string scrubbed = MarkupScrubber(*answer.text).Scrub();
        answer.text = texts.Keep(scrubbed);
        break;
      }
      case Operation::kUrl:
      case Operation::kReferrer:
      case Operation::kAction:
      case Operation::kAnchorHref:
      case Operation::kAreaHref:
      case Operation::kImgSrc:
      case Operation::kScriptSrc:
      case Operation::kBackground:
      case Operation::kLinkHref:
      case Operation::kContent:
        answer.text = WithoutQuery(*answer.text);
        break;
      default:
        break;
    }
  }
}

}  // namespace

void ScrubRecording(Recording& recording) {
  ScrubAnswers(recording.document, recording.texts);
  for (const RecordedElement& element : recording.elements) {
    ScrubAnswers(std::span(recording.answers).subspan(element.firstAnswer, element.answerCount), recording.texts);
  }
  std::map<std::string, std::string, std::less<>> cache;
  for (auto& [url, bytes] : recording.cache) cache.emplace(url.substr(0, url.find('?')), std::move(bytes));
  recording.cache = std::move(cache);
}

}  // namespace zeph
