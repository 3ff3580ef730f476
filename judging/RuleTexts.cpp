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

namespace zeph {

namespace {

namespace fs = std::filesystem;

constexpr char kRulesFile[] = "Indicators.xml";

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

std::vector<RuleText> FromCabinet(const std::string& package) {
  if (const auto texts = CabExtractFile(package, kRuleTextsFile)) return ReadRuleTexts(*texts);
  // A pack brings the sources themselves.
  Extraction packed = CabExtract(package);
  const auto content = packed.pack ? OpenPacked(*std::move(packed.pack)) : std::nullopt;
  const auto files = content ? CreateVectorofFileData(*content) : std::nullopt;
  if (!files) return {};
  for (const PackedFile& file : *files) {
    if (file.Name.find(kRulesFile) != std::string::npos) return ReadRuleTexts(file.FileData);
  }
  return {};
}

}  // namespace

std::vector<RuleText> ReadRuleTexts(std::string_view source) {
  std::vector<RuleText> texts;
  RuleText current;
  while (const std::optional<SourceLine> line = NextLine(source)) {
    if (line->tag == "<Indicator>") {
      current = {};
    } else if (line->tag == "<Name>") {
      current.name = Narrow(DecodeEntities(line->tagValue));
    } else if (line->tag == "<Sentence>") {
      current.sentence = Narrow(DecodeEntities(line->tagValue));
    } else if (line->tag == "</Indicator>") {
      texts.push_back(std::exchange(current, {}));
    }
  }
  return texts;
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
  if (fs::is_directory(packageOrFolder, error)) return ReadRuleTexts(ContentOf(fs::path(packageOrFolder) / kRulesFile));
  return fs::is_regular_file(packageOrFolder, error) ? FromCabinet(packageOrFolder) : std::vector<RuleText>();
}

}  // namespace zeph
