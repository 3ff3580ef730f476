// SPDX-License-Identifier: Apache-2.0
#include <set>
#include <string>

#include "DetectionEngine/configuration/MemoryFile.h"
#include "tests/configuration/Packages.h"

namespace zeph {
namespace {

constexpr char kPastTheEnd[] = "Trying to read data past the end of the file";

std::string ContentOf(const ConfigurationPair& pair, const MemoryFileForm& form = {}) {
  return WriteMemoryFile(pair.configuration, pair.indicators, form).value();
}

void Read(MemoryFile file, ConfigurationPair& pair) {
  file.Read(pair.configuration);
  file.Read(pair.indicators);
}

/// The failure's text; empty when the content can be read.
std::string FailureOf(std::string content, std::size_t room = kRecordRoom) {
  try {
    ConfigurationPair pair;
    Read(MemoryFile(MemoryFile::Content{std::move(content), room}), pair);
  } catch (const MemoryFileError& failure) {
    return failure.what();
  }
  return {};
}

TEST(MemoryFile, ReadsBackWhatIsWrittenInEveryForm) {
  const ConfigurationPair written = FullPair();
  std::set<std::string> contents;
  for (const bool bigEndian : {false, true}) {
    for (const std::uint8_t version : {std::uint8_t{1}, std::uint8_t{2}}) {
      const MemoryFileForm form{bigEndian, version};
      contents.insert(ContentOf(written, form));
      ConfigurationPair read;
      Read(MemoryFile(MemoryFile::Packed{SealedMemoryFile(written, form)}), read);
      // The same content says that every item is the same, those without a comparison of their own too.
      EXPECT_EQ(ContentOf(read), ContentOf(written)) << bigEndian << ' ' << int{version};
      EXPECT_EQ(read.configuration.Resources, written.configuration.Resources);
      EXPECT_EQ(read.configuration.TrustedDomainInfos, written.configuration.TrustedDomainInfos);
      EXPECT_EQ(read.indicators, written.indicators);
    }
  }
  EXPECT_EQ(contents.size(), 4U);
}

TEST(MemoryFile, SmallFileIsAsTheFormatSays) {
  ConfigurationPair pair;
  pair.configuration.Resources.Server = u"s\u00E9";
  pair.configuration.Resources.DownloadFrequency = 0x01020304;
  pair.indicators.Entries.resize(1);
  const std::string zeros(200, '\0');
  const std::string rule = {'\1', '\0', '\0', '\0', '\0', '\0', '\0', '\0', '\1', '\x8'};
  const auto content = [&](const std::string& magic, const std::string& length, const std::string& number,
                           const std::string& one, const std::string& weight) {
    return magic + "\1\1" + length + std::string("s\0\xE9\0", 4) + zeros.substr(0, 2) + number + zeros.substr(0, 4) +
           zeros.substr(0, 2 * 5) + zeros.substr(0, 2 * 13) + zeros.substr(0, 2 * 7 + 1) + "\1" + one + "\2\1" +
           weight + "\1" + weight + rule;
  };
  const std::string two("\0\2", 2);
  EXPECT_EQ(ContentOf(pair), content("\xCD\xAB", std::string("\4\0", 2), "\4\3\2\1", std::string("\1\0", 2),
                                     std::string("\0\0\0\x40", 4)));
  EXPECT_EQ(ContentOf(pair, {true, 2}), content("\xAB\xCD", std::string("\0\4", 2), "\1\2\3\4", std::string("\0\1", 2),
                                                std::string("\x40\0\0\0", 4)));
}

TEST(MemoryFile, EveryVersionByteIsToldApart) {
  const std::string content = ContentOf(FullPair(), {false, 1});
  std::set<std::string> unknown;
  for (std::size_t at = 0; at < content.size(); ++at) {
    std::string changed = content;
    changed[at] = 3;
    const std::string failure = FailureOf(changed);
    if (failure.starts_with("Unknown version for ")) unknown.insert(failure.substr(20));
  }
  const std::set<std::string> expected = {
      "BlockedToTrusted", "Configuration", "ExpressionField",     "ExpressionMethod",  "ExpressionValue", "IPRange",
      "Indicator",        "Indicators",    "IndicatorExpression", "IndicatorResult",   "IndicatorRule",   "NetLocation",
      "Redirector",       "Resources",     "RuleCategory",        "TrustedDomainInfo", "Weight"};
  EXPECT_EQ(unknown, expected);
}

TEST(MemoryFile, EveryTruncationIsPastTheEndAndTrailingBytesAreNot) {
  const std::string content = ContentOf(FullPair());
  for (std::size_t length = 0; length < content.size(); ++length) {
    ASSERT_EQ(FailureOf(content.substr(0, length)), kPastTheEnd) << length;
  }
  EXPECT_EQ(FailureOf(content + "more"), "");
}

TEST(MemoryFile, BadContentIsRefusedWithItsReason) {
  const std::string head("\xCD\xAB\1\1", 4);
  const struct {
    const char* name;
    std::string content;
    const char* failure;
  } cases[] = {
      {"magic alone", "\xCD\xAB", kPastTheEnd},
      {"another magic", "PK\3\4", "Not a binary ZEPH configuration file"},
      {"a text of three bytes", head + std::string("\3\0abc", 5), "A text of half a character"},
      {"a text longer than the file", head + "\xFE\xFF" + "ab", kPastTheEnd},
      {"a list of 65,535 items in three bytes", head + std::string(2 * 2 + 8 + 3 * 2, '\0') + "\xFF\xFF\0",
       kPastTheEnd},
  };
  for (const auto& row : cases) EXPECT_EQ(FailureOf(row.content), row.failure) << row.name;
}

TEST(MemoryFile, RecordsThatTakeMoreThanTheRoomAreRefused) {
  // Two bytes of a file stand for a whole text, a tag for its brand's name once more, an item for words and numbers.
  ConfigurationPair texts;
  texts.configuration.UrlAnalysisWords.resize(60000);
  ConfigurationPair tags;
  tags.configuration.TrustedDomainInfos[std::u16string(30000, u'd')].CT.resize(100);
  ConfigurationPair items;
  std::u16string value;
  for (int i = 0; i < 10000; ++i) value += u"a,";
  items.indicators.Entries.emplace_back().Rule.Expressions.push_back({0, 0, {kValueList, value, {}, {}}});
  for (const ConfigurationPair* pair : {&texts, &tags, &items}) {
    const std::string content = ContentOf(*pair);
    EXPECT_EQ(FailureOf(content, 10 * content.size()), "The records take more memory than a configuration may");
    EXPECT_EQ(FailureOf(content), "");
  }
}

TEST(MemoryFile, ReadingIntoAUsedRecordAppendsToListsAndReplacesEqualKeys) {
  ConfigurationPair first = FullPair();
  ConfigurationPair second = FullPair();
  second.configuration.TrustedDomainInfos[u"brand.example"].CN = u"Later";
  second.configuration.UrlAnalysisTable.insert_or_assign(u"login", 0.25);
  ConfigurationPair read;
  Read(MemoryFile(MemoryFile::Content{ContentOf(first)}), read);
  Read(MemoryFile(MemoryFile::Content{ContentOf(second)}), read);
  EXPECT_EQ(read.configuration.Resources.TRLMBrands.size(), 4U);
  EXPECT_EQ(read.configuration.BlockList.Entries.size(), 2 * first.configuration.BlockList.Entries.size());
  EXPECT_EQ(read.indicators.Entries.size(), 4U);
  EXPECT_EQ(read.configuration.TrustedDomainInfos.size(), 2U);
  EXPECT_EQ(read.configuration.TrustedDomainInfos[u"brand.example"].CN, u"Later");
  EXPECT_EQ(*read.configuration.UrlAnalysisTable.Find(u"login"), 0.25);
}

TEST(MemoryFile, WriterRefusesWhatTheFormatCannotHold) {
  using Change = void (*)(ConfigurationPair&);
  const struct {
    const char* name;
    Change fits;
    Change doesNot;
  } cases[] = {
      {"list", [](ConfigurationPair& p) { p.configuration.UrlAnalysisWords.resize(65535); },
       [](ConfigurationPair& p) { p.configuration.UrlAnalysisWords.resize(65536); }},
      {"text", [](ConfigurationPair& p) { p.configuration.ModulePath.resize(32767); },
       [](ConfigurationPair& p) { p.configuration.ModulePath.resize(32768); }},
      {"byte", [](ConfigurationPair& p) { p.indicators.Entries[0].Rule.Category = 255; },
       [](ConfigurationPair& p) { p.indicators.Entries[0].Rule.Category = 256; }},
  };
  for (const auto& row : cases) {
    ConfigurationPair pair = FullPair();
    row.fits(pair);
    EXPECT_EQ(FailureOf(ContentOf(pair)), "") << row.name;
    row.doesNot(pair);
    const auto content = WriteMemoryFile(pair.configuration, pair.indicators);
    EXPECT_FALSE(content) << row.name;
    EXPECT_FALSE(SealMemoryFile(content)) << row.name;
  }
}

TEST(MemoryFile, ContentThatShrinksBeyondAReadersRoomIsStoredInstead) {
  ConfigurationPair pair;
  pair.configuration.UrlAnalysisWords.assign(60000, u"same");
  const std::string content = ContentOf(pair);
  const std::string sealed = SealedMemoryFile(pair);
  EXPECT_GT(sealed.size() * 20, content.size());
  EXPECT_EQ(OpenPacked(sealed), content);
}

}  // namespace
}  // namespace zeph
