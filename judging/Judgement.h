// SPDX-License-Identifier: Apache-2.0
// The answer on one input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "DetectionEngine/engine/ClassificationDriver.h"
#include "judging/Input.h"
#include "judging/Reasons.h"

namespace zeph {

enum class Verdict : std::uint8_t {
  kTrustworthy,
  kSpoofing,
  kSpoofingConfirmed,  ///< a server said so
  kScriptAttack,
  kUnclassified,
  kNotJudged,
};
/// Their names in machine-readable output.
[[nodiscard]] std::string_view NameOf(Verdict verdict) noexcept;
/// A warning is due.
[[nodiscard]] constexpr bool IsHeld(Verdict verdict) noexcept {
  return verdict == Verdict::kSpoofing || verdict == Verdict::kSpoofingConfirmed || verdict == Verdict::kScriptAttack;
}

/// What the engine said and what is made of it. An out-parameter that the call didn't write, or a call that wasn't made,
/// is absent.
struct Judgement {
  std::string input;
  std::optional<std::int32_t> result;
  std::optional<std::int32_t> classification;
  std::optional<float> spooficity;
  std::optional<std::u16string> siteName;
  ClassificationTrace trace;  ///< what was sent and held back; with results if an explanation was asked for

  Verdict verdict = Verdict::kNotJudged;
  std::string reason;   ///< why it wasn't judged
  std::u16string url;   ///< that it was judged by, or that the page claims; may be empty
  UrlSource urlSource = UrlSource::kNone;
  bool byContentAlone = false;  ///< a page whose address nobody but itself tells
  std::string intake;           ///< what was done to the text before it was an address; may be empty
  std::vector<Reason> reasons;      ///< strongest first, if an explanation was asked for

  std::string where;             ///< of a part: where in its input it stood, in words
  std::vector<Judgement> parts;  ///< what the input carries, each with its own verdict: pages inside it, links, attachments
  std::optional<std::size_t> worst;  ///< the part whose verdict the input has
};

/// Lets the worst part count: an input takes over verdict, score and name of a part that is held, when it isn't held
/// itself or for less. An input that has no verdict of its own, a letter, is as good as the least good of its parts.
void TakeWorstPart(Judgement& judgement);

}  // namespace zeph
