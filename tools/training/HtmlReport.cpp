// SPDX-License-Identifier: Apache-2.0
#include "tools/training/HtmlReport.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>
#include <string_view>
#include <vector>

namespace zeph::training {
namespace {

constexpr std::string_view kStyle = R"css(
:root{--ink:#1d2433;--soft:#5b6475;--line:#d9dee8;--paper:#fff;--ground:#f5f7fa;--bad:#b3261e;--good:#0b6b57;--old:#8a63d2}
@media (prefers-color-scheme:dark){:root{--ink:#e8ebf2;--soft:#a3adbf;--line:#3a4356;--paper:#1b2130;--ground:#121722;--bad:#ff8a80;--good:#5fd0b5;--old:#c3a5ff}}
*{box-sizing:border-box}
body{margin:0;background:var(--ground);color:var(--ink);font:16px/1.5 system-ui,sans-serif}
main{max-width:72rem;margin:0 auto;padding:1.5rem 1rem 4rem}
h1{font-size:1.6rem;margin:.2rem 0}h2{font-size:1.15rem;margin:0 0 .6rem}
p{margin:.3rem 0 .8rem;color:var(--soft)}
section{background:var(--paper);border:1px solid var(--line);border-radius:10px;padding:1rem 1.2rem;margin:1rem 0}
.tiles{display:grid;grid-template-columns:repeat(auto-fit,minmax(11rem,1fr));gap:.8rem}
.tile{background:var(--paper);border:1px solid var(--line);border-radius:10px;padding:.8rem 1rem}
.tile b{display:block;font-size:1.7rem;line-height:1.2;font-variant-numeric:tabular-nums}
.tile span{display:block;color:var(--soft);font-size:.85rem}
.pair{display:grid;grid-template-columns:repeat(auto-fit,minmax(min(100%,26rem),1fr));gap:1rem}
.pair section{margin:0}
svg{width:100%;height:auto;display:block}
svg text{fill:var(--soft);font-size:12px}
.axis{stroke:var(--line)}.now{stroke:var(--good);fill:none;stroke-width:2.5}.before{stroke:var(--old);fill:none;stroke-width:2;stroke-dasharray:6 4}
.bad{fill:var(--bad)}.good{fill:var(--good)}.bad-text{color:var(--bad)}.good-text{color:var(--good)}
.scroll{overflow-x:auto}
table{border-collapse:collapse;width:100%;font-size:.9rem;font-variant-numeric:tabular-nums}
th,td{text-align:right;padding:.3rem .6rem;border-bottom:1px solid var(--line);white-space:nowrap}
th{color:var(--soft);font-weight:600}
th:first-child,td:first-child,.left{text-align:left}
td.wrap{white-space:normal;overflow-wrap:anywhere;min-width:16rem}
.bar{display:inline-block;height:.6rem;border-radius:2px;vertical-align:middle;background:var(--good)}
.bar.wrong{background:var(--bad)}
code{font-size:.85rem;overflow-wrap:anywhere}
li{margin:.5rem 0}li small{display:block;color:var(--soft)}
)css";

std::string Escaped(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    switch (c) {
      case '&': escaped += "&amp;"; break;
      case '<': escaped += "&lt;"; break;
      case '>': escaped += "&gt;"; break;
      case '"': escaped += "&quot;"; break;
      default: escaped += static_cast<unsigned char>(c) < 0x20 ? ' ' : c;
    }
  }
  return escaped;
}

std::string Number(double value, int digits) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", digits, value);
  return text;
}

/// So many digits that small rates don't read as nothing.
std::string Percent(double share) {
  const double percent = 100.0 * share;
  return Number(percent, percent == 0.0 || percent >= 10.0 ? 1 : percent >= 1.0 ? 2 : percent >= 0.01 ? 3 : 4) + "&nbsp;%";
}

std::string Interval(const Rate& rate) {
  return "95% between " + Percent(rate.low) + " and " + Percent(rate.high) + ", " + std::to_string(rate.hits) + " of " +
         std::to_string(rate.all);
}

std::string Tile(std::string_view name, const std::string& value, const std::string& more, std::string_view kind = "") {
  return "<div class=tile><span>" + std::string(name) + "</span><b class=\"" + std::string(kind) + "\">" + value +
         "</b><span>" + more + "</span></div>\n";
}

/// A drawing with axes; places in it are shares of its width and height, from the lower left corner.
class Plot {
 public:
  explicit Plot(std::string_view label) : label_(label) {}

