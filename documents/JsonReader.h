// SPDX-License-Identifier: Apache-2.0
// Reads JSON from one end to the other, value by value, as the caller asks for it: nothing is built that nobody wants,
// texts come as UTF-16 with surrogates left as they stand (a document may hold half a pair, which libraries refuse),
// and what goes wrong is told with its place. Linear; nothing recurses.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace zeph {

class JsonReader {
 public:
  /// Values nested deeper are refused.
  static constexpr std::size_t kDepthLimit = 256;

  enum class Kind : std::uint8_t { kObject, kArray, kText, kNumber, kFlag, kNull, kNothing };

  /// A number as it is written.
  struct Number {
    bool isWhole = false;    ///< no fraction and no exponent
    std::int64_t value = 0;  ///< of a whole number, held at the ends of the range
  };

  /// json is UTF-8 and must stay while this reads.
  explicit JsonReader(std::string_view json) noexcept : json_(json) {}

  /// What the next value is; kNothing when no value begins here.
  [[nodiscard]] Kind Next() noexcept;

  // Each of these reads one thing and gives false when it isn't there, which is an error, or was one before: the first
  // error stays, and callers need look at it only once.
  bool BeginObject();
  /// The next member's name; false at the object's end, too.
  bool NextMember(std::u16string& name);
  bool BeginArray();
  /// True when an item follows; false at the array's end, too.
  bool NextItem();
  bool ReadText(std::u16string& text);
  bool ReadNumber(Number& number);
  bool ReadNull();
  bool Skip();
  /// Nothing but white space is left.
  bool ReadEnd();

  /// How many items the array that was begun has, at the most, when it holds no array itself.
  [[nodiscard]] std::size_t ItemsAhead() const noexcept;

  /// Notes an error that the caller found in what was read last, or about to be read.
  void Fail(std::string_view what);
  /// The same about a value elsewhere.
  void FailAt(std::string_view path, std::string_view what);
  [[nodiscard]] bool Failed() const noexcept { return !error_.empty(); }
  /// One line that says where and what; empty while nothing went wrong.
  [[nodiscard]] const std::string& Error() const noexcept { return error_; }

  /// How many bytes were read.
  [[nodiscard]] std::size_t Offset() const noexcept { return at_; }
  /// Where the reader stands, as a JSON pointer.
  [[nodiscard]] std::string Path() const;

 private:
  /// An object or array that is open.
  struct Level {
    std::u16string name;     ///< of an object's member
    std::int64_t item = -1;  ///< of an array
    bool isObject = false;
    bool isFirst = true;   ///< no comma is due
    bool isNamed = false;  ///< name or item tell where the reader is
  };

  bool Open(char bracket, bool isObject);
  /// Goes on to the next member or item of the open level; false at its end.
  bool Advance(char close);
  bool ReadString(std::u16string& text);
  bool ReadEscape(std::u16string& text);
  bool ReadRun(std::u16string& text);
  bool ReadWord(std::string_view word);
  /// Skips white space; the next character, or 0 at the end.
  char Peek() noexcept;

  std::string_view json_;
  std::size_t at_ = 0;
  std::vector<Level> levels_;
  std::string error_;
};

}  // namespace zeph
