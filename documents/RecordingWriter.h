// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>

#include "documents/RecordedAnswers.h"

namespace zeph {

/// A longer recording isn't written. Elements that lie in one another each have their text, so that a small page can
/// give a large recording.
inline constexpr std::size_t kRecordingLimit = std::size_t{1} << 30;

/// Writes a recording as one line of JSON in UTF-8, without a line feed. What it leaves out reads as what stands in the
/// recording. False, with an empty text, for one that would pass kRecordingLimit bytes.
[[nodiscard]] bool WriteRecording(const Recording& recording, std::string& json);

/// Takes out what may be a user's: the values of fields, the queries of URLs wherever they stand, and the cache. Texts
/// of scripts in the page stay, and what a reader of it sees.
void ScrubRecording(Recording& recording);

}  // namespace zeph
