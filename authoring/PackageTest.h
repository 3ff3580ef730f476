// SPDX-License-Identifier: Apache-2.0
// Cases beside a package's sources: what is to become of an address or a page. docs/rules.md teaches how they are
// written.
#pragma once

#include <string>
#include <vector>

#include "authoring/Diagnostics.h"

namespace zeph {

/// One case. What it doesn't say, it doesn't ask.
struct PackageCase {
  std::string input;  ///< an address, or the file of a page
  std::string url;    ///< of a page that doesn't know its own
  Place place;
  std::string verdict;              ///< a name of kVerdictNames; empty: any
  bool asksBrand = false;
  std::string brand;                ///< empty: none is named
  std::vector<std::string> fires;   ///< rules, by name or number
  std::vector<std::string> silent;  ///< rules that mustn't
};

/// Verdicts in the order of their numbers, from 1; one without a name isn't given.
inline constexpr std::string_view kVerdictNames[] = {"",         "trustworthy", "spoofing", "unclassified",
                                                     "",         "spoofing",    "script-attack"};

/// The cases of a file. The file outlives what is found.
[[nodiscard]] std::vector<PackageCase> ReadCases(const SourceFile& file, Diagnostics& found);

}  // namespace zeph