  void TickX(double at, std::string_view text) {
    Line(X(at), Y(0), X(at), Y(1));
    Text(X(at), kHeight - 22, text, "middle");
  }
  void TickY(double at, std::string_view text) {
    Line(X(0), Y(at), X(1), Y(at));
    Text(kLeft - 6, Y(at) + 4, text, "end");
  }
  void NameX(std::string_view text) { Text((X(0) + X(1)) / 2, kHeight - 4, text, "middle"); }
  void Curve(const std::vector<std::pair<double, double>>& points, std::string_view kind) {
    body_ += "<polyline class=\"" + std::string(kind) + "\" points=\"";
    for (const auto& [x, y] : points) body_ += Number(X(x), 1) + "," + Number(Y(y), 1) + " ";
    body_ += "\"/>\n";
  }
  /// A bar from the middle line up, or down.
  void Bar(double x, double width, double from, double to, std::string_view kind) {
    body_ += "<rect class=\"" + std::string(kind) + "\" x=\"" + Number(X(x), 1) + "\" width=\"" +
             Number(std::max(0.5, width * (X(1) - X(0)) - 1), 1) + "\" y=\"" + Number(Y(std::max(from, to)), 1) +
             "\" height=\"" + Number(std::abs(Y(from) - Y(to)), 1) + "\"/>\n";
  }
  void Note(double x, double y, std::string_view text, std::string_view anchor = "start") { Text(X(x), Y(y), text, anchor); }
  void Mark(double x) {
    body_ += "<line x1=\"" + Number(X(x), 1) + "\" x2=\"" + Number(X(x), 1) + "\" y1=\"" + Number(Y(0), 1) + "\" y2=\"" +
             Number(Y(1), 1) + "\" stroke=\"currentColor\" stroke-dasharray=\"3 3\"/>\n";
  }

  [[nodiscard]] std::string Take() const {
    return "<svg viewBox=\"0 0 520 320\" role=img aria-label=\"" + label_ + "\">\n" + body_ + "</svg>\n";
  }

 private:
  static constexpr double kWidth = 520, kHeight = 320, kLeft = 50;
  static double X(double share) { return kLeft + share * (kWidth - kLeft - 16); }
  static double Y(double share) { return 10 + (1 - share) * (kHeight - 52); }
  void Line(double x1, double y1, double x2, double y2) {
    body_ += "<line class=axis x1=\"" + Number(x1, 1) + "\" y1=\"" + Number(y1, 1) + "\" x2=\"" + Number(x2, 1) +
             "\" y2=\"" + Number(y2, 1) + "\"/>\n";
  }
  void Text(double x, double y, std::string_view text, std::string_view anchor) {
    body_ += "<text x=\"" + Number(x, 1) + "\" y=\"" + Number(y, 1) + "\" text-anchor=" + std::string(anchor) + ">" +
             std::string(text) + "</text>\n";
  }

