// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

#include "tools/training/Evaluation.h"

namespace zeph::training {

struct ReportHead {
  std::string title;
  std::string package;   ///< what was judged with
  std::string baseline;  ///< what it is compared with; empty: nothing
};

/// A page for a person: figures, drawn curves, slices, rules, the worst mistakes. It stands alone: no script, nothing
/// from elsewhere. What comes from inputs is written as text, never as markup or as a link.
[[nodiscard]] std::string HtmlReport(const ReportHead& head, const Evaluation& evaluation,
                                     const std::optional<Evaluation>& baseline,
                                     const std::optional<Comparison>& comparison);

}  // namespace zeph::training
