// SPDX-License-Identifier: Apache-2.0
// What people who write packages are told, and that the languages say all that a package can.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "DetectionEngine/configuration/TextSources.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/scoring/Method.h"
#include "TestPaths.h"
#include "authoring/BrandSource.h"
#include "authoring/Lint.h"
#include "authoring/PackageDiff.h"
#include "authoring/PackageTest.h"
#include "authoring/SourceCheck.h"
#include "authoring/Sources.h"

namespace zeph {
namespace {

std::string Rendered(const Diagnostics& found) {
  std::string text;
  for (const Diagnostic& one : found.All()) text += Render(one);
  return text;
}

/// A rule of XML whose expression has these lines.
std::string Rule(std::string_view head, std::string_view expression) {
  return "<Indicator>\n" + std::string(head) + "<Expression>\n" + std::string(expression) + "</Expression>\n</Indicator>\n";
}

struct Fault {
  const char* name;
  std::string file;
  std::string text;
  std::string said;  ///< a part of what is said; empty: nothing is
};

TEST(SourceCheck, SaysWhatTheLoaderPassesOver) {
  const std::string title = "<FieldID>6</FieldID>\n<MethodID>6</MethodID>\n<ValueType>1</ValueType>\n<Value>a,b</Value>\n";
  const std::string head = "<Category>0</Category>\n<OnWeight>0.8</OnWeight>\n";
  const Fault faults[] = {
      {"nothing", "Indicators.xml", Rule(head, title), ""},
      {"misspelt tag", "Indicators.xml", Rule("<Categroy>0</Categroy>\n" + head, title),
       "Indicators.xml:2:1: error: Indicators.xml has no tag <Categroy>\n  2 | <Categroy>0</Categroy>\n    | ^~~~~~~~~~\n  "
       "help: did you mean <Category>?\n"},
      {"field", "Indicators.xml", Rule(head, "<FieldID>77</FieldID>\n<MethodID>6</MethodID>\n<Value>a</Value>\n"),
       "Indicators.xml:5:10: error: no field has number 77\n  5 | <FieldID>77</FieldID>\n    |          ^~\n  help: fields are "
       "0 to 25, 27 to 33"},
      {"method", "Indicators.xml", Rule(head, "<MethodID>99</MethodID>\n"), "Indicators.xml:5:11: error: no method has number 99"},
      {"reference to nothing", "Indicators.xml",
       Rule(head, "<MethodID>26</MethodID>\n<ValueType>0</ValueType>\n<Value>7</Value>\n"),
       "Indicators.xml:7:8: error: there is no rule 7"},
      {"reference to a later rule", "Indicators.xml",
       Rule(head, "<MethodID>26</MethodID>\n<ValueType>0</ValueType>\n<Value>1</Value>\n") + Rule(head, title),
       "Indicators.xml:7:8: error: rule 1 runs after this rule"},
      {"behind a final rule", "Indicators.xml",
       Rule("<Category>0</Category>\n<OnWeight>0</OnWeight>\n", title) +
           Rule("<Category>3</Category>\n<OnWeight>0.8</OnWeight>\n",
                "<MethodID>26</MethodID>\n<ValueType>0</ValueType>\n<Value>0</Value>\n"),
       "error: the rule never runs: rule 0 is final and ends the work first"},
      {"empty line", "PopularSites.xml", "<Domain>a.test</Domain>\n\n<Domain>b.test</Domain>\n",
       "PopularSites.xml:2:1: error: an empty line ends the file: the 1 lines behind it aren't read"},
      {"an empty line between carriage returns", "PopularSites.xml", "<Domain>a.test</Domain>\r\n\r\n<Domain>b.test</Domain>\r\n", ""},
      {"kind of field", "Indicators.xml",
       Rule(head, "<FieldID>13</FieldID>\n<MethodID>6</MethodID>\n<ValueType>1</ValueType>\n<Value>a</Value>\n"),
       "Indicators.xml:5:10: error: Contains tests a list or text, and Forms is a number"},
      {"type of value", "Indicators.xml",
       Rule(head, "<FieldID>13</FieldID>\n<MethodID>25</MethodID>\n<ValueType>2</ValueType>\n<Value>3</Value>\n"),
       "Indicators.xml:7:12: error: NumberBelow is never on with a value of type 2"},
      {"value", "Indicators.xml",
       Rule(head, "<FieldID>13</FieldID>\n<MethodID>25</MethodID>\n<ValueType>0</ValueType>\n<Value>few</Value>\n"),
       "Indicators.xml:8:8: error: NumberBelow wants a whole number, and \"few\" is none"},
      {"list", "Indicators.xml",
       Rule(head, "<FieldID>3</FieldID>\n<MethodID>8</MethodID>\n<ValueType>4</ValueType>\n<Value>9</Value>\n"),
       "SiteListMembership wants the name of a list of sites, and TitleTags is none"},
      {"weight", "Indicators.xml", Rule("<Category>0</Category>\n<OnWeight>1.5</OnWeight>\n", title),
       "Indicators.xml:3:11: error: weight 1.5 is no probability"},
      {"stage", "Indicators.xml", Rule("<OnWeight>0.8</OnWeight>\n", title), "error: rule 0 names no stage, so it never runs"},
      {"no brand", "Indicators.xml", Rule("<TDPriority>1</TDPriority>\n" + head, title), "and this one finds none"},
      {"last line feed", "SafeList", "<Domain>a.test</Domain>\n<Domain>b.test</Domain>",
       "SafeList:2:1: error: the last line has no line feed"},
      {"unclosed value", "SafeList", "<Domain>a.test\n", "SafeList:1:9: error: the value has no end"},
      {"second tag", "URLAnalysis.xml", "<k>a</k><p>0.5</p>\n", "URLAnalysis.xml:1:5: error: a line carries one tag"},
      {"wrong closing tag", "PopularSites.xml", "<Domain>a.test</Domian>\n", "help: the tag that closes is </Domain>"},
      {"no tag", "PopularSites.xml", "a.test\n", "PopularSites.xml:1:1: error: no tag stands on this line"},
      {"open rule", "Indicators.xml", "<Indicator>\n<Category>0</Category>\n", "Indicators.xml:1:1: error: <Indicator> isn't closed"},
      {"rule in a rule", "Indicators.xml", "<Indicator>\n<Indicator>\n</Indicator>\n", "which began in line 1 and is lost"},
      {"outside its block", "TrustedDomains.xml", "<CN>Bank</CN>\n", "<CN> stands outside <Trusted.Domain>"},
      {"no number", "URLAnalysis.xml", "<k>a</k>\n<p>much</p>\n", "URLAnalysis.xml:2:4: error: \"much\" is no number"},
      {"beyond ASCII", "TrustedDomains.xml",
       "<Trusted.Domain>\n<Domain>a.test</Domain>\n<CN>Caf\xC3\xA9</CN>\n</Trusted.Domain>\n",
       "TrustedDomains.xml:3:8: error: a character outside ASCII isn't read as what it is\n  3 | <CN>Caf\xC3\xA9</CN>\n    |        ^\n "
       " help: write &#0233;"},
      {"network", "SafeList", "<Network>10.0.0.0</Network>\n", "SafeList:1:10: error: a network is an address, a slash and a mask"},
      {"brand of nothing", "Identifiers.xml", "<TD>a.test</TD>\n", "<TD> belongs to the location before it"},
      {"open comment", "SafeList", "<!-- a > b\n<Domain>b.test</Domain>\n", "a comment ends on its own line"},
      {"name of the file", "Indicator.xml", Rule(head, title), "help: did you mean Indicators.xml?"},
  };
  for (const Fault& fault : faults) {
    const SourceFile file{fault.file, fault.text};
    Diagnostics found;
    CheckSource(file, found);
    if (fault.said.empty()) {
      EXPECT_EQ(Rendered(found), "") << fault.name;
    } else {
      EXPECT_GT(found.Errors(), 0U) << fault.name;
      EXPECT_NE(Rendered(found).find(fault.said), std::string::npos) << fault.name << ":\n" << Rendered(found);
    }
  }
}

TEST(RuleSource, SaysWhatIsWrongAndWhatWasMeant) {
  const std::string base = "fact login\n  stage url\n  when Url Contains [login, signin]\n";
  const std::string head = "rule r\n  stage url\n  weight 0.8\n  ";
  const Fault faults[] = {
      {"nothing", "", base + head + "when login and UrlHost BrandTagFound UrlTags\n", ""},
      {"a named list", "", "list words = login,\n  signin\n" + head + "when Url Contains words\n", ""},
      {"words of a file", "", "list words from \"words.txt\"\n" + head + "when Url Contains words\n", ""},
      {"field", "", head + "when UrlHots Contains [a]\n",
       "rules.zeph:4:8: error: no field is named \"UrlHots\"\n  4 |   when UrlHots Contains [a]\n    |        ^~~~~~~\n  help: did you "
       "mean UrlHost?\n"},
      {"method", "", head + "when UrlHost Contain [a]\n", "error: no method is named \"Contain\"\n"},
      {"rule", "", base + head + "when logn\n", "help: did you mean login?"},
      {"list", "", "list words = a\n" + head + "when Url Contains wrods and Url Contains words\n", "help: did you mean words?"},
      {"unused list", "", base + "list words = a\n" + head + "when login\n", "warning: no rule uses the list words"},
      {"kind of field", "", head + "when Forms Contains [a]\n", "Contains tests a text or a list, and Forms is a number"},
      {"kind of value", "", head + "when UrlHost BrandTagFound [a]\n", "BrandTagFound wants the name of a list of tags"},
      {"no value", "", head + "when Forms NumberAbove\n", "NumberAbove wants a whole number behind it"},
      {"no field", "", head + "when Contains [a]\n", "Contains tests a field, which is missing before it"},
      {"later rule", "", head + "when late\nfact late\n  stage url\n  when Url Contains [a]\n", "error: late runs after this rule"},
      {"itself", "", head + "when r\n", "a rule can't ask after itself"},
      {"stage", "", "rule r\n  stage urls\n  weight 0.8\n  when Url Contains [a]\n", "no stage is named \"urls\""},
      {"weight", "", "rule r\n  stage url\n  weight 1.8\n  when Url Contains [a]\n", "rules.zeph:3:10: error: weight 1.8 is no probability"},
      {"mark", "", "rule r\n  stage url\n  weight spofing\n  when Url Contains [a]\n", "did you mean spoofing?"},
      {"clause", "", "rule r\n  stage url\n  wieght 0.8\n  when Url Contains [a]\n", "did you mean weight?"},
      {"twice", "", base + base, "a rule of this name stands in line 1"},
      {"twins", "", base + head + "when Url Contains [login, signin]\n", "r asks the same as login"},
      {"and with or", "", base + head + "when login and login or login\n", "\"and\" and \"or\" don't stand in one condition"},
      {"not before a field", "", head + "when not Url Contains [a]\n", "write \"unless\" for \"when\""},
      {"evidence", "", head + "say \"about {bank}\"\n  when Url Contains [a]\n", "there is no evidence \"{bank}\""},
      {"no end", "", head + "when Url Contains [a\n", "the list has no end"},
      {"never", "", "rule final\n  stage url\n  weight trustworthy\n  when Url Contains [a]\nrule r\n  stage page\n  weight 0.8\n  when final\n",
       "error: the rule never runs: final is final"},
      {"against itself", "", base + head + "when login and not login\n", "asks that a rule have fired and not fired"},
  };
  const SourceFile words{"words.txt", "# words\nlogin\nsign in\n"};
  const SourceFile* const wordFiles[] = {&words};
  for (const Fault& fault : faults) {
    const SourceFile file{"rules.zeph", fault.text};
    Diagnostics found;
    static_cast<void>(CompileRules(file, wordFiles, found));
    if (fault.said.empty()) {
      EXPECT_EQ(Rendered(found), "") << fault.name;
    } else {
      EXPECT_NE(Rendered(found).find(fault.said), std::string::npos) << fault.name << ":\n" << Rendered(found);
    }
  }
}

/// Rules of all kinds, sane and not.
NamedRules RandomRules(std::mt19937& random) {
  const auto below = [&](std::uint32_t limit) { return static_cast<std::uint32_t>(random() % limit); };
  const std::u16string values[] = {u"", u"0", u"1", u"3", u"4", u"8", u"007", u"-5", u"0.5", u"a", u"a,b", u" a,b ", u"a,,b", u"2,a,b",
                                   u"0,1", u"1,-2,0,=1", u"=0", u"say \"no\"", u"a]b,[c", u"#a,b", u"\u00E9\U0001F600,x", u"\xD800\\\n\t<",
                                   u"type 3", u"not a", u"10.*,*-*", u","};
  const float weights[] = {2.0F, 0.0F, 1.0F, -1.0F, 1.2F, 0.8F, 0.1F, 1.5F, -3.25F, 0.333333343F, 1e-8F, -0.0F, 16777216.0F};
  const std::string names[] = {"", "brand-in-host", "login", "rule", "UrlHost", "1a", "x.y"};
  NamedRules rules;
  const std::uint32_t count = below(12);
  for (std::uint32_t i = 0; i < count; ++i) {
    Indicator rule;
    rule.OnWeight = weights[below(std::size(weights))];
    rule.OffWeight = weights[below(4) == 0 ? below(std::size(weights)) : 0];
    rule.Rule.Category = below(9);
    rule.Rule.OperatorID = below(5) == 0 ? below(300) : below(3);
    rule.Rule.TDPriority = below(3);
    for (std::uint32_t n = below(4); n > 0; --n) {
      IndicatorExpression expression;
      expression.FieldID = below(3) == 0 ? 0 : below(40);
      expression.MethodID = below(70);
      expression.ExpressionValue.ValueType = below(5);
      expression.ExpressionValue.Value = values[below(std::size(values))];
      rule.Rule.Expressions.push_back(std::move(expression));
    }
    rules.rules.Entries.push_back(std::move(rule));
    rules.names.push_back(names[below(std::size(names))]);
    rules.sentences.push_back(below(3) == 0 ? "{brand} says \"so\" \xC3\xA9" : "");
  }
  return rules;
}

TEST(RuleSource, GivesBackWhatItWroteDown) {
  std::mt19937 random(11);
  for (int round = 0; round < 500; ++round) {
    const NamedRules rules = RandomRules(random);
    const SourceFile file{"rules.zeph", DecompileRules(rules)};
    Diagnostics found;
    const NamedRules back = CompileRules(file, {}, found);
    ASSERT_EQ(back.rules, rules.rules) << file.text << Rendered(found);
    ASSERT_EQ(back.sentences, rules.sentences) << file.text;
    ASSERT_EQ(DecompileRules(back), file.text);
  }
}

TEST(RuleSource, BearsAnything) {
  std::mt19937 random(12);
  const std::string_view pieces[] = {"rule ", "fact ", "list ", "a", "b", " = ", "when ", "unless ", "and ", "or ", "not ", "[", "]", ",", "\"",
                                     "\\u{", "}", "\n", "#", "UrlHost ", "Contains ", "FlagIsSet ", "type ", "raw ", "9", "-", "stage ", "weight ",
                                     "\xC3", "from ", "say ", "brand ", "name ", "domains ", "case ", "verdict "};
  for (int round = 0; round < 500; ++round) {
    std::string text;
    for (std::size_t n = random() % 40; n > 0; --n) text += pieces[random() % std::size(pieces)];
    const SourceFile file{"rules.zeph", text};
    Diagnostics found;
    static_cast<void>(CompileRules(file, {}, found));
    Configuration world;
    CompileBrands(file, world, found);
    static_cast<void>(ReadCases(file, found));
    const SourceFile xml{"Indicators.xml", text};
    CheckSource(xml, found);
    for (const Diagnostic& one : found.All()) EXPECT_FALSE(Render(one).empty());
  }
}

std::vector<SourceFile> DefaultSources() {
  std::vector<SourceFile> files;
  for (const char* const name : {"TrustedDomains.xml", "SafeList", "Identifiers.xml", "Indicators.xml", "PopularSites.xml", "Redirectors.xml",
                                 "Resources.xml", "SearchServices.xml", "URLAnalysis.xml", "WebHostingSites.xml"}) {
    std::ifstream in(std::filesystem::path(ZEPH_SOURCE_DIR) / "package" / name, std::ios::binary);
    files.push_back({name, {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()}});
  }
  return files;
}

TEST(Sources, OfTheDefaultPackageHoldToEveryLawAndComeBackFromTheLanguages) {
  const std::vector<SourceFile> files = DefaultSources();
  Diagnostics found;
  Compiled compiled = CompileSources(files, true, found);
  compiled.configuration.BuildIndexes();
  Lint(compiled.configuration, files, found);
  EXPECT_EQ(found.Errors(), 0U) << Rendered(found);

  const XmlSources sources = DecompileSources(compiled.configuration, compiled.rules);
  EXPECT_EQ(sources.refusal, "");
  std::vector<SourceFile> written;
  for (const PackedFile& file : sources.files) written.push_back({file.Name, file.FileData});
  Diagnostics none;
  Compiled back = CompileSources(written, true, none);
  back.configuration.BuildIndexes();
  EXPECT_EQ(none.Errors(), 0U) << Rendered(none);
  EXPECT_EQ(back.rules.rules, compiled.rules.rules);
  EXPECT_EQ(back.configuration.TrustedDomainInfos, compiled.configuration.TrustedDomainInfos);
  EXPECT_EQ(back.configuration.SafeList, compiled.configuration.SafeList);
  EXPECT_EQ(back.configuration.ExceptionDomains, compiled.configuration.ExceptionDomains);
  EXPECT_EQ(back.configuration.Redirectors, compiled.configuration.Redirectors);
  EXPECT_EQ(back.configuration.Resources, compiled.configuration.Resources);
  EXPECT_EQ(DiffPackages(compiled.configuration, compiled.rules, back.configuration, back.rules), std::vector<std::string>());
  // In the form of a pack too, where all of it is XML.
  Configuration world;
  Indicators rules;
  EXPECT_EQ(back.refusal, "");
  EXPECT_TRUE(ParseTextFiles(back.xml, world, rules));
  EXPECT_EQ(rules, compiled.rules.rules);
  EXPECT_EQ(world.TrustedDomainInfos, compiled.configuration.TrustedDomainInfos);
  EXPECT_EQ(world.SafeList, compiled.configuration.SafeList);
}

TEST(Lint, SaysWhereListsContradictEachOther) {
  const std::vector<SourceFile> files = {
      {"brands.zeph",
       "brand bank.test\n  name \"Bank\"\n  domains bank.test, www.bank.example\n  url ban, Bank, popul\n  text [\"bank, inc\"]\n\n"
       "brand other.test\n  name \"Other\"\n  domains other.test, www.bank.example\n  url other.\n  safe www.bank.example\n"},
      {"PopularSites.xml", "<Domain>popular.test</Domain>\n<Domain>www.popular.test</Domain>\n<Domain>test</Domain>\n"},
      {"WebHostingSites.xml", "<Domain>popular.test</Domain>\n<Domain>other.test</Domain>\n"},
  };
  Diagnostics found;
  Compiled compiled = CompileSources(files, true, found);
  ASSERT_EQ(Rendered(found), "");
  compiled.configuration.BuildIndexes();
  Lint(compiled.configuration, files, found);
  const std::string said = Rendered(found);
  for (const char* const part :
       {"brands.zeph:3:22: error: www.bank.example is a domain of bank.test and of other.test", "\"ban\" is part of too many words",
        "\"Bank\" has capitals", "the tag \"popul\" of Bank stands in popular.test and 1 more", "PopularSites.xml:3:9: error: test has no dot",
        "www.popular.test says nothing: popular.test", "popular.test is held for popular and hosts users' pages",
        "the popular sites hide bank.test, a domain of Bank", "other.test hosts users' pages, and the safe list covers them"}) {
    EXPECT_NE(said.find(part), std::string::npos) << part << "\n" << said;
  }
}

TEST(PackageDiff, SaysInWordsWhatChanged) {
  const auto compile = [](std::string rules, std::string brands) {
    const std::vector<SourceFile> files = {{"rules.zeph", std::move(rules)}, {"brands.zeph", std::move(brands)}};
    Diagnostics found;
    return CompileSources(files, true, found);
  };
  const Compiled before = compile("rule login\n  stage url\n  weight 0.8\n  when Url Contains [login]\nrule gone\n  stage url\n  weight 0.6\n  when Url Contains [x]\n",
                                  "brand bank.test\n  name \"Bank\"\n  url bank\n");
  const Compiled after = compile("rule login\n  stage url\n  weight 0.7\n  when Url Contains [login, signin]\n",
                                 "brand bank.test\n  name \"Bank\"\n  url bank, bnak\nbrand new.test\n  name \"New\"\n");
  const std::vector<std::string> expected = {"rule login: weight 0.8 became 0.7", "rule login asks something else", "rule gone is gone",
                                             "brand bank.test: tags of addresses: new (1): bnak", "brand new.test (New) is new"};
  EXPECT_EQ(DiffPackages(before.configuration, before.rules, after.configuration, after.rules), expected);
}

}  // namespace
}  // namespace zeph
