// SPDX-License-Identifier: Apache-2.0
#include "judging/Json.h"

#include <utility>

#include "DetectionEngine/platform/CodePage.h"
#include "judging/ShownText.h"

namespace zeph {

namespace {

void AppendEscape(std::string& out, unsigned unit) {
  constexpr char kDigits[] = "0123456789abcdef";
  out += "\\u";
  for (int shift = 12; shift >= 0; shift -= 4) out += kDigits[(unit >> shift) & 0xFU];
}

void AppendQuoted(std::string& out, std::u16string_view text) {
  out += '"';
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char16_t c = text[i];
    switch (c) {
      case u'"':
        out += "\\\"";
        break;
      case u'\\':
        out += "\\\\";
        break;
      case u'\n':
        out += "\\n";
        break;
      case u'\r':
        out += "\\r";
        break;
      case u'\t':
        out += "\\t";
        break;
      default:
        // Lone halves of a pair have no other form; the rest of what can't be shown would steer a terminal.
        if (c >= 0x20 && c < 0x7F) {
          out += static_cast<char>(c);
        } else if (c >= 0xD800U && c < 0xDC00U && i + 1 < text.size() && (text[i + 1] & 0xFC00U) == 0xDC00U) {
          const bool isTag = c == 0xDB40U;  // U+E0000 to U+E03FF
          if (isTag) AppendEscape(out, c), AppendEscape(out, text[i + 1]);
          if (!isTag) out += Narrow(text.substr(i, 2));
          ++i;
        } else if (IsUnshowable(c)) {
          AppendEscape(out, c);
        } else {
          out += Narrow(text.substr(i, 1));
        }
    }
  }
  out += '"';
}

}  // namespace

void JsonWriter::Separate() {
  if (needsComma_) text_ += ", ";
  needsComma_ = false;
}

void JsonWriter::Open(char bracket) {
  Separate();
  text_ += bracket;
}

void JsonWriter::Close(char bracket) {
  text_ += bracket;
  needsComma_ = true;
}

void JsonWriter::Key(std::string_view name) { Key(Widen(name)); }

void JsonWriter::Key(std::u16string_view name) {
  Separate();
  AppendQuoted(text_, name);
  text_ += ": ";
}

void JsonWriter::Value(std::u16string_view text) {
  Separate();
  AppendQuoted(text_, text);
  needsComma_ = true;
}

void JsonWriter::Value(std::string_view text) { Value(Widen(text)); }

void JsonWriter::Plain(std::string_view token) {
  Separate();
  text_ += token;
  needsComma_ = true;
}

std::string JsonWriter::Take() {
  needsComma_ = false;
  return std::exchange(text_, {});
}

}  // namespace zeph
