// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/page/FormTextScanner.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <functional>
#include <map>
#include <utility>

#include "DetectionEngine/page/DocumentReading.h"
#include "DetectionEngine/page/MarkupTags.h"
#include "DetectionEngine/text/CharacterClass.h"
#include "DetectionEngine/text/FindAnyOf.h"
#include "DetectionEngine/text/Text.h"

namespace zeph {

namespace {

using enum MarkupTag;

constexpr TagMarks kBlockTags = AnyTag(kP) | AnyTag(kDiv) | AnyTag(kBr) | AnyTag(kTr);
constexpr TagMarks kReadsAttributes = OpeningTag(kForm) | TagWithMore(kInput);
constexpr TagMarks kOpensUnread = OpeningTag(kScript) | OpeningTag(kStyle);
constexpr TagMarks kClosesUnread = ClosingTag(kScript) | ClosingTag(kStyle);
constexpr std::uint32_t kTypesWithoutText =
    kTypeButton | kTypeCheckbox | kTypeHidden | kTypeImage | kTypeRadio | kTypeReset | kTypeSubmit;

/// The text of a character reference; empty for one that isn't known.
std::u16string_view ReferencedText(std::u16string_view entity) noexcept {
  struct Row {
    std::u16string_view entity;
    std::u16string_view text;
  };
  static constexpr std::array<Row, 5> kReferences = {
      {{u"&nbsp;", u" "}, {u"&amp;", u"&"}, {u"&quot;", u"\""}, {u"&lt;", u"<"}, {u"&gt;", u">"}}};
  for (const Row& row : kReferences) {
    if (row.entity == entity) return row.text;
  }
  return {};
}

/// What stands behind the name and "=". The tag holds no quote that opens a value, only those that close one: so a
/// value that was quoted ends at its first blank or with its closing quote, and the tag's last value keeps the ">".
std::u16string_view AttributeValueOf(std::u16string_view tag, std::u16string_view nameAndEquals) noexcept {
  const std::size_t at = FindExact(tag, nameAndEquals);
  if (at == std::u16string_view::npos) return {};
  const std::u16string_view value = tag.substr(at + nameAndEquals.size());
  if (value.empty() || value.front() == u'>' || IsSpace(value.front())) return {};
  if (value.front() == u'"' || value.front() == u'\'') {
    return value.substr(1, std::min(value.find(value.front(), 1), value.size()) - 1);
  }
  return value.substr(0, static_cast<std::size_t>(std::ranges::find_if(value, IsSpace) - value.begin()));
}

bool HoldsLetter(std::u16string_view text) noexcept { return std::ranges::any_of(text, IsAlpha); }

class Scanner {
 public:
  explicit Scanner(std::u16string_view html) : html_(html) {}

  FormTexts Scan() {
    for (std::size_t at = 0; at < html_.size();) {
      at = ReadText(at);
      if (at < html_.size()) at = ReadTag(at);
    }
    return std::move(result_);
  }

 private:
  /// Reads on to the next tag and gives the position of its "<", or the end.
  std::size_t ReadText(std::size_t at) {
    if (inSelect_ || inScriptOrStyle_) return FindAnyOf<u'<'>(html_, at);
    for (;;) {
      const std::size_t end = FindAnyOf<u'<', u'&'>(html_, at);
      currentText_.append(html_.substr(at, end - at));
      if (end == html_.size() || html_[end] == u'<') return end;
      // A "<" ends a character reference and starts no tag.
      const std::size_t entityEnd = FindAnyOf<u';', u'<'>(html_, end + 1);
      if (entityEnd == html_.size()) return entityEnd;
      currentText_.append(ReferencedText(html_.substr(end, entityEnd + 1 - end)));
      at = entityEnd + 1;
    }
  }

  /// Reads the tag that begins here and gives the position behind it.
  std::size_t ReadTag(std::size_t begin) {
    bool hasValues = false;
    std::size_t at = begin + 1;
    for (;;) {
      at = FindAnyOf<u'>', u'\'', u'"'>(html_, at);
      if (at == html_.size()) return at;
      if (html_[at] == u'>') break;
      hasValues = true;
      at = html_[at] == u'"' ? FindAnyOf<u'"'>(html_, at + 1) : FindAnyOf<u'\''>(html_, at + 1);
      if (at == html_.size()) return at;
      ++at;
    }
    const std::u16string_view tag = html_.substr(begin, at + 1 - begin);
    const TagMarks marks = FindTagMarks(tag);
    if (!hasValues || (HasOneName(tag) && (marks & kReadsAttributes) == 0)) {
      OnTag(tag, marks);
    } else {
      const std::u16string_view withoutQuotes = WithoutOpeningQuotes(tag);
      OnTag(withoutQuotes, FindTagMarks(withoutQuotes));
    }
    return at + 1;
  }

