// SPDX-License-Identifier: Apache-2.0
// What is wrong with a source, said as compilers say it: where, what, and what was meant.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zeph {

/// A file that people write.
struct SourceFile {
  std::string name;  ///< as it is to be shown
  std::string text;
};

/// A stretch of a file. Of length 0: the place itself.
struct Place {
  const SourceFile* file = nullptr;
  std::size_t offset = 0;  ///< bytes
  std::size_t length = 0;  ///< bytes
};

enum class Severity : std::uint8_t { kWarning, kError };

struct Diagnostic {
  Severity severity = Severity::kError;
  Place place;
  std::string message;
  std::string help;  ///< what to do; may be empty
};

/// What was found, in the order in which it was found.
class Diagnostics {
 public:
  void Error(Place place, std::string message, std::string help = {}) {
    found_.push_back({Severity::kError, place, std::move(message), std::move(help)});
  }
  void Warning(Place place, std::string message, std::string help = {}) {
    found_.push_back({Severity::kWarning, place, std::move(message), std::move(help)});
  }

  /// Sorts by file and place; what stands at one place keeps its order.
  void Sort();
  [[nodiscard]] std::span<const Diagnostic> All() const noexcept { return found_; }
  [[nodiscard]] std::size_t Errors() const noexcept;

 private:
  std::vector<Diagnostic> found_;
};

/// "file:line:column: error: message", the line with a mark under it, and the help. Lines and columns count from 1,
/// columns in characters. Ends in a line feed.
[[nodiscard]] std::string Render(const Diagnostic& diagnostic);

/// The line of a place, counted from 1.
[[nodiscard]] std::size_t LineOf(const Place& place) noexcept;

/// The name that is most like a misspelt one, or nothing when none is near. Case is ignored.
[[nodiscard]] std::string_view Nearest(std::string_view misspelt, std::span<const std::string_view> names);

/// "did you mean X?", or nothing.
[[nodiscard]] std::string DidYouMean(std::string_view misspelt, std::span<const std::string_view> names);

}  // namespace zeph
