// SPDX-License-Identifier: Apache-2.0
// Links, images and scripts.
#include <cstdint>
#include <iterator>
#include <limits>
#include <random>

#include "DetectionEngine/configuration/Configuration.h"
#include "DetectionEngine/page/BrandCounts.h"
#include "DetectionEngine/page/ImageCollector.h"
#include "DetectionEngine/page/LinkCollector.h"
#include "DetectionEngine/page/PageUrls.h"
#include "DetectionEngine/page/ScriptCollector.h"
#include "tests/page/Pages.h"

namespace zeph {
namespace {

TEST(LinkCollector, SortsTargets) {
  const auto page =
      Page("'get_links': [0, 1, 2, 3, null, 4, 5, 6, 7, 8, 0]",
           "{'IHTMLAnchorElement': {'get_href': 'HTTP://A.test/X'}, 'IHTMLElement': {'get_innerText': 'One'}},"
           "{'IHTMLAnchorElement': {'get_href': 'mailto:x@y'}, 'IHTMLElement': {}},"
           "{'IHTMLAnchorElement': {'get_href': 'x'}, 'IHTMLAreaElement': {'get_href': 'https://b.test/'}},"
           "{'IHTMLAnchorElement': {'get_href': ''}, 'IHTMLElement': {'get_innerText': 'Two'}},"
           "{'IHTMLAnchorElement': {}, 'IHTMLElement': {'get_innerText': 'not read'}},"
           "{'IHTMLAnchorElement': {'get_href': 'http://c.test/'}, 'IHTMLAreaElement': {'get_href': {'status': -1}}},"
           "{'IHTMLAnchorElement': {'get_href': 'http://d.test/'}, 'IHTMLElement': {'get_innerText': {'status': -1}}},"
           "{'IHTMLElement': {'get_innerText': 'no link'}},"
           "{'IHTMLAnchorElement': {'get_href': 'http://['}}");
  LinkData links;
  EXPECT_EQ(CollectLinkData(page.get(), links), 0);
  EXPECT_EQ(links.urls,
            (Texts{u"http://a.test/x", u"mailto:x@y", u"https://b.test/", u"http://[", u"http://a.test/x"}));
  EXPECT_EQ(links.validUrls, (Texts{u"http://a.test/x", u"https://b.test/", u"http://a.test/x"}));
  EXPECT_EQ(links.invalidUrls, Texts{u"http://["});
  EXPECT_EQ(links.otherUrls, Texts{u"mailto:x@y"});
  EXPECT_EQ(links.urlTally, (Tally{{u"http://a.test/x", 2}, {u"https://b.test/", 1}}));
  EXPECT_EQ(links.hostTally, (Tally{{u"a.test", 2}, {u"b.test", 1}}));
  EXPECT_EQ(links.otherUrlTally, (Tally{{u"mailto:x@y", 1}}));
  EXPECT_EQ(links.linkText, u" one two no link one");
  EXPECT_FALSE(links.brandCountsReady);
}

TEST(UrlHosts, GiveTheHostOfTheWholeUrl) {
  constexpr std::u16string_view kPieces[] = {u"http://", u"https://", u"a.test", u"B.test.", u"/", u"\\",
                                             u"?",       u"#",        u":80",    u":x",      u"@", u"user",
                                             u" ",       u"%2e",      u"[",      u"\n",      u"",  u"\u00e4"};
  TextArena texts;
  UrlHosts hosts(texts);
  std::mt19937 random(7);
  for (int round = 0; round < 20000; ++round) {
    std::u16string made(random() % 2 == 0 ? u"http://" : u"https://");
    for (auto length = random() % 6; length > 0; --length) made += kPieces[random() % std::size(kPieces)];
    const std::u16string_view url = texts.Keep(made);
    UrlParser parser;
    const bool decodes = parser.DecodeUrl(url) == 0;
    const UrlHosts::Host* const host = hosts.HostOf(url);
    ASSERT_EQ(host != nullptr, decodes) << Narrow(url);
    if (decodes) {
      ASSERT_EQ(host->name, parser.Record().HostName) << Narrow(url);
    }
  }
  const std::u16string longest = u"http://a.test/" + std::u16string(kMaxUrlLength - 14, u'x');
  EXPECT_NE(hosts.HostOf(longest), nullptr);
  EXPECT_EQ(hosts.HostOf(texts.Copy(longest + u"x")), nullptr);
}

std::string Image(std::string_view members) { return "{'IHTMLImgElement': {" + std::string(members) + "}}"; }

TEST(ImageCollector, SortsSources) {
  const auto page = Page("'get_images': [0, 1, 1, 2, 3, 4, 5, 6]",
                         Image("'get_src': 'http://a.test/i/A.png'") + "," + Image("'get_src': 'pics/b.png'") + "," +
                             Image("'get_src': 'http://['") + "," + Image("'get_src': ''") + "," +
                             Image("'get_src': 'mhtml:file%20x!http://z.test/p.png'") + "," + Image("") + "," +
                             Image("'get_src': 'http://b.test/i/A.png'"));
  ImageData images;
  EXPECT_EQ(CollectImageData(page.get(), Decoded(u"http://a.test/dir/page"), images), 0);
  EXPECT_EQ(images.sources, (Texts{u"http://a.test/i/A.png", u"pics/b.png", u"pics/b.png", u"http://[", u"",
                                   u"mhtml:file x!http://z.test/p.png", u"http://b.test/i/A.png"}));
  EXPECT_EQ(images.invalidUrls, Texts{u"http://["});
  EXPECT_EQ(images.localUrls, (Texts{u"pics/b.png", u"pics/b.png", u"", u"mhtml:file x!http://z.test/p.png"}));
  EXPECT_EQ(images.hostTally, (Tally{{u"a.test", 1}, {u"b.test", 1}}));
  EXPECT_EQ(images.localTally, (Tally{{u"", 1}, {u"mhtml:file x!http://z.test/p.png", 1}, {u"pics/b.png", 2}}));
  EXPECT_EQ(images.ownImageCount, 4);  // one of the page's host, three local ones
  EXPECT_EQ(images.urlTally.at(u"http://a.test/dir/pics/b.png"), 2);
  EXPECT_EQ(images.uniqueUrlCount, static_cast<std::int32_t>(images.urlTally.size()));
  EXPECT_EQ(images.pathTally.at(u"/i/A.png"), 2);
  EXPECT_EQ(images.pathTally.at(u"/dir/pics/b.png"), 2);
  EXPECT_EQ(images.pathTally.at(u"mhtml:file x!http://z.test/p.png"), 1);
  ASSERT_EQ(images.paths.size(), images.pathTally.size());
  EXPECT_TRUE(std::ranges::is_sorted(images.paths));
  EXPECT_EQ(images.widths.size(), images.sources.size());
}

TEST(ImageCollector, SizesStayParallelAndAreaIsHeld) {
  constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();
  struct Row {
    std::string_view sizes;
    std::int32_t width, height, area;
  };
  const Row rows[] = {
      {"'get_width': 3, 'get_height': 5", 3, 5, 15},
      {"'get_width': 3", 3, -1, 0},
      {"'get_height': 5", -1, -1, 0},
      {"'get_width': {'status': -1}, 'get_height': 5", -1, -1, 0},
      {"'get_width': 3, 'get_height': {'status': -1}", 3, -1, 0},
      {"'get_width': 2147483647, 'get_height': 2147483647", kMost, kMost, kMost},
      {"'get_width': -2147483648, 'get_height': 2147483647", -kMost - 1, kMost, -kMost - 1},
  };
  for (const Row& row : rows) {
    ImageData images;
    // The image behind it shows whether the lists stayed parallel; it ends the walk with its own status.
    const auto page = Page("'get_images': [0, 1]",
                           Image("'get_src': 'a', " + std::string(row.sizes)) + ", " + Image("'get_src': 'b'"));
    EXPECT_EQ(CollectImageData(page.get(), {}, images), 0) << row.sizes;
    EXPECT_EQ(images.widths, (std::vector<std::int32_t>{row.width, -1})) << row.sizes;
    EXPECT_EQ(images.heights, (std::vector<std::int32_t>{row.height, -1})) << row.sizes;
    EXPECT_EQ(images.totalArea, row.area) << row.sizes;
  }
}

TEST(ImageCollector, LongSourceOfASavedPageCountsAsEmpty) {
  for (const std::size_t length : {4095U, 4096U}) {
    const std::string source = "mhtml:%41" + std::string(length - 7, 'x');
    ImageData images;
    const auto page = Page("'get_images': [0]", Image("'get_src': '" + source + "'"));
    CollectImageData(page.get(), {}, images);
    EXPECT_EQ(images.sources[0].size(), length == 4095 ? length : 0);
  }
}

TEST(ScriptCollector, TakesTextFromThePageAndTheCache) {
  const auto page =
      Page("'get_URL': 'http://a.test/dir/page', 'get_scripts': [0, 1, 2, 3, 4, 5, 6, 7]",
           "{'IHTMLScriptElement': {'get_text': 'inline', 'get_src': 'one.js#part'}, 'IHTMLElement': {"
           "'getAttribute': {'language': 'JScript'}}},"
           "{'IHTMLScriptElement': {'get_src': 'http://b.test/x y.js'}, 'IHTMLElement': {}},"
           "{'IHTMLScriptElement': {'get_src': 'http://['}, 'IHTMLElement': {'getAttribute': {'language': ''}}},"
           "{'IHTMLScriptElement': {'get_src': ''}, 'IHTMLElement': {}},"
           "{'IHTMLElement': {}},"
           "{'IHTMLScriptElement': {'get_text': {'status': -1}, 'get_src': 'not read'}, 'IHTMLElement': {}},"
           "{'IHTMLScriptElement': {'get_text': 'last'}},"
           "{'IHTMLScriptElement': {'get_text': 'behind the end'}, 'IHTMLElement': {}}",
           "'http://a.test/dir/one.js': 'cached\\u0000rest', 'http://b.test/x%20y.js': 'two'");
  ScriptData scripts;
  EXPECT_EQ(CollectScriptData(page.get(), scripts), 0);
  EXPECT_EQ(scripts.scriptCount, 8);
  EXPECT_EQ(scripts.sourceCount, 3);
  EXPECT_EQ(scripts.texts, (Texts{u"inline", u"cached", u"two", u"last"}));
  EXPECT_EQ(scripts.languages, (Texts{u"JScript", u""}));
  EXPECT_EQ(scripts.sources, (Texts{u"one.js#part", u"http://b.test/x y.js", u"http://["}));
  EXPECT_EQ(scripts.relativeSources, Texts{u"one.js#part"});
  EXPECT_EQ(scripts.absoluteSources, (Texts{u"http://b.test/x y.js", u"http://["}));
  EXPECT_EQ(scripts.validUrls, Texts{u"http://b.test/x y.js"});
  EXPECT_EQ(scripts.invalidUrls, Texts{u"http://["});
  EXPECT_EQ(scripts.hostTally, (Tally{{u"b.test", 1}}));
}

class BrandCounts : public testing::Test {
 protected:
  BrandCounts() {
    configuration_.TrustedDomainInfos[u"bank.test"].DT = {u"bank.test", u"bank-*.test"};
    configuration_.TrustedDomainInfos[u"pay.test"].DT = {u"pay.test", u"bank.test"};
    configuration_.PopularSites.Entries = {{kDomain, u"popular.pay.test", {}, 0, {}}};
    configuration_.BuildIndexes();
    page_.configuration = &configuration_;
  }
  Configuration configuration_;
  PageData page_;
};

TEST_F(BrandCounts, SortHostsByTheFirstBrandThatHasThem) {
  page_.links.hostTally = {{u"other.test", 4}, {u"www.bank.test", 3},      {u"bank-x.test", 1},
                           {u"pay.test", 2},   {u"popular.pay.test", 100}, {u"a.pay.test", 2}};
  EXPECT_EQ(LinkBrandCount(page_), 8);
  EXPECT_EQ(page_.links.brandTally, (Tally{{u"bank.test", 4}, {u"pay.test", 4}}));
  EXPECT_EQ(page_.links.otherHostTally, (Tally{{u"other.test", 4}, {u"popular.pay.test", 100}}));
  EXPECT_EQ(page_.links.dominantBrand, u"bank.test");  // of equal counts the first
  page_.links.hostTally[u"late.bank.test"] = 5;
  EXPECT_EQ(LinkBrandCount(page_), 8) << "is computed once";

  page_.images.hostTally = {{u"pay.test", 7}};
  page_.scripts.hostTally = {{u"bank.test", 1}, {u"x.test", 1}};
  EXPECT_EQ(ImageBrandCount(page_), 7);
  EXPECT_EQ(page_.images.dominantBrand, u"pay.test");
  EXPECT_EQ(ScriptBrandCount(page_), 1);
}

TEST_F(BrandCounts, AreOneWithoutConfiguration) {
  page_.configuration = nullptr;
  page_.links.hostTally = {{u"bank.test", 3}};
  EXPECT_EQ(LinkBrandCount(page_), 1);
  EXPECT_FALSE(page_.links.brandCountsReady);
  page_.configuration = &configuration_;
  EXPECT_EQ(LinkBrandCount(page_), 3);
}

}  // namespace
}  // namespace zeph
