// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "DetectionEngine/configuration/Configuration.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/scoring/FormMeasures.h"
#include "DetectionEngine/scoring/ImageMeasures.h"
#include "DetectionEngine/scoring/ScriptMeasures.h"
#include "DetectionEngine/scoring/SiteMeasures.h"
#include "DetectionEngine/scoring/TextMeasures.h"

namespace zeph {
namespace {

ExpressionValue Value(std::u16string_view text, std::uint32_t type = kValueText) {
  ExpressionValue value;
  value.Value = text;
  value.ValueType = type;
  value.Prepare();
  return value;
}

/// "on", or "off", and both texts.
std::string Show(const IndicatorResult& result) {
  return std::string(result.on ? "on" : "off") + " [" + Narrow(result.fieldText) + "] [" + Narrow(result.matchText) +
         "]";
}

FormRecord Form(std::int32_t texts, std::int32_t passwords) {
  FormRecord form;
  form.textCount = texts;
  form.passwordCount = passwords;
  form.multipleFields = texts + passwords > 1;
  form.hasUserFields = texts + passwords > 0;
  return form;
}

TEST(FormMeasures, LoginFieldsPresent) {
  AllParser all;
  all.textInputCount = 2;
  all.passwordInputCount = 1;
  EXPECT_EQ(Show(LoginFieldsPresent({}, all)), "on [3] []");
  const FormRecord two[] = {Form(1, 0), Form(1, 1)};
  EXPECT_EQ(Show(LoginFieldsPresent(two, all)), "on [2] []");
  const FormRecord three[] = {Form(1, 0), Form(0, 1), Form(1, 0)};
  EXPECT_EQ(Show(LoginFieldsPresent(three, all)), "off [] []");  // three in forms, three on the page
}

TEST(FormMeasures, WordsPerField) {
  PageData page;
  page.body.wordCount = 100;
  EXPECT_EQ(Show(WordsPerField(page, 99)), "on [100] [99]");
  page.forms.records = {Form(1, 1)};
  page.forms.records[0].selectCount = 1;
  EXPECT_EQ(Show(WordsPerField(page, 33)), "off [33] []");
  EXPECT_EQ(Show(WordsPerField(page, 32)), "on [33] [32]");
  page.forms.records[0].selectCount = 2147483647;  // no overflow
  page.forms.records[0].textareaCount = 2147483647;
  EXPECT_EQ(Show(WordsPerField(page, -1)), "on [0] [-1]");
}

TEST(FormMeasures, FieldDensity) {
  PageData page;
  EXPECT_EQ(Show(FieldDensity(page)), "off [] []");
  page.forms.records = {Form(1, 1)};
  page.forms.records[0].selectCount = 9;  // doesn't count
  page.forms.numVisibleForms = 1;
  page.body.wordCount = 240;
  EXPECT_EQ(Show(FieldDensity(page)), "on [952/10000] [0.0199]");
  page.body.lineBreakCount = 200;
  EXPECT_EQ(Show(FieldDensity(page)), "off [99/10000] []");
  page.body.lineBreakCount = 100;  // 0.02 as a 32-bit number lies just below 0.02
  EXPECT_EQ(Show(FieldDensity(page)), "on [199/10000] [0.0199]");
  page.all.blockCountB = 180;
  page.forms.numVisibleForms = 2;
  EXPECT_EQ(Show(FieldDensity(page)), "off [49/10000] []");
}

TEST(FormMeasures, LookAtSingleForms) {
  FormRecord forms[] = {Form(1, 0), Form(1, 1), Form(2, 0)};
  const auto set = [&](std::u16string_view action, std::u16string_view scheme, std::u16string_view extension) {
    for (FormRecord& form : forms) {
      form.action = action;
      form.actionScheme = scheme;
      form.actionExtension = extension;
    }
    forms[2].action = u"second";
  };
  set(u"go.php", u"http", u"php");
  EXPECT_EQ(Show(FormWithExtension(forms)), "on [] [go.php]");
  set(u"http://a.test/go.php", u"http", u"php");
  EXPECT_EQ(Show(FormWithExtension(forms)), "on [] [second]");
  set(u"go.asp", u"mailto", u"asp");
  EXPECT_EQ(Show(FormWithExtension(forms)), "off [] []");
  EXPECT_EQ(Show(FormWithScheme(forms)), "on [go.asp] []");
  EXPECT_EQ(Show(FormWithScheme(std::span(forms, 1))), "off [] []");

  forms[0].hasHiddenAddress = true;
  forms[0].hiddenAddress = u"x@y.z";
  EXPECT_EQ(Show(FormWithHiddenAddress(forms)), "on [] [go.asp | x@y.z]");
  forms[0].hasUserFields = false;
  EXPECT_EQ(Show(FormWithHiddenAddress(forms)), "off [] []");

  const std::pair<std::vector<FormRecord>, bool> oneField[] = {
      {{}, false},
      {{Form(0, 0), Form(0, 1)}, true},
      {{Form(1, 0), Form(0, 1)}, true},  // the sum was one after the first
      {{Form(1, 0), Form(1, 1)}, false},
  };
  for (const auto& [records, on] : oneField) EXPECT_EQ(OneField(records).on, on) << records.size();
}

TEST(ImageMeasures, BrandImageShare) {
  ImageData images;
  images.sources.resize(4);
  EXPECT_EQ(Show(BrandImageShare(images, Value(u"0"))), "off [] []");
  images.brandImageCount = 1;
  EXPECT_EQ(Show(BrandImageShare(images, Value(u"0.25"))), "off [] []");
  EXPECT_EQ(Show(BrandImageShare(images, Value(u"0.2"))), "on [0.250000] [0.200000]");
  EXPECT_EQ(Show(BrandImageShare(images, Value(u""))), "on [0.250000] [0.000000]");
}

TEST(ImageMeasures, ImageAreaAgainstText) {
  const std::tuple<std::int32_t, std::int32_t, std::string_view> rows[] = {
      {0, 0, "off [] []"},
      {-1, 0, "off [] []"},
      {9600000, 0, "on [4000000/10000] [0.40]"},
      {9600, 1, "on [4000/10000] [0.40]"},  // 0.4 as a 32-bit number lies just above 0.4
      {9600, 2, "off [2000/10000] []"},
      {2147483647, 0, "on [894784843/10000] [0.40]"},
  };
  for (const auto& [area, blocks, expected] : rows) {
    PageData page;
    page.images.totalArea = area;
    page.all.blockCountC = blocks;
    EXPECT_EQ(Show(ImageAreaAgainstText(page)), expected) << area;
  }
}

/// Rules of which those with these numbers have fired.
std::vector<IndicatorResult> Fired(std::initializer_list<std::size_t> numbers) {
  std::vector<IndicatorResult> results(5);
  for (const std::size_t number : numbers) results[number].on = true;
  return results;
}

TEST(ImageMeasures, ImageGrid) {
  PageData page;
  page.images.paths.resize(6);
  page.body.labelText = u"1234567";
  EXPECT_EQ(Show(ImageGrid(page, Value(u""), {})), "on [] [0]");
  page.body.labelText = u"12345678";
  EXPECT_EQ(Show(ImageGrid(page, Value(u""), {})), "off [] [0]");

  page.images.paths.resize(12);
  page.images.widths = {24, 250, 23, 251, 30, 30, 30, 30, 30, 30, 30, -1};
  page.images.heights = {12, 36, 20, 20, 11, 37, 20, 20, 20, 20, 20, -1};
  page.body.fieldWithoutLabel = true;
  EXPECT_EQ(Show(ImageGrid(page, Value(u"3,-4,0"), Fired({3}))), "on [] [7]");
  EXPECT_EQ(Show(ImageGrid(page, Value(u"3,-4"), Fired({3, 4}))), "off [] [7]");
  EXPECT_EQ(Show(ImageGrid(page, Value(u"3,0"), Fired({3, 0}))), "off [] [7]");
  EXPECT_EQ(Show(ImageGrid(page, Value(u"3,99,-99,-2147483648"), Fired({3}))), "on [] [7]");
  EXPECT_EQ(Show(ImageGrid(page, Value(u"99"), Fired({3}))), "off [] [7]");
  const std::u16string label(101, u'x');
  page.body.labelText = label;
  EXPECT_EQ(Show(ImageGrid(page, Value(u"3"), Fired({3}))), "off [] [7]");
  page.body.labelText.remove_suffix(1);
  page.images.widths[0] = 23;  // half of them
  EXPECT_EQ(Show(ImageGrid(page, Value(u"3"), Fired({3}))), "off [] [6]");
}

TEST(ImageMeasures, ImagesForText) {
  PageData page;
  page.all.backgrounds = {u"b"};
  const auto run = [&](std::u16string_view items, std::vector<IndicatorResult> results, bool isClient, bool decided) {
    page.imageTextFound = false;
    const IndicatorResult result = ImagesForText(page, Value(items), results, isClient, decided);
    EXPECT_EQ(page.imageTextFound, result.on);
    return Show(result);
  };
  const std::string_view hit = "on [] [one big image]";
  EXPECT_EQ(run(u"1,-2,=3", Fired({1, 3}), false, true), hit);
  EXPECT_EQ(run(u"1,-2,=3", Fired({1, 3}), true, true), "off [] []");
  EXPECT_EQ(run(u"1,-2,=3", Fired({1}), false, true), "off [] []");
  EXPECT_EQ(run(u"1,-2,=3", Fired({1}), false, false), hit);
  EXPECT_EQ(run(u"1,-2", Fired({1, 2}), false, false), "off [] []");
  EXPECT_EQ(run(u"-2", Fired({1}), false, false), "off [] []");

  page.images.widths = {50, 100, 100};
  page.images.heights = {20, 22, 23};                   // 0.23 as a 32-bit number lies above 0.23
  EXPECT_EQ(run(u"1", Fired({1}), false, false), hit);  // one flat image only
  page.images.heights[2] = 10;
  EXPECT_EQ(run(u"1", Fired({1}), false, false), "on [] [images for sentence/paragraph]");
  page.body.visibleText = u"One  two.\r\nThree  four.\r\nFive .";
  EXPECT_EQ(run(u"1", Fired({1}), false, false), "on [] [images for sentence/paragraph]");  // three gaps, two images
  page.images.widths.push_back(20);
  page.images.heights.push_back(10);
  EXPECT_EQ(run(u"1", Fired({1}), false, false), "on [] [images for words]");
}

TEST(ImageMeasures, CountTextGaps) {
  const std::pair<std::u16string_view, std::size_t> rows[] = {
      {u"", 0},
      {u"One sentence. Another one.", 0},
      {u"one two.", 0},   // begins at once
      {u" one two.", 1},  // begins with a blank and a small letter
      {u" One two.", 0},
      {u"One  two.", 1},
      {u"One  two  three.", 1},  // once for each sentence
      {u"One two .", 1},
      {u" one  two .", 3},
      {u"One  two", 0},  // what no mark ends isn't looked at
      {u"One.\r\n two.\n Three.", 1},
      {u"One. two. 1 .", 3},  // once a sentence began small, one without letters counts too
      {u"One.\n 1 .", 1},
      {u".?!", 0},
      {u" .", 1},
      {u"1234567a. 1  2.", 0},  // looked at from where the last letter stood
  };
  for (const auto& [text, gaps] : rows) EXPECT_EQ(CountTextGaps(text), gaps) << Narrow(text);
}

TEST(TextMeasures, SiteNameInPhrase) {
  const Texts phrases = {u"welcome to the mill", u"my own bank-of example"};
  EXPECT_EQ(Show(SiteNameInPhrase(u"mybank", phrases)), "on [] [my own bank-of example]");
  EXPECT_EQ(Show(SiteNameInPhrase(u"my-bank", phrases)), "on [] [my own bank-of example]");
  EXPECT_EQ(Show(SiteNameInPhrase(u"MyBank", phrases)), "off [] []");
  EXPECT_EQ(Show(SiteNameInPhrase(u"ekampel", phrases)), "off [] []");
  EXPECT_EQ(Show(SiteNameInPhrase(u"--", phrases)), "on [] [welcome to the mill]");
  EXPECT_EQ(Show(SiteNameInPhrase(u"", phrases)), "off [] []");
  EXPECT_EQ(Show(SiteNameInPhrase(u"--", {})), "off [] []");
}

TEST(TextMeasures, LabelWords) {
  PageData page;
  page.body.labelText = u" Your PIN: and Card-Number";
  const std::pair<std::u16string_view, bool> rows[] = {
      {u"a1,|,b1,|,cardnumber", true},   {u"a1,|,pin,|,cardnumber", false},
      {u"PIN,|,b1,|,cardnumber", false}, {u"|,|,PINand", true},
      {u"|,|,c1,|,pin", true},           {u"cardnumber", false},
      {u"|,cardnumber", false},          {u"", false},
  };
  for (const auto& [items, on] : rows) EXPECT_EQ(LabelWords(page, Value(items)).on, on) << Narrow(items);
  page.all.passwordInputCount = 1;
  EXPECT_FALSE(LabelWords(page, Value(u"|,|,pin")).on);
}

TEST(TextMeasures, EmptyPageWithMarker) {
  PageData page;
  page.all.hasMarkerText = true;
  page.all.elementCount = 100;
  EXPECT_TRUE(EmptyPageWithMarker(page).on);
  page.all.elementCount = 101;
  EXPECT_FALSE(EmptyPageWithMarker(page).on);
  page.all.elementCount = 1;
  page.forms.numForms = 1;
  EXPECT_FALSE(EmptyPageWithMarker(page).on);
  page.forms.numForms = 0;
  page.body.visibleText = u" ";
  EXPECT_FALSE(EmptyPageWithMarker(page).on);
}

TEST(SiteMeasures, SiteListMembership) {
  Configuration configuration;
  configuration.TrustedDomains.Entries = {{kUrl, u"a.test", {}, 0, {}}, {kDomain, u"a.test", {}, 0, {}}};
  configuration.PopularSites.Entries = {{kNetwork, u"n", {0x01020300, 0x010203FF}, 0, {}}};
  configuration.BlockList.Entries = {{kNetwork, u"n", {0, 0xFFFFFFFF}, 0, {}},
                                     {kUrl, u"http://b.test/x", {}, 0, {}},
                                     {kHostname, u"b*.test", {}, 0, {}},
                                     {kDomain, u"c.test", {}, 0, {}}};
  configuration.BlockedToTrusted = {{u"http://b.test/x", u"bank.test"}};
  configuration.BuildIndexes();
  struct Row {
    std::u16string_view text, value;
    std::uint32_t type;
    std::string_view expected;
  };
  const Row rows[] = {
      {u"www.a.test", u"x.test,a.test", kValueText, "on [www.a.test] [a.test]"},
      {u"www.a.test", u"x.test,A.test", kValueText, "off [] []"},
      {u"www.a.test", u"0", kValueSiteList, "on [www.a.test] [a.test]"},
      {u"a.test", u"1", kValueSiteList, "on [a.test] [a.test]"},
      {u"1.2.3.4", u"2", kValueSiteList, "on [1.2.3.4] []"},
      {u"a.test", u"3", kValueSiteList, "off [] []"},
      {u"a.test", u"4", kValueSiteList, "off [] []"},
      {u"a.test", u"a.test", kValueList, "off [] []"},
      {u"http://www.b.test/x/?q", u"7", kValueSiteList, "on [http://www.b.test/x/?q] [bank.test]"},
      {u"http://b1.test/y", u"7", kValueSiteList, "on [http://b1.test/y] []"},
      {u"http://www.c.test/", u"7", kValueSiteList, "on [http://www.c.test/] []"},
      {u"http://1.2.3.4/", u"7", kValueSiteList, "off [] []"},
      {u"c.test", u"7", kValueSiteList, "off [] []"},
  };
  for (const Row& row : rows) {
    const std::u16string_view texts[] = {u"", row.text};
    EXPECT_EQ(Show(SiteListMembership(texts, Value(row.value, row.type), configuration, {})), row.expected)
        << Narrow(row.text) << " in " << Narrow(row.value);
  }
}

TEST(SiteMeasures, OwnHostLinks) {
  LinkData links;
  UrlRecord url;
  url.HostName = u"a.test";
  links.urls.resize(10);
  links.validUrls.resize(10);
  links.hostTally = {{u"a.test", 1}, {u"A.test", 9}};
  links.urlTally = {{u"1", 8}, {u"2", 2}};
  EXPECT_EQ(Show(OwnHostLinks(links, url, Value(u"0.05"))), "on [0.050000] [0.100000]");
  EXPECT_EQ(Show(OwnHostLinks(links, url, Value(u"0.1"))), "on [0.100000] [0.100000]");  // above it as a 32-bit number
  EXPECT_EQ(Show(OwnHostLinks(links, url, Value(u"0.11"))), "off [] []");
  links.urlTally[u"1"] = 10;
  EXPECT_FALSE(OwnHostLinks(links, url, Value(u"0")).on);
  links.urlTally[u"1"] = 1;
  links.validUrls.resize(11);  // 2 of 11 differ
  EXPECT_FALSE(OwnHostLinks(links, url, Value(u"0")).on);
  links.validUrls.clear();
  EXPECT_TRUE(OwnHostLinks(links, url, Value(u"")).on);
  url.HostName = u"b.test";
  EXPECT_FALSE(OwnHostLinks(links, url, Value(u"")).on);
}

/// A text many times.
std::u16string Times(std::size_t count, std::u16string_view text) {
  std::u16string result;
  for (std::size_t i = 0; i < count; ++i) result += text;
  return result;
}

TEST(ScriptMeasures, HiddenScript) {
  const std::u16string escapes = Times(21, u"%41") + std::u16string(100, u'x');
  const std::u16string list = u"var array = (" + Times(21, u"1234567,") + u"1)";
  struct Row {
    std::u16string text, match;
  };
  const Row rows[] = {
      {u"", u""},
      {escapes.substr(0, 151), u"escaped script"},
      {escapes.substr(0, 150), u""},
      {u"short\n" + escapes + u"\nrest", u"escaped script"},
      {Times(20, u"%41") + std::u16string(100, u'x'), u""},
      {std::u16string(100, u'x') + escapes, u"escaped script"},
      {std::u16string(101, u'x') + escapes, u""},
      {Times(21, u"%123456789"), u"escaped script"},
      {Times(21, u"%12345678901"), u""},
      {u"%" + std::u16string(10, u'x') + escapes, u"escaped script"},
      {u"%" + std::u16string(11, u'x') + escapes, u""},
      {u"array" + escapes, u""},  // a line with an array isn't put to the other test
      {list, list},
      {u"array)" + list, u"array)" + list},
      {u"arrayarray(x)" + list, u"arrayarray(x)" + list},
      {u"array[(((" + Times(21, u"1234567,") + u"]", u"array[(((" + Times(21, u"1234567,") + u"]"},
      {u"new Array (" + Times(21, u"1234567,") + u"1)", u""},
      {u"array(" + Times(20, u"1234567,") + u"1)", u""},
      {u"array(" + Times(21, u"1234567, ") + u"1)", u""},
      {u"x array" + std::u16string(200, u'x'), u""},
      {u"a function(_0x1)", u"obfuscated page"},
      {u"eval(function(p,a,c,k,e,d)", u"packed script"},
      {u"EVAL(FUNCTION(P,A,C,K,E,D)", u""},
      {u"function(_0x1)\n" + escapes, u"escaped script"},  // what is found last names it
  };
  for (const Row& row : rows) {
    const std::u16string expected = row.match == row.text ? row.text : row.match;
    ScriptData scripts;
    scripts.texts = {row.text};
    const IndicatorResult result = HiddenScript(scripts, {});
    EXPECT_EQ(Narrow(result.matchText), Narrow(expected)) << Narrow(row.text);
    EXPECT_EQ(result.on, !expected.empty()) << Narrow(row.text);
  }

  ScriptData scripts;
  scripts.texts = {u"a function(_", u"0x"};  // texts are joined
  EXPECT_TRUE(HiddenScript(scripts, {}).on);
  scripts.texts.clear();
  EXPECT_EQ(HiddenScript(scripts, Texts{u"HTML Encryption provided by x"}).matchText, u"obfuscated page");
  scripts.languages = {u"JScript.Encode"};
  EXPECT_FALSE(HiddenScript(scripts, {}).on);
  scripts.languages = {u"x", u"vbscript.encode"};
  EXPECT_EQ(HiddenScript(scripts, {}).matchText, u"encoded script");
}

TEST(ScriptMeasures, ScriptWords) {
  const std::pair<std::u16string_view, bool> rows[] = {
      {u"Password $.Ajax( location.replace(\"HTTPS://x", true},
      {u"password fetch( location.replace(", false},
      {u"password fetch( https://", false},
      {u"password fetch( chat_id", true},
      {u"password chat_id", false},
      {u"fetch( chat_id", false},
  };
  for (const auto& [text, on] : rows) {
    const Texts texts = {u"password", text};
    const IndicatorResult result = ScriptWords(texts);
    EXPECT_EQ(result.on, on) << Narrow(text);
    EXPECT_EQ(result.fieldText, on ? text : u"") << Narrow(text);
  }
}

}  // namespace
}  // namespace zeph
