// SPDX-License-Identifier: Apache-2.0
#include "authoring/XmlWriter.h"

#include <array>
#include <cstdio>
#include <map>

#include "DetectionEngine/configuration/TextSources.h"
#include "DetectionEngine/platform/CodePage.h"

namespace zeph {

namespace {

constexpr std::array kLocationTags = {"Domain", "URL", "Hostname", "Network"};

std::string QuadText(std::uint32_t address) {
  std::string text;
  for (int shift = 24; shift >= 0; shift -= 8) {
    text += std::to_string(address >> shift & 0xFFU) + (shift > 0 ? "." : "");
  }
  return text;
}

std::string RealDigits(double number) {
  char text[64];
  for (int digits = 6; digits <= 17; ++digits) {
    std::snprintf(text, sizeof text, "%.*g", digits, number);
    double back = 0;
    std::sscanf(text, "%lf", &back);
    if (back == number) break;
  }
  return text;
}

/// One source, line by line.
class Text {
 public:
  explicit Text(XmlSources& sources) : sources_(sources) {}

  void Mark(std::string_view tag) { text_ += "<" + std::string(tag) + ">\n"; }
  /// The value as it stands.
  void Plain(std::string_view tag, std::u16string_view value) { Line(tag, Narrow(value)); }
  /// The value with its "&" and what lies outside ASCII written as references.
  void Decoded(std::string_view tag, std::u16string_view value) {
    std::string text;
    for (const char16_t unit : value) {
      if (unit == u'&') {
        text += "&amp;";
      } else if (unit < 0x80) {
        text += static_cast<char>(unit);
      } else {
        char reference[16];
        std::snprintf(reference, sizeof reference, "&#%04u;", static_cast<unsigned>(unit));
        text += reference;
      }
    }
    Line(tag, text);
  }
  void Line(std::string_view tag, const std::string& value) {
    if (value.find_first_of("<\n") != std::string::npos || value.find('\0') != std::string::npos || value.size() > kLongestTagValue) {
      if (sources_.refusal.empty()) {
        sources_.refusal = "a <" + std::string(tag) + "> holds a \"<\", a line end or too much: " + value.substr(0, 60);
      }
      return;
    }
    if (!value.empty()) text_ += "<" + std::string(tag) + ">" + value + "</" + std::string(tag) + ">\n";
  }
  void Number(std::string_view tag, std::uint32_t value) { Line(tag, std::to_string(static_cast<std::int32_t>(value))); }
  void Location(const NetLocation& location) {
    if (location.Type == kNetwork) {
      const std::uint32_t mask = ~(location.Range.Last - location.Range.First);
      Line("Network", QuadText(location.Range.First) + "/" + QuadText(mask));
    } else if (location.Type < kLocationTags.size()) {
      Decoded(kLocationTags[location.Type], location.Name);
    }
  }
  void Joined(std::string_view tag, const std::vector<std::u16string>& items, char16_t separator, bool plain) {
    std::u16string joined;
    for (const std::u16string& item : items) {
      if (!joined.empty()) joined += separator;
      joined += item;
    }
    if (plain) {
      Plain(tag, joined);
    } else {
      Decoded(tag, joined);
    }
  }
  void End(std::string name) {
    if (!text_.empty()) sources_.files.push_back({std::move(name), std::move(text_)});
    text_.clear();
  }

