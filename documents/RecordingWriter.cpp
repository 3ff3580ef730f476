// SPDX-License-Identifier: Apache-2.0
#include "documents/RecordingWriter.h"

#include <cstdint>
#include <string_view>

#include "DetectionEngine/platform/CodePage.h"

namespace zeph {

namespace {

constexpr bool IsHighSurrogate(char16_t c) noexcept { return (c & 0xFC00) == 0xD800; }
constexpr bool IsLowSurrogate(char16_t c) noexcept { return (c & 0xFC00) == 0xDC00; }

class Writer {
 public:
  explicit Writer(const Recording& recording) : recording_(recording) {}

  bool Write(std::string& json) {
    out_ = "{\"recording\": 1, \"document\": {";
    WriteAnswers(Answerer::kDocument, recording_.document);
    out_ += "}, \"elements\": [";
    const char* separator = "";
    for (const RecordedElement& element : recording_.elements) {
      out_ += separator;
      separator = ", ";
      WriteElement(element);
      if (out_.size() > kRecordingLimit) break;
    }
    out_ += "]";
    if (!recording_.cache.empty()) WriteCache();
    out_ += "}";
    const bool fits = out_.size() <= kRecordingLimit;
    json = fits ? std::move(out_) : std::string();
    return fits;
  }

 private:
  void WriteElement(const RecordedElement& element) {
    out_ += '{';
    const char* separator = "";
    for (std::size_t i = 0; i < kAnswererNames.size(); ++i) {
      const auto answerer = static_cast<Answerer>(i);
      if (!element.Has(answerer)) continue;
      out_.append(separator).append("\"").append(kAnswererNames[i]).append("\": {");
      separator = ", ";
      WriteAnswers(answerer, recording_.AnswersOf(element));
      out_ += '}';
    }
    out_ += '}';
  }

  /// The members of an object that was opened.
  void WriteAnswers(Answerer answerer, RecordedAnswers answers) {
    const char* separator = "";
    for (std::size_t i = 0; i < answers.size(); ++i) {
      const OperationRow& row = kOperations[static_cast<std::size_t>(answers[i].operation)];
      if (row.answerer != answerer || SaysNothing(answers[i], row.shape)) continue;
      out_.append(separator).append("\"").append(row.name).append("\": ");
      separator = ", ";
      if (row.shape != AnswerShape::kLists && row.shape != AnswerShape::kAttributes) {
        WriteAnswer(answers[i], row.shape);
        continue;
      }
      std::size_t end = i + 1;
      while (end < answers.size() && answers[end].operation == row.operation) ++end;
      WriteNamed(answers.subspan(i, end - i), row.shape);
      i = end - 1;
    }
  }

  /// Leaving it out says the same.
  static bool SaysNothing(const RecordedAnswer& answer, AnswerShape shape) noexcept {
    switch (shape) {
      case AnswerShape::kText:
        return answer.status == 0 && !answer.text;
      case AnswerShape::kNumber:
        return answer.status == 0 && answer.number.value_or(0) == 0;
      case AnswerShape::kElement:
      case AnswerShape::kList:
        return answer.status == 0 && !answer.number;
      default:
        return false;
    }
  }

  /// Answers of one operation by name. The one without a name stands first; if it failed, it is the only one.
  void WriteNamed(RecordedAnswers answers, AnswerShape shape) {
    if (answers.front().name.empty()) {
      if (answers.front().status != 0) return WriteStatus(answers.front().status);
      answers = answers.subspan(1);
    }
    out_ += '{';
    const char* separator = "";
    for (const RecordedAnswer& answer : answers) {
      out_ += separator;
      separator = ", ";
      WriteText(answer.name);
      out_ += ": ";
      WriteAnswer(answer, shape);
    }
    out_ += '}';
  }

  void WriteAnswer(const RecordedAnswer& answer, AnswerShape shape) {
    const bool isList = shape == AnswerShape::kList || shape == AnswerShape::kLists;
    if (answer.status != 0) {
      WriteStatus(answer.status);
    } else if (answer.text) {
      WriteText(*answer.text);
    } else if (!answer.number) {
      out_ += "null";
    } else if (isList) {
      WriteList(recording_.lists[static_cast<std::size_t>(*answer.number)]);
    } else {
      out_ += std::to_string(*answer.number);
    }
  }

  void WriteList(const std::vector<RecordedItem>& items) {
    out_ += '[';
    const char* separator = "";
    for (const RecordedItem& item : items) {
      out_ += separator;
      separator = ", ";
      if (item.status != 0) {
        WriteStatus(item.status);
      } else {
        out_ += item.element == RecordedItem::kNone ? "null" : std::to_string(item.element);
      }
    }
    out_ += ']';
  }

  void WriteStatus(Status status) { out_ += "{\"status\": " + std::to_string(status) + "}"; }

  void WriteCache() {
    out_ += ", \"cache\": {";
    const char* separator = "";
    for (const auto& [url, bytes] : recording_.cache) {
      out_ += separator;
      separator = ", ";
      WriteText(Widen(url));
      out_ += ": ";
      WriteText(Widen(bytes));
    }
    out_ += '}';
  }

  /// Half of a surrogate pair, which UTF-8 can't hold, is written as an escape.
  void WriteText(std::u16string_view text) {
    if (out_.size() > kRecordingLimit) return;
    out_ += '"';
    std::size_t begin = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
      const char16_t c = text[i];
      if (c >= 0x20 && c != u'"' && c != u'\\' && (c & 0xF800) != 0xD800) continue;
      if (IsHighSurrogate(c) && i + 1 < text.size() && IsLowSurrogate(text[i + 1])) {
        ++i;
        continue;
      }
      out_ += Narrow(text.substr(begin, i - begin));
      WriteEscape(c);
      begin = i + 1;
    }
    out_ += Narrow(text.substr(begin));
    out_ += '"';
  }

  void WriteEscape(char16_t c) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    if (c == u'"' || c == u'\\') {
      out_ += '\\';
      out_ += static_cast<char>(c);
    } else if (c == u'\n') {
      out_ += "\\n";
    } else if (c == u'\r') {
      out_ += "\\r";
    } else {
      out_ += "\\u";
      for (int shift = 12; shift >= 0; shift -= 4) out_ += kDigits[(c >> shift) & 0xFU];
    }
  }

  const Recording& recording_;
  std::string out_;
};

}  // namespace

bool WriteRecording(const Recording& recording, std::string& json) { return Writer(recording).Write(json); }

}  // namespace zeph
