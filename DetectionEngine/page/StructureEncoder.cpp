// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/page/StructureEncoder.h"

#include <cstddef>
#include <utility>

#include "DetectionEngine/page/MarkupTags.h"
#include "DetectionEngine/text/CharacterClass.h"
#include "DetectionEngine/text/FindAnyOf.h"

namespace zeph {

namespace {

using enum MarkupTag;

constexpr TagMarks kEndsUnread = ClosingTag(kSelect) | ClosingTag(kTextarea) | ClosingTag(kScript) | ClosingTag(kStyle);
constexpr TagMarks kParagraphTags = AnyTag(kUl) | AnyTag(kOl) | AnyTag(kP);
constexpr TagMarks kLineTags = AnyTag(kTr) | OpeningTag(kLi) | AnyTag(kDiv);
constexpr TagMarks kBeginsUnread = OpeningTag(kScript) | OpeningTag(kStyle);

/// The letters of an INPUT tag by its type; the first row that applies counts.
std::u16string_view LettersOfInput(std::uint32_t attributes) noexcept {
  if ((attributes & (kTypeText | kTypePassword)) != 0) return u"I";
  if ((attributes & (kTypeButton | kTypeSubmit | kTypeReset)) != 0) return u"B";
  if ((attributes & kTypeCheckbox) != 0) return u"C";
  if ((attributes & kTypeRadio) != 0) return u"R";
  if ((attributes & kTypeImage) != 0) return u"G";
  if ((attributes & kTypeFile) != 0) return u"IB";
  if ((attributes & kTypeHidden) != 0) return u"";
  return u"I";
}

class Encoder {
 public:
  explicit Encoder(std::u16string_view html) : html_(html) {}

  std::u16string Encode() {
    for (std::size_t at = 0; at < html_.size();) {
      at = ReadText(at);
      if (at < html_.size()) at = ReadTag(at);
    }
    return std::move(structure_);
  }

 private:
  /// Reads on to the next tag and gives the position of its "<", or the end.
  std::size_t ReadText(std::size_t at) {
    while (!skipping_ && !textPending_) {
      while (at < html_.size() && IsSpace(html_[at])) ++at;
      if (at == html_.size() || html_[at] == u'<') return at;
      const std::size_t begin = at++;
      if (html_[begin] == u'&') {
        // A "<" ends a character reference and starts no tag.
        at = FindAnyOf<u';', u'<'>(html_, at);
        if (at == html_.size()) return at;
        ++at;
        if (html_.substr(begin, at - begin) == u"&nbsp;") continue;
      }
      Write(u"T");
      textPending_ = true;
    }
    return FindAnyOf<u'<'>(html_, at);
  }

  /// Reads the tag that begins here and gives the position behind it.
  std::size_t ReadTag(std::size_t begin) {
    std::size_t at = begin + 1;
    for (;;) {
      at = skipping_ ? FindAnyOf<u'>'>(html_, at) : FindAnyOf<u'>', u'\'', u'"'>(html_, at);
      if (at == html_.size()) return at;
      if (html_[at] == u'>') break;
      at = html_[at] == u'"' ? FindAnyOf<u'"'>(html_, at + 1) : FindAnyOf<u'\''>(html_, at + 1);
      if (at == html_.size()) return at;
      ++at;
    }
    OnTag(html_.substr(begin, at + 1 - begin));
    return at + 1;
  }

  /// The first row that applies decides.
  void OnTag(std::u16string_view tag) {
    const TagMarks marks = FindTagMarks(tag);
    if (skipping_) {
      if ((marks & kEndsUnread) == 0) return;
      skipping_ = false;
    }
    const bool begun = structure_.size() >= 2;  // breaks at the page's top say nothing
    if ((marks & AnyTag(kBr)) != 0) {
      Write(u"n");
    } else if ((marks & kParagraphTags) != 0) {
      if (begun) Write(u"nn");
    } else if ((marks & kLineTags) != 0) {
      if (begun) Write(u"n");
    } else if ((marks & BareTag(kInput)) != 0) {
      Write(u"I");
    } else if ((marks & TagWithMore(kInput)) != 0) {
      Write(LettersOfInput(FindAttributeMarks(tag)));
    } else if ((marks & OpeningTag(kSelect)) != 0) {
      Write(u"S");
      skipping_ = true;
    } else if ((marks & OpeningTag(kTextarea)) != 0) {
      Write(u"I");
      skipping_ = true;
    } else if (!OnImage(tag, marks)) {
      if ((marks & OpeningTag(kHr)) != 0) {
        Write(u"L");
      } else if ((marks & kBeginsUnread) != 0) {
        skipping_ = true;
      }
    }
  }

  /// An image of one pixel counts as none.
  bool OnImage(std::u16string_view tag, TagMarks marks) {
    if ((marks & TagWithMore(kImg)) == 0) return false;
    const std::uint32_t attributes = FindAttributeMarks(tag);
    if ((attributes & kHasSource) == 0) return false;
    constexpr std::uint32_t kPixel = kWidthOne | kHeightOne;
    if ((attributes & kPixel) != kPixel) Write(u"G");
    return true;
  }

  void Write(std::u16string_view letters) {
    if (letters.empty()) return;
    structure_.append(letters);
    textPending_ = false;
  }

  const std::u16string_view html_;
  std::u16string structure_;
  bool skipping_ = false;     ///< inside an element whose content isn't looked at
  bool textPending_ = false;  ///< a "T" stands at the end, and more text adds none
};

}  // namespace

int EncodeStructure(std::int32_t elementCount, std::u16string_view html, std::u16string& structure) {
  structure.clear();
  if (elementCount > kStructureElementLimit) return 1;
  structure = Encoder(html).Encode();
  return 0;
}

}  // namespace zeph
