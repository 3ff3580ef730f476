// SPDX-License-Identifier: Apache-2.0
#include "judging/Answers.h"

#include <algorithm>
#include <array>
#include <iomanip>
#include <sstream>

#include "DetectionEngine/DetectionEngine.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/scoring/Spooficity.h"
#include "DetectionEngine/url/BrowserUrl.h"
#include "DetectionEngine/url/UrlParser.h"
#include "judging/Json.h"
#include "judging/ShownText.h"

namespace zeph {

namespace {

std::string_view InWords(Verdict verdict) {
  switch (verdict) {
    case Verdict::kTrustworthy:
      return "trustworthy";
    case Verdict::kSpoofing:
      return "SPOOFING";
    case Verdict::kSpoofingConfirmed:
      return "SPOOFING, confirmed by the server";
    case Verdict::kScriptAttack:
      return "SCRIPT ATTACK";
    case Verdict::kUnclassified:
      return "unclassified";
    case Verdict::kNotJudged:
      return "not judged";
  }
  return "";
}

std::string Painted(std::string_view text, Verdict verdict, bool colours) {
  if (!colours || verdict == Verdict::kUnclassified) return std::string(text);
  const std::string_view colour = IsHeld(verdict)                       ? "\x1b[1;31m"
                                  : verdict == Verdict::kTrustworthy ? "\x1b[32m"
                                                                     : "\x1b[33m";
  return std::string(colour).append(text).append("\x1b[0m");
}

std::string ScoreText(const Judgement& judgement) {
  if (!judgement.spooficity || judgement.verdict == Verdict::kNotJudged) return "";
  std::ostringstream text;
  text << std::fixed << std::setprecision(3) << *judgement.spooficity;
  return text.str();
}

std::string AnswerInWords(std::int32_t answer) {
  constexpr std::array<std::string_view, 6> kAnswers = {
      "no answer (the log tells why)", "1, trustworthy", "2, spoofing", "3, unclassified",
      "4, unknown to it and asked for a report", "5, confirmed"};
  return answer >= 0 && answer < static_cast<std::int32_t>(kAnswers.size())
             ? std::string(kAnswers[static_cast<std::size_t>(answer)])
             : std::to_string(answer);
}

std::string_view KindOf(const ServerCall& call) { return call.kind == ServerCall::Kind::kCheck ? "check" : "report"; }

/// What the server had to do with a verdict.
void TellServer(std::ostream& out, const Judgement& judgement) {
  const Settlement& settlement = judgement.trace.settlement;
  const std::string server =
      judgement.trace.pair == nullptr ? "" : Shown(judgement.trace.pair->configuration.Resources.Server);
  for (const ServerCall& call : settlement.calls) {
    out << "\n    " << (call.sent ? "sent: " : "not sent: ") << KindOf(call) << " of " << Shown(call.url) << " to "
        << (server.empty() ? "no server" : server) << (call.sent ? "" : " (see --privacy)");
  }
  if (settlement.serverAnswer) out << "\n    the server answered " << AnswerInWords(*settlement.serverAnswer);
  if (settlement.heldBack) {
    out << "\n    held for spoofing, but the warning is held back: a score changed between two visits less than a day "
           "ago";
  }
}

/// Where the address comes from, where that isn't plain.
void TellAddress(std::ostream& out, const Judgement& judgement) {
  if (judgement.byContentAlone) {
    out << "\n    judged by its content alone: nobody tells its address";
    if (!judgement.url.empty()) {
      out << ", but the page itself, which claims " << Shown(judgement.url) << " (--trust-claimed-url takes its word)";
    } else if (judgement.where.empty()) {
      out << " (--url or --map does)";
    }
  } else if (judgement.urlSource == UrlSource::kClaimed) {
    out << "\n    judged by the address that the page itself claims, " << Shown(judgement.url);
  } else if (judgement.urlSource == UrlSource::kMap || judgement.urlSource == UrlSource::kDocument) {
    out << "\n    its address, " << Shown(judgement.url) << ", comes from "
        << (judgement.urlSource == UrlSource::kMap ? "the list that goes with it" : "the file itself");
  } else if (!judgement.intake.empty()) {
    out << "\n    read as " << Shown(judgement.url);
  }
  if (!judgement.intake.empty()) out << " (" << judgement.intake << ')';
}

/// A weight as rules speak of it: one with a meaning of its own, or the figure.
std::string WeightInWords(float weight) {
  if (weight == kWeightTrustworthy) return "trust";
  if (weight == kWeightSpoofing) return "spoof";
  if (weight == kWeightUnclassified) return "open";
  if (weight == kWeightScriptAttack) return "script";
  std::ostringstream text;
  text << std::fixed << std::setprecision(2) << weight;
  return text.str();
}

/// Why, strongest first.
void TellReasons(std::ostream& out, const Judgement& judgement) {
  if (judgement.reasons.empty()) {
    out << "\n    no rule had anything to say";
    return;
  }
  out << "\n    weight  without  because";
  for (const Reason& reason : judgement.reasons) {
    out << "\n    " << std::setw(6) << WeightInWords(reason.weight) << "  " << std::fixed << std::setw(7)
        << std::setprecision(3) << reason.without << "  " << Shown(reason.sentence) << " [" << Shown(reason.rule) << ']';
    if (!reason.evidence.empty()) out << "\n                     " << Shown(reason.evidence);
  }
}

/// The parts that something is to be said of, each below the input; of the others how many they are.
void TellParts(std::ostream& out, const Judgement& judgement, bool explains, bool colours) {
  std::size_t silent = 0;
  for (const Judgement& part : judgement.parts) {
    if (!IsHeld(part.verdict) && part.verdict != Verdict::kNotJudged && !explains) {
      ++silent;
      continue;
    }
    std::string text = PersonAnswer(part, explains, colours);
    for (std::size_t line = text.find('\n'); line != std::string::npos; line = text.find('\n', line + 1)) {
      text.insert(line + 1, "    ");
    }
    out << "\n    " << Shown(part.where) << ": " << text;
  }
  if (silent > 0) out << "\n    " << silent << (silent == 1 ? " part" : " parts") << " that nothing speaks clearly against";
}

std::u16string BrandOf(const Judgement& judgement) {
  const ClassificationTrace& trace = judgement.trace;
  return trace.pair == nullptr ? std::u16string() : TopBrand(trace.pair->indicators, trace.results);
}

/// Cut and filled to a width, counted in characters.
std::string Padded(std::string text, std::size_t width) {
  std::size_t characters = 0;
  std::size_t at = 0;
  while (at < text.size() && characters < width) {
    ++at;
    while (at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0U) == 0x80U) ++at;
    ++characters;
  }
  text.resize(at);
  return text.append(width - characters, ' ');
}

constexpr std::size_t kVerdictWidth = 18;
constexpr std::size_t kScoreWidth = 5;
constexpr std::size_t kBrandWidth = 22;

void WriteAnswer(JsonWriter& json, const Judgement& judgement, bool explains) {
  WriteMember(json, "input", judgement.input);
  WriteMember(json, "result", judgement.result);
  WriteMember(json, "classification", judgement.classification);
  WriteMember(json, "spooficity", judgement.spooficity);
  WriteMember(json, "siteName", judgement.siteName);
  if (explains) {
    WriteMember(json, "brand", BrandOf(judgement));
    json.Key("indicators");
    json.BeginArray();
    for (std::size_t i = 0; i < judgement.trace.results.size(); ++i) {
      const IndicatorResult& result = judgement.trace.results[i];
      WriteObject(json, "index", i, "evaluated", result.evaluated, "on", result.on, "fieldText",
                  std::u16string_view(result.fieldText), "matchText", std::u16string_view(result.matchText));
    }
    json.EndArray();
  }
  const auto textOrNull = [&](std::string_view name, auto text) {
    json.Key(name);
    text.empty() ? json.Value(nullptr) : json.Value(text);
  };
  WriteMember(json, "verdict", NameOf(judgement.verdict));
  textOrNull("reason", std::string_view(judgement.reason));
  textOrNull("url", std::u16string_view(judgement.url));
  textOrNull("urlSource", NameOf(judgement.urlSource));
  WriteMember(json, "heldBack", judgement.trace.settlement.heldBack);
  json.Key("sent");
  json.BeginArray();
  for (const ServerCall& call : judgement.trace.settlement.calls) {
    WriteObject(json, "kind", KindOf(call), "url", call.url, "done", call.sent);
  }
  json.EndArray();
  if (explains) WriteMember(json, "reasons", judgement.reasons);
  json.Key("parts");
  json.BeginArray();
  for (const Judgement& part : judgement.parts) {
    json.BeginObject();
    WriteMember(json, "where", part.where);
    WriteAnswer(json, part, explains);
    json.EndObject();
  }
  json.EndArray();
}

}  // namespace

