// SPDX-License-Identifier: Apache-2.0
#include "gateways/milter/Figures.h"

#include <sstream>

namespace zeph::milter {

std::string Figures::Line() const {
  std::ostringstream line;
  std::uint64_t letters = 0;
  for (const auto& count : verdicts_) letters += count;
  line << "letters=" << letters;
  for (std::size_t i = 0; i < verdicts_.size(); ++i) {
    line << ' ' << NameOf(static_cast<Verdict>(i)) << '=' << verdicts_[i];
  }
  for (std::size_t i = 0; i < failures_.size(); ++i) line << ' ' << kFailureNames[i] << '=' << failures_[i];
  line << " rejected=" << rejected << " quarantined=" << quarantined << " passed-unjudged=" << passedUnjudged
       << " deferred=" << deferred << " cut=" << cut << " forged-headers=" << forgedHeaders << " broken=" << broken
       << " in-hand=" << inHand;
  return line.str();
}

std::string Figures::Metrics() const {
  std::ostringstream text;
  const auto head = [&text](std::string_view name, std::string_view help, std::string_view type) {
    text << "# HELP " << name << ' ' << help << "\n# TYPE " << name << ' ' << type << '\n';
  };
  head("zeph_milter_letters_total", "Letters that were judged, by verdict.", "counter");
  for (std::size_t i = 0; i < verdicts_.size(); ++i) {
    text << "zeph_milter_letters_total{verdict=\"" << NameOf(static_cast<Verdict>(i)) << "\"} " << verdicts_[i] << '\n';
  }
  head("zeph_milter_failures_total", "Letters on which the engine had no answer, by cause.", "counter");
  for (std::size_t i = 0; i < failures_.size(); ++i) {
    text << "zeph_milter_failures_total{cause=\"" << kFailureNames[i] << "\"} " << failures_[i] << '\n';
  }
  const auto one = [&](std::string_view name, std::string_view help, auto& value, std::string_view type = "counter") {
    head(name, help, type);
    text << name << ' ' << value << '\n';
  };
  one("zeph_milter_rejected_total", "Letters that were rejected.", rejected);
  one("zeph_milter_quarantined_total", "Letters that were quarantined.", quarantined);
  one("zeph_milter_passed_unjudged_total", "Letters that went on though the engine had no answer.", passedUnjudged);
  one("zeph_milter_deferred_total", "Letters whose senders were told to come again.", deferred);
  one("zeph_milter_cut_total", "Letters that were judged in part because of their length.", cut);
  one("zeph_milter_forged_headers_total", "Headers of the filter's name that letters brought and lost.", forgedHeaders);
  one("zeph_milter_broken_total", "Letters that the mail server gave up before their end.", broken);
  one("zeph_milter_letters_in_hand", "Letters that have begun and not ended.", inHand, "gauge");
  return text.str();
}

}  // namespace zeph::milter
