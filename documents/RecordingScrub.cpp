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

bool EndsAddress(char16_t c) noexcept {
  return IsSpace(c) || std::u16string_view(u"\"'`<>()[]{},;\\").find(c) != std::u16string_view::npos;
}

/// A run without blanks and quotes is an address: it has a scheme, or is a path from the root.
bool LooksLikeAddress(std::u16string_view run) noexcept {
  return run.starts_with(u'/') || run.find(u"://") != std::u16string_view::npos;
}

/// The text without the queries of the addresses in it; the rest of it stays, a question mark in prose among that.
std::u16string WithoutQueries(std::u16string_view text) {
  std::u16string scrubbed;
  scrubbed.reserve(text.size());
  while (!text.empty()) {
    const auto end = std::ranges::find_if(text, EndsAddress);
    const std::u16string_view run = text.substr(0, static_cast<std::size_t>(end - text.begin()));
    const std::u16string_view address = WithoutQuery(run);
    scrubbed.append(address.size() < run.size() && LooksLikeAddress(address) ? address : run);
    text.remove_prefix(run.size());
    if (text.empty()) break;
    scrubbed += text.front();
    text.remove_prefix(1);
  }
  return scrubbed;
}

/// Attributes whose text is for a reader, or a name; whatever else an attribute is, it may be an address.
constexpr std::array<std::u16string_view, 22> kTextAttributes = {
    u"alt",      u"title", u"placeholder", u"label", u"summary", u"abbr",   u"aria-label", u"name",
    u"id",       u"class", u"type",        u"rel",   u"lang",    u"value",  u"style",      u"onclick",
    u"onsubmit", u"onload", u"onchange",   u"width", u"height",  u"http-equiv"};

/// An attribute's value without what may be a query.
std::u16string ScrubValue(std::u16string_view name, std::u16string_view value) {
  if (IsOneOf(name, kTextAttributes)) return WithoutQueries(value);
  // A list of addresses, or one with a number in front ("5; url=a?b"), has blanks between them.
  std::u16string scrubbed;
  while (!value.empty()) {
    const auto end = std::ranges::find_if(value, IsSpace);
    const std::u16string_view run = value.substr(0, static_cast<std::size_t>(end - value.begin()));
    scrubbed.append(WithoutQuery(run));
    value.remove_prefix(run.size());
    if (value.empty()) break;
    scrubbed += value.front();
    value.remove_prefix(1);
  }
  return scrubbed;
}

/// Copies markup without the values of fields and the queries of URLs. Linear; knows tags, attributes, comments and the
/// elements whose content is no markup.
class MarkupScrubber {
 public:
  explicit MarkupScrubber(std::u16string_view markup) : markup_(markup) {}

  std::u16string Scrub() {
    scrubbed_.reserve(markup_.size());
    while (at_ < markup_.size()) {
      ScrubUpTo(std::min(markup_.find(u'<', at_), markup_.size()));
      if (markup_.substr(at_, 4) == u"<!--") {
        const std::size_t end = FindExact(markup_, u"-->", at_);
        CopyUpTo(std::min(at_ + 4, markup_.size()));
        ScrubUpTo(end == std::u16string_view::npos ? markup_.size() : std::max(end, at_));
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

  void ScrubUpTo(std::size_t end) {
    scrubbed_ += WithoutQueries(markup_.substr(at_, end - at_));
    at_ = end;
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
      CopyUpTo(attribute.valueBegin);
      if (!isField || !EqualsNoCase(attribute.name, u"value")) scrubbed_ += ScrubValue(attribute.name, attribute.value);
      at_ = attribute.valueBegin + attribute.value.size();
    }
    CopyUpTo(behind);
    if (EqualsNoCase(name, u"textarea")) at_ = FindEndOf(u"</textarea");
    if (EqualsNoCase(name, u"script")) ScrubUpTo(FindEndOf(u"</script"));
    if (EqualsNoCase(name, u"style")) ScrubUpTo(FindEndOf(u"</style"));
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
  const auto keep = [&texts](std::u16string scrubbed) { return texts.Keep(scrubbed); };
  for (RecordedAnswer& answer : answers) {
    if (!answer.text) continue;
    switch (answer.operation) {
      case Operation::kGetAttribute:
      case Operation::kAttributes:
        if (answer.name == u"value" && !isButton) {
          answer.text = u"";
        } else {
          answer.text = keep(ScrubValue(answer.name, *answer.text));
        }
        break;
      case Operation::kInnerHtml:
      case Operation::kOuterHtml:
        answer.text = keep(MarkupScrubber(*answer.text).Scrub());
        break;
      case Operation::kTitle:
      case Operation::kInnerText:
      case Operation::kTagName:
      case Operation::kScriptText:
      case Operation::kCommentText:
      case Operation::kRel:
      case Operation::kHttpEquiv:
      case Operation::kNodeName:
        answer.text = keep(WithoutQueries(*answer.text));
        break;
      default:
        // An address, as whatever comes later may be.
        answer.text = WithoutQuery(*answer.text);
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
  recording.cache.clear();
}

}  // namespace zeph
