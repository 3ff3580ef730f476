// SPDX-License-Identifier: Apache-2.0
#include "judging/RuleTexts.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "DetectionEngine/configuration/Cabinet.h"
#include "DetectionEngine/configuration/Pack.h"
#include "DetectionEngine/configuration/TextSources.h"
#include "DetectionEngine/platform/CodePage.h"
#include "authoring/Sources.h"

namespace zeph {

namespace {

namespace fs = std::filesystem;

constexpr char kIndicatorsFile[] = "Indicators.xml";

std::string ContentOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// The text as a value of a source has it: one line, nothing that the line scanner takes for a tag.
std::string AsValue(std::string_view text) {
  std::string value;
  for (const char16_t c : Widen(text)) {
    if (c == u'&') {
      value += "&amp;";
    } else if (c >= u' ' && c <= u'~' && c != u'<') {
      value += static_cast<char>(c);
    } else if (c >= u'<') {
      const std::string number = std::to_string(static_cast<unsigned>(c));
      value += "&#" + std::string(4 - std::min<std::size_t>(4, number.size()), '0') + number + ";";
    } else {
      value += ' ';
    }
  }
  return value;
}

std::vector<RuleText> TextsOf(NamedRules rules) {
  std::vector<RuleText> texts;
  for (std::size_t i = 0; i < rules.names.size(); ++i) {
    texts.push_back({std::move(rules.names[i]), std::move(rules.sentences[i])});
  }
  return texts;
}

std::vector<RuleText> FromFolder(const fs::path& folder) {
  const SourceFile named{std::string(kRulesFile), ContentOf(folder / kRulesFile)};
  if (named.text.empty()) return ReadRuleTexts(ContentOf(folder / kIndicatorsFile));
  Diagnostics ignored;
  return TextsOf(CompileRules(named, {}, ignored));
}

std::vector<RuleText> FromCabinet(const std::string& package) {
  if (const auto texts = CabExtractFile(package, kRuleTextsFile)) return ReadRuleTexts(*texts);
  // A pack brings the sources themselves.
  Extraction packed = CabExtract(package);
  const auto content = packed.pack ? OpenPacked(*std::move(packed.pack)) : std::nullopt;
  const auto files = content ? CreateVectorofFileData(*content) : std::nullopt;
  if (!files) return {};
  for (const PackedFile& file : *files) {
    if (file.Name.find(kIndicatorsFile) != std::string::npos) return ReadRuleTexts(file.FileData);
  }
  return {};
}

}  // namespace

std::vector<RuleText> ReadRuleTexts(std::string_view source) {
  NamedRules rules;
  ReadRuleNames(source, rules);
  return TextsOf(std::move(rules));
}

std::string WriteRuleTexts(const std::vector<RuleText>& texts) {
  if (std::ranges::all_of(texts, [](const RuleText& text) { return text.name.empty() && text.sentence.empty(); })) {
    return {};
  }
  std::string content;
  for (const RuleText& text : texts) {
    content += "<Indicator>\n";
    if (!text.name.empty()) content += "<Name>" + AsValue(text.name) + "</Name>\n";
    if (!text.sentence.empty()) content += "<Sentence>" + AsValue(text.sentence) + "</Sentence>\n";
    content += "</Indicator>\n";
  }
  return content;
}

std::vector<RuleText> LoadRuleTexts(const std::string& packageOrFolder) {
  std::error_code error;
  if (fs::is_directory(packageOrFolder, error)) return FromFolder(packageOrFolder);
  return fs::is_regular_file(packageOrFolder, error) ? FromCabinet(packageOrFolder) : std::vector<RuleText>();
}

}  // namespace zeph