std::string JsonAnswer(const Judgement& judgement, bool explains) {
  JsonWriter json;
  json.BeginObject();
  WriteAnswer(json, judgement, explains);
  json.EndObject();
  return json.Take();
}

std::string PersonAnswer(const Judgement& judgement, bool explains, bool colours) {
  std::ostringstream out;
  out << Shown(judgement.input) << "\n    " << Painted(InWords(judgement.verdict), judgement.verdict, colours);
  if (!judgement.reason.empty()) out << ": " << Shown(judgement.reason);
  if (judgement.verdict == Verdict::kUnclassified) out << ": nothing speaks clearly for or against it";
  if (const std::string brand = ImitatedBrand(judgement); !brand.empty()) out << ", imitates " << Shown(brand);
  if (const std::string score = ScoreText(judgement); !score.empty()) out << " (spooficity " << score << ')';
  TellAddress(out, judgement);
  TellServer(out, judgement);
  if (explains && judgement.result && judgement.verdict != Verdict::kNotJudged) TellReasons(out, judgement);
  TellParts(out, judgement, explains, colours);
  return out.str();
}

std::string TableHead() {
  return Padded("verdict", kVerdictWidth) + "  score  " + Padded("brand", kBrandWidth) + "  input";
}

std::string TableRow(const Judgement& judgement, bool colours) {
  const std::string verdict = Padded(std::string(NameOf(judgement.verdict)), kVerdictWidth);
  std::string row = Painted(verdict, judgement.verdict, colours) + "  " + Padded(ScoreText(judgement), kScoreWidth) +
                    "  " + Padded(Shown(ImitatedBrand(judgement)), kBrandWidth) + "  " + Shown(judgement.input);
  if (!judgement.reason.empty()) row += " (" + Shown(judgement.reason) + ")";
  if (judgement.byContentAlone) row += " (by its content alone)";
  return row;
}