  std::string label_;
  std::string body_;
};

/// False positives from 1 in 100,000 to all, each decade as wide as the next.
double DecadePlace(double rate) { return std::clamp(1.0 + std::log10(std::max(rate, 1e-5)) / 5.0, 0.0, 1.0); }

std::string CurvePlot(const Evaluation& now, const std::optional<Evaluation>& before) {
  Plot plot("Phishing found at each rate of false positives");
  const std::pair<double, std::string_view> decades[] = {{1e-5, "0.001%"}, {1e-4, "0.01%"}, {1e-3, "0.1%"},
                                                         {1e-2, "1%"},     {1e-1, "10%"},   {1.0, "100%"}};
  for (const auto& [rate, text] : decades) plot.TickX(DecadePlace(rate), text);
  for (int tenth = 0; tenth <= 10; tenth += 2) plot.TickY(tenth / 10.0, std::to_string(10 * tenth) + "%");
  plot.NameX("legitimate inputs above the cut");
  const auto draw = [&](const Evaluation& evaluation, std::string_view kind) {
    std::vector<std::pair<double, double>> points;
    for (const CurvePoint& point : evaluation.curve) {
      if (point.falsePositives > 0) points.emplace_back(DecadePlace(point.falsePositives), point.truePositives);
    }
    plot.Curve(points, kind);
  };
  if (before) draw(*before, "before");
  draw(now, "now");
  return plot.Take();
}

std::string HistogramPlot(const Evaluation& evaluation) {
  Plot plot("Scores of phishing and of legitimate inputs");
  for (const bool kind : {false, true}) {
    const auto& bins = evaluation.histogram[kind];
    const double most = static_cast<double>(std::max<std::size_t>(1, *std::ranges::max_element(bins)));
    for (std::size_t i = 0; i < bins.size(); ++i) {
      // The root, so that few aren't none.
      const double height = 0.47 * std::sqrt(static_cast<double>(bins[i]) / most);
      if (bins[i] == 0) continue;
      plot.Bar(static_cast<double>(i) / kScoreBins, 1.0 / kScoreBins, 0.5, kind ? 0.5 + height : 0.5 - height,
               kind ? "bad" : "good");
    }
  }
  for (int logit = -10; logit <= 10; logit += 5) plot.TickX((logit - kLowestScore) / 20.0, std::to_string(logit));
  plot.Mark((std::log(0.89 / 0.11) - kLowestScore) / 20.0);
  plot.Note(0.99, 0.94, "phishing", "end");
  plot.Note(0.01, 0.04, "legitimate");
  plot.NameX("score (log odds); what lies right of the broken line is held");
  return plot.Take();
}

std::string CalibrationPlot(const Evaluation& evaluation) {
  Plot plot("Share of phishing among inputs of each spooficity");
  for (int tenth = 0; tenth <= 10; tenth += 2) {
    plot.TickX(tenth / 10.0, Number(tenth / 10.0, 1));
    plot.TickY(tenth / 10.0, std::to_string(10 * tenth) + "%");
  }
  plot.Curve({{0, 0}, {1, 1}}, "before");
  for (std::size_t i = 0; i < evaluation.calibration.size(); ++i) {
    const CalibrationBin& bin = evaluation.calibration[i];
    if (bin.all == 0) continue;
    plot.Bar(static_cast<double>(i) / 10.0 + 0.01, 0.08, 0,
             static_cast<double>(bin.phishing) / static_cast<double>(bin.all), "good");
  }
  plot.NameX("spooficity");
  return plot.Take();
}

std::string Bar(double share, bool isWrong) {
  return "<span class=\"bar" + std::string(isWrong ? " wrong" : "") + "\" style=\"width:" +
         Number(std::clamp(share, 0.0, 1.0) * 6, 2) + "rem\"></span>";
}

std::string SliceTable(const Evaluation& evaluation) {
  std::string table =
      "<div class=scroll><table><tr><th>slice<th>phishing<th class=left>held<th><th>above the 0.1% cut<th>legitimate"
      "<th class=left>held<th><th>above the 0.1% cut</tr>\n";
  std::string dimension;
  for (const SliceFigures& slice : evaluation.slices) {
    if (slice.dimension != dimension) {
      dimension = slice.dimension;
      table += "<tr><th colspan=9>by " + Escaped(dimension) + "</tr>\n";
    }
    table += "<tr><td>" + Escaped(slice.value);
    for (const bool kind : {true, false}) {
      if (slice.held[kind].all == 0) {
        table += "<td>-<td><td><td>";
        continue;
      }
      // A percent of the legitimate ones is as wide as all of the phishing.
      const double width = kind ? slice.held[kind].value : slice.held[kind].value * 100;
      table += "<td>" + std::to_string(slice.held[kind].all) + "<td class=left>" + Bar(width, !kind) + "<td>" +
               Percent(slice.held[kind].value) + "<td>" + Percent(slice.aboveCut[kind].value);
    }
    table += "</tr>\n";
  }
  return table + "</table></div>\n";
}

std::string RuleTable(const Evaluation& evaluation) {
  std::string table =
      "<div class=scroll><table><tr><th>rule<th class=left>asks<th>weight<th>fired on phishing<th>on legitimate<th>lift"
      "<th>held without it: phishing<th>legitimate</tr>\n";
  for (const RuleFigures& rule : evaluation.rules) {
    const auto weight = [](float value) { return value == kNoWeight ? std::string("-") : Number(static_cast<double>(value), 3); };
    const double lift = rule.fired[1].value / std::max(rule.fired[0].value, 0.5 / static_cast<double>(std::max<std::size_t>(1, rule.fired[0].all)));
    table += "<tr><td>" + std::to_string(rule.rule) + "<td class=\"left wrap\">" + Escaped(rule.name) + "<td>" +
             weight(rule.onWeight) + (rule.offWeight == kNoWeight ? "" : " / " + weight(rule.offWeight)) + "<td>" +
             Percent(rule.fired[1].value) + "<td>" + Percent(rule.fired[0].value) + "<td>" +
             (rule.fired[1].hits + rule.fired[0].hits == 0 ? "-" : Number(lift, lift < 10 ? 2 : 0)) + "<td>" +
             Percent(rule.heldWithout[1].value) + "<td>" + Percent(rule.heldWithout[0].value) + "</tr>\n";
  }
  return table + "</table></div>\n";
}

std::string CaseList(const std::vector<WorstCase>& cases) {
  if (cases.empty()) return "<p>None.</p>\n";
  std::string list = "<ol>\n";
  for (const WorstCase& one : cases) {
    list += "<li><code>" + Escaped(one.input.substr(0, 300)) + "</code> <b>" + Number(one.spooficity, 3) + "</b><small>";
    for (std::size_t i = 0; i < one.reasons.size(); ++i) list += (i == 0 ? "" : "<br>") + Escaped(one.reasons[i]);
    list += "</small>\n";
  }
  return list + "</ol>\n";
}

std::string Examples(std::string_view title, const std::vector<std::string>& inputs, bool isGood) {
  constexpr std::size_t kMost = 12;
  std::string text = "<section><h2 class=\"" + std::string(isGood ? "good-text" : "bad-text") + "\">" + std::string(title) +
                     ": " + std::to_string(inputs.size()) + "</h2>\n<ul>";
  for (std::size_t i = 0; i < std::min(kMost, inputs.size()); ++i) {
    text += "<li><code>" + Escaped(inputs[i].substr(0, 200)) + "</code>\n";
  }
  return text + "</ul></section>\n";
}

}  // namespace

std::string HtmlReport(const ReportHead& head, const Evaluation& evaluation, const std::optional<Evaluation>& baseline,
                       const std::optional<Comparison>& comparison) {
  std::string page = "<!DOCTYPE html>\n<html lang=en><head><meta charset=utf-8><meta name=viewport "
                     "content=\"width=device-width,initial-scale=1\"><title>" +
                     Escaped(head.title) + "</title><style>" + std::string(kStyle) + "</style></head><body><main>\n";
  page += "<h1>" + Escaped(head.title) + "</h1>\n<p>" + Escaped(head.package) +
          (head.baseline.empty() ? "" : ", against " + Escaped(head.baseline)) + ". " +
          std::to_string(evaluation.inputs[1]) + " phishing and " + std::to_string(evaluation.inputs[0]) +
          " legitimate inputs" +
          (evaluation.unjudged > 0 ? ", of which " + std::to_string(evaluation.unjudged) + " can't be judged" : "") +
          ".</p>\n<div class=tiles>\n";
  const auto before = [&](const Rate& rate) { return baseline ? "; before " + Percent(rate.value) : std::string(); };
  page += Tile("Phishing held", Percent(evaluation.held[1].value),
               Interval(evaluation.held[1]) + before(baseline ? baseline->held[1] : Rate()), "good-text");
  page += Tile("Legitimate held", Percent(evaluation.held[0].value),
               Interval(evaluation.held[0]) + before(baseline ? baseline->held[0] : Rate()), "bad-text");
  for (std::size_t i = 0; i < evaluation.foundAt.size(); ++i) {
    const auto& [rate, found] = evaluation.foundAt[i];
    page += Tile("Found at " + Percent(rate) + " false positives", Percent(found.value),
                 Interval(found) + before(baseline ? baseline->foundAt[i].second : Rate()));
  }
  page += Tile("Area under the curve", Number(evaluation.area, 4),
               baseline ? "before " + Number(baseline->area, 4) : "1 is perfect, 0.5 is chance");
  const std::size_t named = evaluation.brandsRight + evaluation.brandsWrong + evaluation.brandsUnnamed;
  if (named > 0) {
    page += Tile("Brand named right", Percent(static_cast<double>(evaluation.brandsRight) / static_cast<double>(named)),
                 "of " + std::to_string(named) + " held that are labelled; " + std::to_string(evaluation.brandsWrong) +
                     " wrong, " + std::to_string(evaluation.brandsUnnamed) + " without a name");
  }
  page += "</div>\n<div class=pair style=\"margin-top:1rem\">\n<section><h2>Along the score</h2><p>How much phishing lies "
          "above a cut, by how many legitimate inputs do" +
          std::string(baseline ? "; broken line: before" : "") + ".</p>" + CurvePlot(evaluation, baseline) +
          "</section>\n<section><h2>Where the scores lie</h2><p>Heights are square roots, so that few aren't "
          "none.</p>" +
          HistogramPlot(evaluation) + "</section>\n<section><h2>Calibration</h2><p>Bars on the broken line would mean that a "
          "spooficity is a probability among these inputs.</p>" +
          CalibrationPlot(evaluation) + "</section>\n</div>\n";
  if (comparison) {
    page += "<div class=pair>\n" + Examples("Phishing now held", comparison->found, true) +
            Examples("Phishing no longer held", comparison->lost, false) +
            Examples("Legitimate no longer held", comparison->cleared, true) +
            Examples("Legitimate now held", comparison->accused, false) + "</div>\n";
  }
  page += "<section><h2>Slices</h2>" + SliceTable(evaluation) + "</section>\n";
  page += "<section><h2>Rules</h2><p>Lift: how many times as often it fires on phishing. The last columns tell what would "
          "be held if it said nothing.</p>" +
          RuleTable(evaluation) + "</section>\n";
  page += "<section><h2>Legitimate, but held</h2>" + CaseList(evaluation.wronglyHeld) + "</section>\n";
  page += "<section><h2>Phishing with the lowest scores</h2>" + CaseList(evaluation.missed) + "</section>\n";
  return page + "</main></body></html>\n";
}

}  // namespace zeph::training