 private:
  XmlSources& sources_;
  std::string text_;
};

}  // namespace

void WriteTrustedDomains(const Configuration& configuration, XmlSources& sources) {
  Text text(sources);
  for (const NetLocation& brand : configuration.TrustedDomains.Entries) {
    text.Mark("Trusted.Domain");
    text.Plain("Domain", brand.Name);
    const auto at = configuration.TrustedDomainInfos.find(brand.Name);
    if (at != configuration.TrustedDomainInfos.end()) {
      const TrustedDomainInfo& info = at->second;
      text.Decoded("CN", info.CN);
      text.Joined("UT", info.UT, u'^', false);
      text.Joined("TT", info.TT, u'^', false);
      text.Joined("CT", info.CT, u'^', false);
      text.Joined("DT", info.DT, u'^', true);
      if (!info.NT) text.Line("NT", "No");
    }
    text.Mark("/Trusted.Domain");
  }
  text.End("TrustedDomains.xml");
}

void WriteSafeList(const Configuration& configuration, XmlSources& sources) {
  Text text(sources);
  std::u16string brand;
  std::size_t files = 0;
  const auto end = [&] { text.End(files++ == 0 ? "SafeList" : "SafeList." + std::to_string(files)); };
  const auto write = [&](const NetLocation& location) {
    if (location.TrustedDomainName != brand) {
      // A file begins without a brand, and nothing ends one but another.
      if (location.TrustedDomainName.empty()) end();
      else text.Mark("Trusted.Domain D=\"" + Narrow(location.TrustedDomainName) + "\"");
      brand = location.TrustedDomainName;
    }
    text.Location(location);
  };
  std::vector<const NetLocation*> branded;
  for (const NetLocation& location : configuration.SafeList.Domains) {
    if (location.TrustedDomainName.empty()) write(location);
  }
  if (!configuration.ExceptionDomains.Entries.empty()) {
    text.Mark("Exception.Domains");
    for (const NetLocation& location : configuration.ExceptionDomains.Entries) text.Location(location);
    text.Mark("/Exception.Domains");
  }
  for (const NetLocation& location : configuration.SafeList.Others.Entries) write(location);
  for (const NetLocation& location : configuration.SafeList.Domains) {
    if (!location.TrustedDomainName.empty()) write(location);
  }
  end();
}

void WriteWorld(const Configuration& configuration, XmlSources& sources) {
  Text text(sources);
  const auto list = [&](const NetLocationList& locations, const char* name) {
    for (const NetLocation& location : locations.Entries) text.Location(location);
    text.End(name);
  };
  for (const NetLocation& location : configuration.BlockList.Entries) {
    text.Location(location);
    const auto brand = configuration.BlockedToTrusted.find(location.Name);
    if (brand != configuration.BlockedToTrusted.end()) text.Plain("TD", brand->second);
  }
  text.End("Identifiers.xml");
  list(configuration.PopularSites, "PopularSites.xml");
  list(configuration.SearchServices, "SearchServices.xml");
  list(configuration.WebHostingSites, "WebHostingSites.xml");
  for (const Redirector& redirector : configuration.Redirectors) {
    text.Mark("ProxyPattern");
    text.Plain("StartsWith", redirector.StartsWith);
    text.Plain("UrlIsValueOfKey", redirector.UrlIsValueOfKey);
    if (redirector.SkipNumericOptions) text.Line("SkipNumericOptions", "Yes");
    if (redirector.CompleteScheme) text.Line("CompleteScheme", "Yes");
    text.Mark("/ProxyPattern");
  }
  text.End("Redirectors.xml");
  for (const auto& [token, probability] : configuration.UrlAnalysisTable.Sorted()) {
    text.Plain("k", token);
    text.Line("p", RealDigits(probability));
  }
  for (const std::u16string& word : configuration.UrlAnalysisWords) text.Plain("w", word);
  text.End("URLAnalysis.xml");
  const Resources& resources = configuration.Resources;
  text.Plain("Server", resources.Server);
  text.Plain("ConfigFile", resources.ConfigFile);
  if (resources.DownloadFrequency != 0) text.Number("DownloadFrequency", resources.DownloadFrequency);
  text.Plain("Group", resources.Group);
  text.Joined("TRLMBrands", resources.TRLMBrands, u',', true);
  text.Joined("TRLMBrandIDs", resources.TRLMBrandIDs, u',', true);
  text.End("Resources.xml");
}

void WriteRules(const NamedRules& named, XmlSources& sources) {
  Text text(sources);
  for (std::size_t i = 0; i < named.rules.Entries.size(); ++i) {
    const Indicator& rule = named.rules.Entries[i];
    text.Mark("Indicator");
    if (i < named.names.size()) text.Decoded("Name", Widen(named.names[i]));
    if (i < named.sentences.size()) text.Decoded("Sentence", Widen(named.sentences[i]));
    text.Number("Category", rule.Rule.Category);
    if (rule.OnWeight != kNoWeight) text.Line("OnWeight", RealDigits(static_cast<double>(rule.OnWeight)));
    if (rule.OffWeight != kNoWeight) text.Line("OffWeight", RealDigits(static_cast<double>(rule.OffWeight)));
    if (rule.Rule.TDPriority != 0) text.Number("TDPriority", rule.Rule.TDPriority);
    if (rule.Rule.OperatorID != 0) text.Number("OperatorID", rule.Rule.OperatorID);
    for (const IndicatorExpression& expression : rule.Rule.Expressions) {
      text.Mark("Expression");
      text.Number("FieldID", expression.FieldID);
      text.Number("MethodID", expression.MethodID);
      text.Number("ValueType", expression.ExpressionValue.ValueType);
      text.Decoded("Value", expression.ExpressionValue.Value);
      text.Mark("/Expression");
    }
    text.Mark("/Indicator");
  }
  text.End("Indicators.xml");
}

}  // namespace zeph