std::string CsvField(std::string_view text) {
  std::string shown = Shown(text);
  if (!shown.empty() && std::string_view("=+-@").find(shown.front()) != std::string_view::npos) shown.insert(0, "'");
  if (shown.find_first_of(",\"") == std::string::npos) return shown;
  std::string quoted = "\"";
  for (const char c : shown) quoted.append(c == '"' ? 2 : 1, c);
  return quoted + '"';
}

std::string CsvHead() { return "input,verdict,spooficity,brand,url,urlSource,heldBack,reason"; }

std::string CsvRow(const Judgement& judgement) {
  std::string row = CsvField(judgement.input);
  const auto add = [&row](std::string_view text) { row.append(",").append(CsvField(text)); };
  add(NameOf(judgement.verdict));
  add(ScoreText(judgement));
  add(ImitatedBrand(judgement));
  add(Narrow(judgement.url));
  add(NameOf(judgement.urlSource));
  add(judgement.trace.settlement.heldBack ? "true" : "false");
  add(judgement.reason);
  return row;
}

std::string HostOf(const Judgement& judgement) {
  const auto url = ReadBrowserUrl(judgement.url);
  return url && url->host ? Narrow(*url->host) : "";
}

std::string SiteOf(std::u16string_view url) {
  UrlParser parser;
  if (url.empty() || parser.DecodeUrl(url) != 0 || parser.Record().DomainTail.empty()) {
    const auto read = ReadBrowserUrl(url);
    return read && read->host ? Narrow(*read->host) : "";
  }
  const UrlRecord& record = parser.Record();
  const std::u16string_view host = record.HostName;
  const std::size_t label = host.rfind(u"." + record.MainDomain + u".");
  return Narrow(label == std::u16string_view::npos ? host : host.substr(label + 1));
}

std::string DomainOf(const Judgement& judgement) { return SiteOf(judgement.url); }

std::string ImitatedBrand(const Judgement& judgement) {
  return IsHeld(judgement.verdict) && judgement.siteName ? Narrow(*judgement.siteName) : "";
}

}  // namespace zeph
