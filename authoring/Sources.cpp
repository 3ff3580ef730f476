// SPDX-License-Identifier: Apache-2.0
#include "authoring/Sources.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <optional>
#include <utility>

#include "DetectionEngine/configuration/TextSources.h"
#include "DetectionEngine/platform/CodePage.h"
#include "authoring/BrandSource.h"
#include "authoring/SourceCheck.h"

namespace zeph {

namespace {

std::string_view BaseName(const SourceFile& file) {
  return std::string_view(file.name).substr(file.name.find_last_of('/') + 1);
}

bool SameSafeList(const Configuration& a, const Configuration& b) {
  return a.TrustedDomains == b.TrustedDomains && a.TrustedDomainInfos == b.TrustedDomainInfos && a.SafeList == b.SafeList;
}

}  // namespace

void ReadRuleNames(std::string_view source, NamedRules& rules) {
  std::string name;
  std::string sentence;
  while (const std::optional<SourceLine> line = NextLine(source)) {
    if (line->tag == "<Indicator>") name = sentence = {};
    if (line->tag == "<Name>") name = Narrow(DecodeEntities(line->tagValue));
    if (line->tag == "<Sentence>") sentence = Narrow(DecodeEntities(line->tagValue));
    if (line->tag != "</Indicator>") continue;
    rules.names.push_back(name);
    rules.sentences.push_back(sentence);
  }
}

Compiled CompileSources(std::span<const SourceFile> files, bool checkXml, Diagnostics& found,
                        Configuration world) {
  Compiled compiled;
  compiled.configuration = std::move(world);
  const SourceFile* rules = nullptr;
  const SourceFile* brands = nullptr;
  for (const SourceFile& file : files) {
    if (BaseName(file) == kRulesFile) rules = &file;
    if (BaseName(file) == kBrandsFile) brands = &file;
  }
  XmlSources made;
  if (brands != nullptr) {
    CompileBrands(*brands, compiled.configuration, found);
    WriteTrustedDomains(compiled.configuration, made);
    Configuration alone;  // what the brands add to the safe list
    alone.SafeList = compiled.configuration.SafeList;
    XmlSources safe;
    WriteSafeList(alone, safe);
    for (PackedFile& file : safe.files) made.files.push_back({"Brands." + file.Name, std::move(file.FileData)});
    if (made.refusal.empty()) made.refusal = safe.refusal;
  }
  std::vector<PackedFile> xml;
  for (const SourceFile& file : files) {
    if (&file == rules || &file == brands || BaseName(file).ends_with(".txt")) continue;
    if (rules != nullptr && BaseName(file).find("Indicators.xml") != std::string_view::npos) {
      found.Error({&file, 0, 0}, "the rules stand in " + std::string(kRulesFile) + " beside it", "take one of the two away");
    }
    if (brands != nullptr && BaseName(file).find("TrustedDomains.xml") != std::string_view::npos) {
      found.Error({&file, 0, 0}, "the brands stand in " + std::string(kBrandsFile) + " beside it", "take one of the two away");
    }
    if (checkXml) CheckSource(file, found);
    if (BaseName(file).find("Indicators.xml") != std::string_view::npos) ReadRuleNames(file.text, compiled.rules);
    xml.push_back({std::string(BaseName(file)), file.text});
  }
  if (rules != nullptr) {
    // Places point into the files that were given, so these are found among them.
    std::vector<const SourceFile*> wordFiles;
    for (const SourceFile& file : files) {
      if (BaseName(file).ends_with(".txt")) wordFiles.push_back(&file);
    }
    compiled.rules = CompileRules(*rules, wordFiles, found);
    WriteRules(compiled.rules, made);
  }
  compiled.tooMuch = !ParseTextFiles(xml, compiled.configuration, compiled.rules.rules);
  found.Sort();
  compiled.refusal = made.refusal;
  compiled.xml = std::move(made.files);
  compiled.xml.insert(compiled.xml.end(), xml.begin(), xml.end());
  const auto rank = [](const PackedFile& file) {
    return file.Name == "TrustedDomains.xml" ? 0 : file.Name.find("SafeList") != std::string::npos ? 1 : 2;
  };
  std::ranges::stable_sort(compiled.xml, {}, rank);
  return compiled;
}

XmlSources DecompileSources(const Configuration& configuration, const NamedRules& rules) {
  XmlSources sources;
  sources.files.push_back({std::string(kRulesFile), DecompileRules(rules)});
  // The brands' own part of the safe list goes with them where it comes back in its order.
  const SourceFile whole{std::string(kBrandsFile), DecompileBrands(configuration, true)};
  const SourceFile part{std::string(kBrandsFile), DecompileBrands(configuration, false)};
  const auto rest = [&](const SourceFile& brands, Configuration& back) {
    Diagnostics ignored;
    CompileBrands(brands, back, ignored);
    Configuration left;
    left.ExceptionDomains = configuration.ExceptionDomains;
    if (back.SafeList.Domains.empty() && back.SafeList.Others.Entries.empty()) {
      left.SafeList = configuration.SafeList;
    } else {
      const auto ownsNone = [](const NetLocation& entry) { return entry.TrustedDomainName.empty(); };
      std::ranges::copy_if(configuration.SafeList.Domains, std::back_inserter(left.SafeList.Domains), ownsNone);
      std::ranges::copy_if(configuration.SafeList.Others.Entries, std::back_inserter(left.SafeList.Others.Entries), ownsNone);
    }
    XmlSources safe;
    WriteSafeList(left, safe);
    ParseTextFiles(safe.files, back, *std::make_unique<Indicators>());
    return safe;
  };
  Configuration back;
  XmlSources safe = rest(whole, back);
  const bool isWhole = SameSafeList(back, configuration);
  if (!isWhole) {
    back = {};
    safe = rest(part, back);
  }
  // Brands that no block can say, of a package that was put together by hand, stay XML.
  if (isWhole || SameSafeList(back, configuration)) {
    if (!(isWhole ? whole : part).text.empty()) sources.files.push_back({std::string(kBrandsFile), (isWhole ? whole : part).text});
  } else {
    WriteTrustedDomains(configuration, sources);
  }
  sources.files.insert(sources.files.end(), safe.files.begin(), safe.files.end());
  if (sources.refusal.empty()) sources.refusal = safe.refusal;
  WriteWorld(configuration, sources);
  return sources;
}

}  // namespace zeph
