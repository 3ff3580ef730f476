// SPDX-License-Identifier: Apache-2.0
// What somebody is told whose page is held.
#pragma once

#include <string>

#include "judging/Judgement.h"

namespace zeph {

struct Warning {
  std::string brand;   ///< UTF-8 without anything unshowable; empty for a script attack, which imitates nobody
  std::string reason;  ///< one sentence of the same kind; never empty
};

/// For a judgement that is held. The reason is the strongest that speaks for it, if explanations were asked for.
[[nodiscard]] Warning WarningOf(const Judgement& judgement);

}  // namespace zeph
