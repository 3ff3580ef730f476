// SPDX-License-Identifier: Apache-2.0
// The markup that scripts plainly write into their page. Scripts are read, never run: what is found are calls and
// assignments that write, and what can be told of their text from texts that stand in the script.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace zeph {

/// Something that a script writes, or leads its page or a frame to.
struct ScriptWrite {
  enum class Kind : std::uint8_t {
    kMarkup,
    kAddress,  ///< that is to be followed; of the scheme "data"
  };
  Kind kind = Kind::kMarkup;
  std::string_view by;  ///< "document.write", "innerHTML", ...
  std::u16string text;
};

/// Reads the scripts of one page in order. What they assign to a variable is known to those behind. One thread at a time.
///
/// Found are write() and writeln(), the calls of one script taken together; innerHTML, outerHTML and srcdoc when they
/// are assigned or appended to; insertAdjacentHTML(), setAttribute(), html(), createContextualFragment(), Blob; data:
/// addresses that are given to src, data, href, location, open() and their like; and all of these in a text that is
/// handed to eval(), Function() or setTimeout().
/// Their text is known as far as it is made of literals, templates, variables that hold such, "+", lists with join(),
/// atob, unescape, decodeURI, decodeURIComponent, escape, and String.fromCharCode of numbers. What isn't known adds
/// nothing to it: "<form action=" + x + ">" is read without x. Conditions and loops are passed over, so that what stands
/// in them is read once.
class ScriptReader {
 public:
  /// mostText: the units that all scripts of the page may be made into, variables included.
  explicit ScriptReader(std::size_t mostText) noexcept : left_(mostText) {}

  /// Linear in the script and in what is left of the text that may be made.
  [[nodiscard]] std::vector<ScriptWrite> Read(std::u16string_view script);
  /// What a script that is an expression gives, as a page that stands in an address of the scheme "javascript" is; empty
  /// when that isn't known.
  [[nodiscard]] std::u16string ValueOf(std::u16string_view script);
  /// Whether a script may write anything; most say by their words that they don't.
  [[nodiscard]] static bool MayWrite(std::u16string_view script) noexcept;
  /// Something wasn't made into text, because there would have been too much of it.
  [[nodiscard]] bool WasCut() const noexcept { return wasCut_; }

 private:
  class Pass;
  std::map<std::u16string, std::u16string, std::less<>> variables_;
  std::size_t left_;
  bool wasCut_ = false;
};

}  // namespace zeph