  /// Only one name stands in the tag, with a blank behind it: what its values are makes no difference to its marks.
  static bool HasOneName(std::u16string_view tag) noexcept {
    return tag[FindAnyOf<u'<', u' ', u'\'', u'"'>(tag, 1)] == u' ' && FindAnyOf<u'<'>(tag, 1) == tag.size();
  }

  /// The tag without the quotes that open values.
  std::u16string_view WithoutOpeningQuotes(std::u16string_view tag) {
    withoutQuotes_.clear();
    for (std::size_t copied = 0;;) {
      const std::size_t quote = FindAnyOf<u'\'', u'"'>(tag, copied);
      withoutQuotes_.append(tag.substr(copied, quote - copied));
      if (quote == tag.size()) return withoutQuotes_;
      const std::size_t end = tag[quote] == u'"' ? FindAnyOf<u'"'>(tag, quote + 1) : FindAnyOf<u'\''>(tag, quote + 1);
      withoutQuotes_.append(tag.substr(quote + 1, end - quote));
      copied = end + 1;
    }
  }

  void OnTag(std::u16string_view tag, TagMarks marks) {
    if ((marks & kBlockTags) != 0) OnBlockTag();
    if (OnFormTag(tag, marks)) {
      OnField();
    } else if ((marks & ClosingTag(kSelect)) != 0) {
      inSelect_ = false;
    } else if ((marks & kOpensUnread) != 0) {
      inScriptOrStyle_ = true;
    } else if ((marks & kClosesUnread) != 0) {
      inScriptOrStyle_ = false;
    }
  }

  void OnBlockTag() {
    if (!IsBlank(currentText_)) std::swap(previousText_, currentText_);
    currentText_.clear();
  }

  /// True for a tag in front of which a label is looked for.
  bool OnFormTag(std::u16string_view tag, TagMarks marks) {
    if ((marks & OpeningTag(kForm)) != 0) {
      result_.forms.push_back({{}, std::u16string(AttributeValueOf(tag, u"action="))});
      return false;
    }
    if ((marks & BareTag(kInput)) != 0) return CountField();
    if ((marks & TagWithMore(kInput)) != 0) {
      const std::uint32_t attributes = FindAttributeMarks(tag);
      if ((attributes & (kTypeText | kTypePassword | kTypeFile)) != 0) return CountField();
      if ((attributes & kTypesWithoutText) == 0) return CountField();
    }
    if ((marks & OpeningTag(kSelect)) != 0) {
      inSelect_ = true;
      return true;
    }
    return false;
  }

  bool CountField() noexcept {
    ++result_.fieldCount;
    return true;
  }

  void OnField() {
    if (HoldsLetter(currentText_)) {
      AddLabel(currentText_);
    } else {
      if (HoldsLetter(previousText_)) {
        AddLabel(previousText_);
      } else {
        result_.fieldWithoutLabel = true;
      }
      previousText_.clear();
    }
    currentText_.clear();
  }

  void AddLabel(std::u16string_view text) {
    result_.scanText.append(1, u' ').append(text);
    if (!result_.forms.empty()) result_.forms.back().labelText.append(1, u' ').append(text);
  }

  const std::u16string_view html_;
  FormTexts result_;
  std::u16string previousText_;  ///< the last block that held something
  std::u16string currentText_;   ///< since the last block boundary
  std::u16string withoutQuotes_;
  bool inSelect_ = false;
  bool inScriptOrStyle_ = false;
};

}  // namespace

FormTexts ScanFormTexts(std::u16string_view html) { return Scanner(html).Scan(); }

void MergeLabels(FormData& formData, const std::vector<ScannedForm>& forms) {
  TextBudget budget;
  const auto label = [&](FormRecord& record, const ScannedForm& form) {
    if (budget.Take(form.labelText.size())) record.labelText = form.labelText;
  };
  if (formData.records.size() == forms.size()) {
    for (std::size_t i = 0; i < forms.size(); ++i) label(formData.records[i], forms[i]);
    return;
  }
  std::map<std::u16string_view, const ScannedForm*> lastByAction;
  for (const ScannedForm& form : forms) lastByAction[form.action] = &form;
  for (FormRecord& record : formData.records) {
    const auto at = lastByAction.find(record.action);
    if (at != lastByAction.end()) label(record, *at->second);
  }
}

Status ScanFormTexts(PageData& pageData) {
  FormTexts texts = ScanFormTexts(pageData.body.html);
  MergeLabels(pageData.forms, texts.forms);
  pageData.body.labelText = std::move(texts.scanText);
  pageData.body.fieldCount = texts.fieldCount;
  pageData.body.fieldWithoutLabel = texts.fieldWithoutLabel;
  return 0;
}

}  // namespace zeph
