// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace zeph {

/// The answer of one expression and, after combining, of one indicator.
struct IndicatorResult {
  bool evaluated = false;  ///< the indicator ran, and every expression that ran had a known method
  bool on = false;
  std::u16string fieldText;  ///< what was looked at
  std::u16string matchText;  ///< what it matched: an item, a number as text, a brand's key
  double elapsedMs = 0.0;    ///< time spent on the whole indicator, milliseconds
};

}  // namespace zeph
