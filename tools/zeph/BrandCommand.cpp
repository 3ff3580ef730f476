// SPDX-License-Identifier: Apache-2.0
// Likeness of hosts to protected brands, from both sides: what a host resembles, and which hosts resemble a brand.
#include <algorithm>
#include <iostream>
#include <sstream>

#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/text/Text.h"
#include "judging/Json.h"
#include "tools/lookalikes/Lookalikes.h"
#include "tools/zeph/Common.h"

namespace zeph {

namespace {

struct BrandOptions {
  ConfigurationChoice configuration;
  std::vector<std::string> inputs;
  std::vector<std::string> brands;
  bool json = false;
};

std::string CompanyOf(const Configuration& configuration, const std::string& brand) {
  const auto info = configuration.TrustedDomainInfos.find(Widen(brand));
  return info == configuration.TrustedDomainInfos.end() || info->second.CN.empty() ? brand : Narrow(info->second.CN);
}

/// "paypal.com" by "PayPal", "paypal.com" or another of its domains.
const std::pair<const std::u16string, TrustedDomainInfo>* FindBrand(const Configuration& configuration,
                                                                    const std::string& named) {
  const std::u16string wanted = ToLower(Widen(named));
  for (const auto& brand : configuration.TrustedDomainInfos) {
    if (brand.first == wanted || ToLower(brand.second.CN) == wanted) return &brand;
  }
  for (const auto& brand : configuration.TrustedDomainInfos) {
    if (std::ranges::find(brand.second.DT, wanted) != brand.second.DT.end()) return &brand;
  }
  return nullptr;
}

std::string InWords(const Resemblance& likeness) {
  switch (likeness.likeness) {
    case Likeness::kPunycode:
      return likeness.part + " reads like " + likeness.name;
    case Likeness::kHomoglyph:
      return likeness.part + " looks like " + likeness.name;
    case Likeness::kSubdomain:
      return likeness.part + " stands in front of somebody else's domain";
    case Likeness::kHyphenation:
      return likeness.part + " is " + likeness.name + " between hyphens";
    case Likeness::kKeyboard:
    case Likeness::kSpelling:
      return likeness.part + " is " + likeness.name + " but for " + std::to_string(likeness.distance) + " letter";
    case Likeness::kTag:
      break;
  }
  return likeness.part + " holds " + likeness.name;
}

void WriteLikeness(JsonWriter& json, const Configuration& configuration, const Resemblance& likeness) {
  WriteObject(json, "brand", likeness.brand, "company", CompanyOf(configuration, likeness.brand), "by",
              LikenessName(likeness.likeness), "part", likeness.part, "name", likeness.name, "distance",
              likeness.distance);
}

void TellBrands(const BrandOptions& options) {
  UseConfiguration(options.configuration);
  const auto pair = ActiveConfiguration();
  const Configuration& configuration = pair->configuration;
  Lookalikes lookalikes;
  lookalikes.AddAll(configuration);
  ForEachInput(options.inputs, [&](const std::string& input) {
    const std::string host = HostOf(input);
    const std::string owner = lookalikes.OwnerOf(host);
    const std::vector<Resemblance> found = lookalikes.Of(host);
    if (options.json) {
      JsonWriter json;
      json.BeginObject();
      WriteMember(json, "input", input);
      WriteMember(json, "host", host);
      WriteMember(json, "owner", owner.empty() ? std::optional<std::string>() : std::optional(owner));
      json.Key("resembles");
      json.BeginArray();
      for (const Resemblance& likeness : found) WriteLikeness(json, configuration, likeness);
      json.EndArray();
      json.EndObject();
      return PrintLine(json.Take());
    }
    std::ostringstream text;
    text << input;
    if (host.empty()) text << "\n    holds no host";
    if (!owner.empty()) text << "\n    belongs to " << CompanyOf(configuration, owner) << " (" << owner << ')';
    if (!host.empty() && owner.empty() && found.empty()) text << "\n    resembles no brand";
    for (const Resemblance& likeness : found) {
      text << "\n    " << CompanyOf(configuration, likeness.brand) << " (" << likeness.brand << "), by "
           << LikenessName(likeness.likeness) << ": " << InWords(likeness);
    }
    PrintLine(text.str());
  });
}

void Untwist(const BrandOptions& options) {
  UseConfiguration(options.configuration);
  const auto pair = ActiveConfiguration();
  Lookalikes lookalikes;
  if (options.brands.empty()) lookalikes.AddAll(pair->configuration);
  for (const std::string& named : options.brands) {
    if (const auto* const brand = FindBrand(pair->configuration, named)) {
      Configuration one;
      one.TrustedDomainInfos.insert(*brand);
      lookalikes.AddAll(one);
    } else {
      const std::string name = Narrow(ToLower(Widen(named)));
      lookalikes.Add(name, {name}, {name.substr(0, name.find('.'))});
    }
  }
  Progress progress("hosts", 0);
  std::string line;
  while (std::getline(std::cin, line)) {
    progress.Step();
    const std::string host = HostOf(line);
    const std::vector<Resemblance> found = lookalikes.Of(host);
    for (const Resemblance& likeness : found) {
      if (options.json) {
        JsonWriter json;
        json.BeginObject();
        WriteMember(json, "host", host);
        WriteMember(json, "brand", likeness.brand);
        WriteMember(json, "by", LikenessName(likeness.likeness));
        WriteMember(json, "part", likeness.part);
        WriteMember(json, "name", likeness.name);
        json.EndObject();
        PrintText(json.Take() + "\n");
      } else {
        PrintText(host + "\t" + likeness.brand + "\t" + std::string(LikenessName(likeness.likeness)) + "\t" +
                  likeness.part + "\n");
      }
    }
  }
}

}  // namespace

void AddBrandCommands(CLI::App& program) {
  CLI::App* brand = program.add_subcommand("brand", "Tell which protected brands a host resembles, and by what");
  auto options = std::make_shared<BrandOptions>();
  brand->add_option("input", options->inputs, "Hosts or URLs; - reads one a line")->required();
  brand->add_flag("--json", options->json, "One JSON object a line");
  AddConfigurationOptions(*brand, options->configuration);
  brand->footer("By punycode, homoglyph, subdomain, hyphenation, keyboard slip, spelling distance or tag, the most telling first.");
  brand->callback([options] { TellBrands(*options); });

  CLI::App* untwist =
      program.add_subcommand("untwist", "Find the hosts on standard input that imitate a brand: new domains, certificates");
  auto untwistOptions = std::make_shared<BrandOptions>();
  untwist->add_option("brand", untwistOptions->brands,
                      "Company names or domains; one that the package doesn't know stands for itself (default: all)");
  untwist->add_flag("--json", untwistOptions->json, "One JSON object a line");
  AddConfigurationOptions(*untwist, untwistOptions->configuration);
  untwist->footer("A line of output: host, brand, by what, and what of the host, parted by tabs. A brand's own hosts are left out.");
  untwist->callback([untwistOptions] { Untwist(*untwistOptions); });
}

}  // namespace zeph
