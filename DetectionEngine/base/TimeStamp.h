// SPDX-License-Identifier: Apache-2.0
// Time stamps of the settings store: a date and time in the shape of a GUID, XXXXXXXX-HHHH-MMMM-SSSS-RRRRRRRRRRRR in
// upper-case hexadecimal. The date is the decimal number YYYYMMDD, hour, minute and second are taken from 0xFFFF, and
// the last group is random.
#pragma once

#include <string>
#include <string_view>

namespace zeph {

[[nodiscard]] std::u16string EncodeTimeStamp(int year, int month, int day, int hour, int minute, int second);

/// "YYYY-MM-DD HH:MM:SS". Any text gives a result: what isn't hexadecimal reads as 0, and numbers too large for their
/// place are written with more digits.
[[nodiscard]] std::u16string DecodeTimeStamp(std::u16string_view text);

}  // namespace zeph
