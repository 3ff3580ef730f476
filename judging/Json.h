// SPDX-License-Identifier: Apache-2.0
// Machine-readable output. Written by hand rather than by a JSON library because the contract asks for two
// things that libraries don't give: lone surrogates as \uXXXX, and 32-bit floats by their own shortest digits.
#pragma once

#include <charconv>
#include <cmath>
#include <concepts>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "DetectionEngine/page/Tally.h"

namespace zeph {

/// Appends JSON to one line of text. Containers nest by calls; commas are its own care.
class JsonWriter {
 public:
  void BeginObject() { Open('{'); }
  void EndObject() { Close('}'); }
  void BeginArray() { Open('['); }
  void EndArray() { Close(']'); }
  void Key(std::string_view name);
  void Key(std::u16string_view name);

  void Value(std::u16string_view text);
  /// UTF-8; bytes that aren't come out as U+FFFD.
  void Value(std::string_view text);
  void Value(const char* text) { Value(std::string_view(text)); }
  void Value(const std::u16string& text) { Value(std::u16string_view(text)); }
  void Value(const std::string& text) { Value(std::string_view(text)); }
  void Value(bool flag) { Plain(flag ? "true" : "false"); }
  void Value(std::nullptr_t) { Plain("null"); }
  template <std::integral Number>
  void Value(Number number) {
    Plain(std::to_string(number));
  }
  /// The shortest digits that give the number back; null for what is no finite number.
  template <std::floating_point Number>
  void Value(Number number) {
    if (!std::isfinite(number)) return Value(nullptr);
    char digits[64];
    const auto end = std::to_chars(digits, digits + sizeof digits, number);
    Plain(std::string_view(digits, static_cast<std::size_t>(end.ptr - digits)));
  }
  template <class T>
  void Value(const std::optional<T>& value) {
    if (value) {
      Value(*value);
    } else {
      Value(nullptr);
    }
  }
  template <class T>
  void Value(const std::vector<T>& list) {
    BeginArray();
    for (const auto& item : list) Write(*this, item);
    EndArray();
  }
  template <class K, class V, class C>
  void Value(const std::map<K, V, C>& map) {
    BeginObject();
    for (const auto& [key, value] : map) {
      Key(std::u16string_view(key));
      Write(*this, value);
    }
    EndObject();
  }

  void Value(const Tally& tally) {
    BeginObject();
    for (const auto& [text, count] : tally) {
      Key(text);
      Value(count);
    }
    EndObject();
  }

  /// The text so far, moved out; the writer is then empty.
  [[nodiscard]] std::string Take();

 private:
  void Open(char bracket);
  void Close(char bracket);
  void Plain(std::string_view token);
  void Separate();

  std::string text_;
  bool needsComma_ = false;
};

/// Values that the writer knows by itself; records have overloads of their own.
template <class T>
requires requires(JsonWriter& json, const T& value) { json.Value(value); }
void Write(JsonWriter& json, const T& value) { json.Value(value); }

/// Writes one member of an open object.
template <class T>
void WriteMember(JsonWriter& json, std::string_view name, const T& value) {
  json.Key(name);
  Write(json, value);
}

/// An object of names and values in turn: WriteObject(json, "First", range.First, "Last", range.Last).
template <class... NamesAndValues>
void WriteObject(JsonWriter& json, const NamesAndValues&... namesAndValues);

namespace detail {
inline void WriteMembers(JsonWriter&) {}
template <class T, class... Rest>
void WriteMembers(JsonWriter& json, std::string_view name, const T& value, const Rest&... rest) {
  WriteMember(json, name, value);
  WriteMembers(json, rest...);
}
}  // namespace detail

template <class... NamesAndValues>
void WriteObject(JsonWriter& json, const NamesAndValues&... namesAndValues) {
  json.BeginObject();
  detail::WriteMembers(json, namesAndValues...);
  json.EndObject();
}

}  // namespace zeph
