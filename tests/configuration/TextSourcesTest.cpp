// SPDX-License-Identifier: Apache-2.0
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "DetectionEngine/configuration/TextSources.h"
#include "tests/configuration/Packages.h"

namespace zeph {
namespace {

ConfigurationPair Parsed(const std::vector<PackedFile>& files) {
  ConfigurationPair pair;
  EXPECT_TRUE(ParseTextFiles(files, pair.configuration, pair.indicators));
  return pair;
}

/// Tag and value of each line.
using TagsAndValues = std::vector<std::pair<std::string, std::string>>;
TagsAndValues LinesOf(std::string_view text) {
  TagsAndValues lines;
  while (const auto line = NextLine(text)) lines.emplace_back(line->tag, line->tagValue);
  return lines;
}

NetLocation Site(std::uint32_t type, std::u16string name, std::u16string trusted = {}) {
  return {type, std::move(name), {}, 0, std::move(trusted)};
}

TEST(NextLine, TakesOneTagAndOneValue) {
  const std::string longTag = "<" + std::string(kLongestTag - 1, 't') + ">";
  const std::string longValue(kLongestTagValue + 1, 'v');
  const std::string zero(1, '\0');
  const struct {
    const char* name;
    std::string text;
    TagsAndValues lines;
  } cases[] = {
      {"value and closing tag", "<a>x</a>\n", {{"<a>", "x"}}},
      {"nothing behind the value", "<a>x\n", {{"<a>", ""}}},
      {"no value", "<a></a>\n", {{"<a>", ""}}},
      {"text before the tag", "  a>b <a>x</a>\n", {{"<a>", "x"}}},
      {"tag with an attribute", "<a b=\"<\">x<\n", {{"<a b=\"<\">", "x"}}},
      {"no tag", "a < b\n", {{"", ""}}},
      {"last line without a line feed is lost", "<a>\n<b>", {{"<a>", ""}}},
      {"empty line ends", "<a>\n\n<b>\n", {{"<a>", ""}}},
      {"empty line of CR LF doesn't", "<a>\r\n\r\n<b>\r\n", {{"<a>", ""}, {"", ""}, {"<b>", ""}}},
      {"LF CR", "<a>\n\r<b>\n", {{"<a>", ""}, {"<b>", ""}}},
      {"zero byte", "<a>x" + zero + "y</a>\n", {{"<a>", "x" + zero + "y"}}},
      {"tag too long", longTag + "x<\n", {{"", ""}}},
      {"value too long", "<a>" + longValue + "<\n", {{"", ""}}},
      {"nothing", "", {}},
  };
  for (const auto& row : cases) EXPECT_EQ(LinesOf(row.text), row.lines) << row.name;
}

TEST(DecodeEntities, KnowsTheAmpersandAndDecimalNumbers) {
  const struct {
    std::string_view text;
    std::u16string_view decoded;
  } cases[] = {
      {"plain", u"plain"},
      {"a&amp;", u"a&"},
      {"&amp;amp;", u"&amp;"},
      {"&#0233;", u"\u00E9"},
      {"&#65535;", u"\xFFFF"},
      {"&#65537;", u"\x0001"},
      {"&#99999;", u"\x869F"},
      {"&#233;", u"&#233;"},
      {"&#000233;", u"&#000233;"},
      {"&#02a3;", u"&#02a3;"},
      {"&#0233", u"&#0233"},
      {"&lt;", u"&lt;"},
      {"&", u"&"},
      {"&&#0065;", u"&A"},
      {"\xC3\xA9", u"\xFFC3\xFFA9"},
  };
  for (const auto& row : cases) EXPECT_EQ(DecodeEntities(row.text), row.decoded) << row.text;
}

TEST(MakeLocation, ReadsSitesAndNetworks) {
  const struct {
    std::string_view tag;
    std::string_view value;
    std::optional<NetLocation> location;
  } cases[] = {
      {"<Domain>", "a&amp;b.example", Site(kDomain, u"a&b.example")},
      {"<URL>", "http://a.example/", Site(kUrl, u"http://a.example/")},
      {"<Hostname>", "*.a.example", Site(kHostname, u"*.a.example")},
      {"<Network>", "10.1.2.0/255.255.255.0", NetLocation{kNetwork, u"", {0x0A010200, 0x0A0102FF}, 0, u""}},
      {"<Network>", "10.1.2.3", NetLocation{kNetwork, u"", {}, 0, u""}},
      {"<Network>", "10.1.2.300/255.255.255.255", NetLocation{kNetwork, u"", {0, 0}, 0, u""}},
      {"<Network>", "1.2.3/255.0.0.0", NetLocation{kNetwork, u"", {0, 0x00FFFFFF}, 0, u""}},
      {"<domain>", "a.example", std::nullopt},
      {"", "", std::nullopt},
  };
  for (const auto& row : cases) EXPECT_EQ(MakeLocation(row.tag, row.value), row.location) << row.tag << row.value;
}

TEST(TextSources, NameOfAFileDecidesItsHandler) {
  const std::string site = "<Domain>a.example</Domain>\n";
  const std::vector<NetLocation> sites = {Site(kDomain, u"a.example")};
  const struct {
    const char* name;
    NetLocationList Configuration::*list;
  } cases[] = {
      {"PopularSites.xml", &Configuration::PopularSites},
      {"SearchServices.xml", &Configuration::SearchServices},
      {"old-WebHostingSites.xml.bak", &Configuration::WebHostingSites},
      {"Identifiers.xml", &Configuration::BlockList},
      {"TrustedDomains.xml", &Configuration::TrustedDomains},
      {"SearchServices.xml PopularSites.xml", &Configuration::PopularSites},
  };
  for (const auto& row : cases) {
    const ConfigurationPair pair = Parsed({{row.name, site}});
    EXPECT_EQ((pair.configuration.*row.list).Entries, sites) << row.name;
  }
  EXPECT_EQ(Parsed({{"SafeList.xml", site}}).configuration.SafeList.Domains, sites);
  const ConfigurationPair nothing =
      Parsed({{"popularsites.xml", site}, {"Notes.txt", site}, {"", site}, {"SafeList", ""}});
  EXPECT_EQ(WriteMemoryFile(nothing.configuration, nothing.indicators), WriteMemoryFile({}, {}));
}

TEST(TextSources, ListsKeepTheirOrderAndSkipWhatTheyDoNotKnow) {
  const ConfigurationPair pair =
      Parsed({{"PopularSites.xml",
               "<?xml version=\"1.0\"?>\n<PopularSites>\n"
               " <Domain>b.example</Domain>\n <Brand>x</Brand>\n <Domain>a.example</Domain>\n"
               " <Domain id=\"1\">c.example</Domain>\n</PopularSites>\n"}});
  const std::vector<NetLocation> expected = {Site(kDomain, u"b.example"), Site(kDomain, u"a.example")};
  EXPECT_EQ(pair.configuration.PopularSites.Entries, expected);
}

TEST(TextSources, BlockedSitesNameTheBrandThatTheyImitate) {
  const ConfigurationPair pair =
      Parsed({{"Identifiers.xml",
               "<TD>lost.example</TD>\n<Domain>bad.example</Domain>\n<TD>first.example</TD>\n"
               "<TD>br&amp;nd.example</TD>\n<URL>http://free.example/</URL>\n"}});
  EXPECT_EQ(pair.configuration.BlockList.Entries.size(), 2U);
  const decltype(pair.configuration.BlockedToTrusted) expected = {{u"bad.example", u"br&amp;nd.example"}};
  EXPECT_EQ(pair.configuration.BlockedToTrusted, expected);
}

TEST(TextSources, SafeListSortsSitesByKindAndGivesNetworksToTheirBrand) {
  const ConfigurationPair pair =
      Parsed({{"TrustedDomains.xml", "<Trusted.Domain>\n<Domain>brand.example</Domain>\n</Trusted.Domain>\n"},
              {"SafeList",
               "<Domain>z.example</Domain>\n<Trusted.Domain D=\"brand.example\">\n"
               "<Domain>www.a.example</Domain>\n<Domain>a.example</Domain>\n"
               "<Network>1.0.0.0/255.0.0.0</Network>\n<Trusted.Domain D=\"\">\n"
               "<Exception.Domains>\n<Domain>except.example</Domain>\n"
               "<Network>2.0.0.0/255.0.0.0</Network>\n</Exception.Domains>\n"
               "<Hostname>h.example</Hostname>\n"}});
  const Configuration& c = pair.configuration;
  const std::vector<NetLocation> domains = {Site(kDomain, u"a.example", u"brand.example"), Site(kDomain, u"z.example")};
  EXPECT_EQ(c.SafeList.Domains, domains);
  const IPRange one{0x01000000, 0x01FFFFFF};
  const IPRange two{0x02000000, 0x02FFFFFF};
  const std::vector<NetLocation> others = {Site(kDomain, u"www.a.example", u"brand.example"),
                                           {kNetwork, u"", one, 0, u"brand.example"},
                                           Site(kHostname, u"h.example", u"brand.example")};
  EXPECT_EQ(c.SafeList.Others.Entries, others);
  const std::vector<NetLocation> exceptions = {Site(kDomain, u"except.example"), {kNetwork, u"", two, 0, u""}};
  EXPECT_EQ(c.ExceptionDomains.Entries, exceptions);
  EXPECT_EQ(c.TrustedDomainInfos.at(u"brand.example").Ranges, std::vector<IPRange>({one, two}));
}

TEST(TextSources, TrustedDomainsThatComeAfterTheSafeListTakeItsRangesAway) {
  const PackedFile safe = {"SafeList", "<Trusted.Domain D=\"b.example\">\n<Network>1.0.0.0/255.0.0.0</Network>\n"};
  const PackedFile trusted = {"TrustedDomains.xml",
                              "<Trusted.Domain>\n<Domain>b.example</Domain>\n</Trusted.Domain>\n"};
  EXPECT_EQ(Parsed({trusted, safe}).configuration.TrustedDomainInfos.at(u"b.example").Ranges.size(), 1U);
  EXPECT_EQ(Parsed({safe, trusted}).configuration.TrustedDomainInfos.at(u"b.example").Ranges.size(), 0U);
}

TEST(TextSources, BrandsHaveNamesAndTags) {
  const ConfigurationPair pair =
      Parsed({{"TrustedDomains.xml",
               "<Trusted.Domain>\n<Domain>one.example</Domain>\n<CN>On&#0233;</CN>\n"
               "<CT>a^^b^</CT>\n<CT>c</CT>\n<UT>u&amp;^v</UT>\n<TT>t</TT>\n<DT>d&amp;^e</DT>\n"
               "<NT>No</NT>\n</Trusted.Domain>\n"
               "<Trusted.Domain>\n<Domain>two.example</Domain>\n<NT>no</NT>\n"
               "</Trusted.Domain>\n<Trusted.Domain>\n<Domain>open.example</Domain>\n"}});
  const Configuration& c = pair.configuration;
  EXPECT_EQ(c.TrustedDomains.Entries.size(), 3U);
  const decltype(c.TrustedDomainInfos) expected = {
      {u"one.example", {false, u"On\u00E9", {u"u&", u"v"}, {u"t"}, {u"d&amp;", u"e"}, {u"a", u"b", u"c"}, {}}},
      {u"two.example", {true, u"", {}, {}, {}, {}, {}}}};
  EXPECT_EQ(c.TrustedDomainInfos, expected);
}

TEST(TextSources, RulesAreReadWithTheirExpressions) {
  const ConfigurationPair pair = Parsed({{"Indicators.xml",
                                          "<OnWeight>9</OnWeight>\n<Indicator>\n<OnWeight>0.25</OnWeight>\n"
                                          "<TDPriority>3</TDPriority>\n<Category> 7x</Category>\n"
                                          "<OperatorID>1</OperatorID>\n<Expression>\n<FieldID>5</FieldID>\n"
                                          "<MethodID>6</MethodID>\n<ValueType>1</ValueType>\n<Value>a&amp;,b</Value>\n"
                                          "</Expression>\n<FieldID>8</FieldID>\n<Expression>\n</Expression>\n"
                                          "</Indicator>\n<Indicator>\n<OffWeight>-1e-1</OffWeight>\n</Indicator>\n"
                                          "<Indicator>\n<Indicator>\n"}});
  Indicators expected;
  Indicator& first = expected.Entries.emplace_back();
  first.OnWeight = 0.25F;
  first.Rule = {1, {{5, 6, {kValueList, u"a&,b", {}, {}}}, {}}, 3, 7};
  expected.Entries.emplace_back().OffWeight = -0.1F;
  EXPECT_EQ(pair.indicators, expected);
}

TEST(TextSources, RedirectorsStartAfreshOnlyAtTheirOpeningTag) {
  const ConfigurationPair pair =
      Parsed({{"Redirectors.xml",
               "<ProxyPattern>\n<StartsWith>http://a/?</StartsWith>\n"
               "<UrlIsValueOfKey>u</UrlIsValueOfKey>\n<CompleteScheme>0</CompleteScheme>\n"
               "</ProxyPattern>\n<StartsWith>http://b/?</StartsWith>\n</ProxyPattern>\n"
               "<ProxyPattern>\n<SkipNumericOptions></SkipNumericOptions>\n</ProxyPattern>\n"}});
  const std::vector<Redirector> expected = {
      {u"http://a/?", u"u", false, true}, {u"http://b/?", u"u", false, true}, {u"", u"", true, false}};
  EXPECT_EQ(pair.configuration.Redirectors, expected);
}

TEST(TextSources, TokensKeepTheLastProbability) {
  const ConfigurationPair pair = Parsed({{"URLAnalysis.xml",
                                          "<p>0.5</p>\n<k>a</k>\n<p>0.25</p>\n<k>b</k>\n<p>1</p>\n<p>2</p>\n"
                                          "<w>word</w>\n<w></w>\n"}});
  const std::vector<std::pair<std::u16string_view, double>> expected = {{u"", 0.5}, {u"a", 0.25}, {u"b", 2.0}};
  EXPECT_EQ(pair.configuration.UrlAnalysisTable.Sorted(), expected);
  EXPECT_EQ(pair.configuration.UrlAnalysisWords, std::vector<std::u16string>({u"word", u""}));
}

TEST(TextSources, ResourcesKeepTheLinesOfAnUpgrade) {
  const ConfigurationPair pair = Parsed({{"Resources.xml",
                                          "<Server>s.example</Server>\n<ConfigFile>c</ConfigFile>\n<Group>g</Group>\n"
                                          "<DownloadFrequency>-1</DownloadFrequency>\n<TRLMBrands>a,,b</TRLMBrands>\n"
                                          "<TRLMBrandIDs>1,2</TRLMBrandIDs>\n<TRLMBrandIDs>3</TRLMBrandIDs>\n"
                                          "<Upgrade>\n<File>f</File>\n text\n<Group>h</Group>\n</Upgrade>\nlost\n"}});
  const Resources expected = {
      u"s.example",      u"c", 0xFFFFFFFF, 0, u"h", u"", u"<Upgrade><File>f</File> text</Upgrade>", {u"a", u"b"},
      {u"1", u"2", u"3"}};
  EXPECT_EQ(pair.configuration.Resources, expected);
}

TEST(TextSources, ShortLinesThatRepeatLargeRecordsUseUpTheRoom) {
  const std::string tags = "<CT>" + std::string(60000, 'x') + "</CT>\n<UT>^a^b^c</UT>\n";
  std::string brands = "<Trusted.Domain>\n" + tags;
  std::string redirectors = "<StartsWith>" + std::string(60000, 'x') + "</StartsWith>\n";
  std::string networks = "<Trusted.Domain D=\"" + std::string(900, 'x') + "\">\n";
  for (int i = 0; i < 200; ++i) {
    brands += "<Domain>" + std::to_string(i) + "</Domain>\n</Trusted.Domain>\n";
    redirectors += "</ProxyPattern>\n";
    networks += "<URL>u</URL>\n";
  }
  for (const PackedFile& file :
       {PackedFile{"TrustedDomains.xml", brands}, {"Redirectors.xml", redirectors}, {"SafeList", networks}}) {
    ConfigurationPair pair;
    EXPECT_FALSE(ParseTextFiles({&file, 1}, pair.configuration, pair.indicators, LoadRoom(20 * file.FileData.size())))
        << file.Name;
    EXPECT_TRUE(ParseTextFiles({&file, 1}, pair.configuration, pair.indicators)) << file.Name;
  }
}

}  // namespace
}  // namespace zeph
