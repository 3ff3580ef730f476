// SPDX-License-Identifier: Apache-2.0
// What a name looks like: letters of other scripts, digits and pairs that pass for a letter, all as that letter.
#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace zeph {

/// Two names with one skeleton are hard to tell apart: "0" is "o", "1" and "i" are "l", "rn" is "m", "vv" is "w".
/// The input is ASCII, lower case.
[[nodiscard]] std::string Skeleton(std::string_view name);

/// Reads labels in punycode as a person does: by the confusable letters of Unicode, without accents. One for a thread.
class LatinReader {
 public:
  LatinReader();
  ~LatinReader();
  LatinReader(const LatinReader&) = delete;
  LatinReader& operator=(const LatinReader&) = delete;

  /// "xn--pypal-4ve" gives "paypal"; letters that look like no Latin one are left out. Empty for a label that isn't in
  /// punycode, or is broken.
  [[nodiscard]] std::string Read(std::string_view label) const;

 private:
  struct Handles;
  std::unique_ptr<Handles> handles_;
};

}  // namespace zeph
