// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

#include "DetectionEngine/page/PageData.h"

namespace zeph {

/// What a field yields. 0 to 2 are also value types.
enum class FieldKind : std::int32_t {
  kNone = -1,
  kNumber = 0,
  kList = 1,
  kText = 2,
  kFlag = 3,
  kNumbers = 5,
  kNumberWithText = 6,
};

inline constexpr FieldKind kFieldKinds[] = {FieldKind::kNumber, FieldKind::kList,    FieldKind::kText,
                                            FieldKind::kFlag,   FieldKind::kNumbers, FieldKind::kNumberWithText};

/// A set of kinds of field.
using FieldKinds = std::uint32_t;
inline constexpr FieldKinds kNoField = 0;
[[nodiscard]] constexpr FieldKinds Only(FieldKind kind) noexcept { return FieldKinds{1} << static_cast<unsigned>(kind); }

/// The name of a kind, for people who write rules.
[[nodiscard]] std::string_view KindName(FieldKind kind) noexcept;

/// The value of one field, made anew for each expression. Texts are lent by the page's data.
struct FieldValue {
  FieldKind kind = FieldKind::kNone;
  std::int32_t number = 0;                ///< kNumber, kNumberWithText
  std::u16string_view text;               ///< kText
  std::vector<std::u16string_view> list;  ///< kList
  std::vector<std::int32_t> numbers;      ///< kNumbers
  bool flag = false;                      ///< kFlag
  std::u16string_view text2;              ///< kNumberWithText

  void Clear() noexcept {
    kind = FieldKind::kNone;
    number = 0;
    text = text2 = {};
    list.clear();
    numbers.clear();
    flag = false;
  }
};

/// One field of the rule language.
struct Field {
  std::uint32_t number;  ///< FieldID; written in packages, never renumber
  std::string_view name;
  FieldKind kind;
  std::string_view summary;              ///< one line, for people who write rules
  void (*read)(PageData&, FieldValue&);
  /// Reading it counts, once, what other fields and methods then see; so it is read also where nobody looks at it.
  bool counts = false;
};

/// All fields, in the order of their numbers, one of which no field has.
extern const std::array<Field, 33> kFields;

/// The field of a number, or null when there is none.
[[nodiscard]] const Field* FindField(std::uint32_t number) noexcept;

/// Makes the value anew, from the page's data as they stand now. Fields that show a brand count compute it on first
/// use. A value may be used again and again, for what room it has.
void ReadField(PageData& pageData, const Field& field, FieldValue& value);

/// The same by number; kNone for a number that no field has.
[[nodiscard]] FieldValue GetFieldValue(PageData& pageData, std::uint32_t fieldId);

}  // namespace zeph
