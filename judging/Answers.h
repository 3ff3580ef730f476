// SPDX-License-Identifier: Apache-2.0
// How judgements are written.
#pragma once

#include <string>
#include <string_view>

#include "judging/Judgement.h"

namespace zeph {

/// One JSON object on one line. With explains also the brand, every indicator and the reasons.
[[nodiscard]] std::string JsonAnswer(const Judgement& judgement, bool explains);

/// For a person: the input, the verdict, and lines of what belongs to it, no line feed at the end. With colours, those
/// of a terminal.
[[nodiscard]] std::string PersonAnswer(const Judgement& judgement, bool explains, bool colours);

/// One row of a table for a terminal, and its head.
[[nodiscard]] std::string TableHead();
[[nodiscard]] std::string TableRow(const Judgement& judgement, bool colours);

/// One record of comma-separated values (RFC 4180, without its CR), and the names of the columns. A text that a
/// spreadsheet would take for a formula has "'" in front.
[[nodiscard]] std::string CsvHead();
[[nodiscard]] std::string CsvRow(const Judgement& judgement);
[[nodiscard]] std::string CsvField(std::string_view text);

/// The name of the site that an address leads to: the label that names it and what follows, so that shop.example.co.uk
/// and example.co.uk are one; a host that belongs to no known ending as a whole; empty for what has no host.
[[nodiscard]] std::string SiteOf(std::u16string_view url);

/// What an answer is told apart by: the host that was judged, and the site above it, as far as its address has them.
[[nodiscard]] std::string HostOf(const Judgement& judgement);
[[nodiscard]] std::string DomainOf(const Judgement& judgement);
/// The name of the brand that is imitated; empty for what isn't held.
[[nodiscard]] std::string ImitatedBrand(const Judgement& judgement);

}  // namespace zeph
