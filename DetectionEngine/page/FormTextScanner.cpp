// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/page/FormTextScanner.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <functional>
#include <map>
#include <utility>

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

/// A text that tags and character references may take apart: it is put together only when they do.
class BlockText {
 public:
  void Append(std::u16string_view text) {
    if (View().empty()) {
      single_ = text;
      return;
    }
    if (joined_.empty()) joined_ = single_;
    joined_ += text;
  }
  void Clear() noexcept {
    single_ = {};
    joined_.clear();
  }
  [[nodiscard]] std::u16string_view View() const noexcept {
    return joined_.empty() ? single_ : std::u16string_view(joined_);
  }

 private:
  std::u16string_view single_;
  std::u16string joined_;
};

bool HoldsLetter(const BlockText& text) noexcept { return std::ranges::any_of(text.View(), IsAlpha); }

class Scanner {
 public:
  explicit Scanner(std::u16string_view html) : html_(html) {}

  FormTexts Scan() {
    for (std::size_t at = 0; at < html_.size();) {
      at = ReadText(at);
      if (at < html_.size()) at = ReadTag(at);
    }
    result_.scanText = result_.kept.Keep(labels_);
    for (std::size_t i = 0; i < result_.forms.size(); ++i) {
      const std::size_t end = i + 1 < labelBegins_.size() ? labelBegins_[i + 1] : result_.scanText.size();
      result_.forms[i].labelText = result_.scanText.substr(labelBegins_[i], end - labelBegins_[i]);
    }
    return std::move(result_);
  }

 private:
  /// Reads on to the next tag and gives the position of its "<", or the end.
  std::size_t ReadText(std::size_t at) {
    if (inSelect_ || inScriptOrStyle_) return FindAnyOf<u'<'>(html_, at);
    for (;;) {
      const std::size_t end = FindAnyOf<u'<', u'&'>(html_, at);
      currentText_.Append(html_.substr(at, end - at));
      if (end == html_.size() || html_[end] == u'<') return end;
      // A "<" ends a character reference and starts no tag.
      const std::size_t entityEnd = FindAnyOf<u';', u'<'>(html_, end + 1);
      if (entityEnd == html_.size()) return entityEnd;
      currentText_.Append(ReferencedText(html_.substr(end, entityEnd + 1 - end)));
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
    if (!IsBlank(currentText_.View())) std::swap(previousText_, currentText_);
    currentText_.Clear();
  }

  /// True for a tag in front of which a label is looked for.
  bool OnFormTag(std::u16string_view tag, TagMarks marks) {
    if ((marks & OpeningTag(kForm)) != 0) {
      labelBegins_.push_back(labels_.size());
      result_.forms.push_back({{}, Kept(AttributeValueOf(tag, u"action="))});
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
      previousText_.Clear();
    }
    currentText_.Clear();
  }

  void AddLabel(const BlockText& text) { labels_.append(1, u' ').append(text.View()); }

  /// A part of the markup as it is, or a copy of one of a tag without quotes.
  std::u16string_view Kept(std::u16string_view text) {
    const bool isMarkup =
        std::less_equal<>()(html_.data(), text.data()) && std::less<>()(text.data(), html_.data() + html_.size());
    return isMarkup ? text : result_.kept.Copy(text);
  }

  const std::u16string_view html_;
  FormTexts result_;
  std::u16string labels_;
  std::vector<std::size_t> labelBegins_;  ///< where those of each form begin
  BlockText previousText_;                ///< the last block that held something
  BlockText currentText_;                 ///< since the last block boundary
  std::u16string withoutQuotes_;
  bool inSelect_ = false;
  bool inScriptOrStyle_ = false;
};

}  // namespace

FormTexts ScanFormTexts(std::u16string_view html) { return Scanner(html).Scan(); }

void MergeLabels(FormData& formData, const std::vector<ScannedForm>& forms) {
  if (formData.records.size() == forms.size()) {
    for (std::size_t i = 0; i < forms.size(); ++i) formData.records[i].labelText = forms[i].labelText;
    return;
  }
  std::map<std::u16string_view, const ScannedForm*> lastByAction;
  for (const ScannedForm& form : forms) lastByAction[form.action] = &form;
  for (FormRecord& record : formData.records) {
    const auto at = lastByAction.find(record.action);
    if (at != lastByAction.end()) record.labelText = at->second->labelText;
  }
}

Status ScanFormTexts(PageData& pageData) {
  FormTexts texts = ScanFormTexts(pageData.body.html);
  MergeLabels(pageData.forms, texts.forms);
  pageData.body.labelText = texts.scanText;
  pageData.body.kept.Adopt(std::move(texts.kept));
  pageData.body.fieldCount = texts.fieldCount;
  pageData.body.fieldWithoutLabel = texts.fieldWithoutLabel;
  return 0;
}

}  // namespace zeph
