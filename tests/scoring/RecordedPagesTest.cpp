// SPDX-License-Identifier: Apache-2.0
// Whole pages: what is read from each, and what a rule may ask of it.
#include <fstream>
#include <sstream>

#include "DetectionEngine/configuration/Configuration.h"
#include "DetectionEngine/page/BrandCounts.h"
#include "DetectionEngine/scoring/FormMeasures.h"
#include "DetectionEngine/scoring/ImageMeasures.h"
#include "DetectionEngine/scoring/PageRecognition.h"
#include "DetectionEngine/scoring/TextMeasures.h"
#include "TestPaths.h"
#include "documents/DocumentRecorder.h"
#include "documents/RecordingWriter.h"
#include "tests/page/Pages.h"
#include "tests/page/ReadPage.h"

namespace zeph {
namespace {

std::unique_ptr<RecordedDocument> Load(const std::string& name) {
  std::ostringstream json;
  json << std::ifstream(ZEPH_TEST_DATA "/recordings/" + name + ".json").rdbuf();
  std::string error;
  auto document = RecordedDocument::Parse(json.str(), error);
  EXPECT_NE(document, nullptr) << name << ": " << error;
  return document;
}

/// The measures that hold for a page.
std::string Hits(PageData& page) {
  std::string hits;
  const auto add = [&](bool on, std::string_view name) {
    if (on) hits.append(hits.empty() ? "" : " ").append(name);
  };
  std::u16string shown;
  for (const auto* list : {&page.all.captions, &page.all.textsOfTagF}) {
    for (const std::u16string_view text : *list) shown += std::u16string(u" ").append(text);
  }
  add(LoginFieldsPresent(page.forms.records, page.all).on, "login");
  add(FieldDensity(page).on, "dense");
  add(FormWithExtension(page.forms.records).on, "extension");
  add(FormWithHiddenAddress(page.forms.records).on, "address");
  add(OneField(page.forms.records).on, "one-field");
  add(ImageAreaAgainstText(page).on, "image-area");
  ExpressionValue noRules;
  add(ImageGrid(page, noRules, {}).on, "image-grid");
  add(SiteNameInPhrase(page.url.MainDomain, page.body.markerPhrases).on, "named-in-text");
  add(SavedCopy(page.all.comments, page.images.sources, page.scripts.sources).on, "saved");
  add(ShowsMail(page.body.visibleText, shown, page.url.RawUrl), "mail");
  return hits;
}

TEST(RecordedPages, ShowWhatTheyAre) {
  struct Row {
    std::string name;
    std::u16string_view structure, labels;
    std::int32_t brandLinks, brandImages, refresh;
    std::string_view hits;
  };
  const Row rows[] = {
      {"bank-login", u"GTnTnTnTnnnnTnnTnnnnTInnnnTInnnnBTnnnnTnnTnnTnnnnTnnnnnnTnnn", u" Customer number  Password ", 0,
       0, -1, "login dense named-in-text"},
      {"payment-copy", u"GTnnnnTnnnnTnInnnnTnInnnnTnInnnnGnnnnTnnGGnnTnnTnnn",
       u" Email address  Password  Card number ", 6, 3, 600, "login dense extension address saved"},
      {"web-mail", u"TIBnnTnnnTnTnTnTnTnnnnTnTnnTnnTnnTnnnTnnnnTnnnnTnTnnGTnnTnnn", u" Quillpost ", 0, 0, -1,
       "login mail"},
      {"article", u"TIBnnnTnnTnnnnTnnGnnTnnnnTnnnnTnnGnnTnnnnnTnTnTnnnnnnTnnn", u" Search ", 0, 0, -1,
       "dense one-field image-area named-in-text"},
      {"images-for-text", u"GGGnnGGGnnGGGnnGGGnnGGGnnGInnGInG", u"", 1, 0, -1, "login dense"},
  };
  Configuration configuration;
  configuration.TrustedDomainInfos[u"paypal.com"].DT = {u"paypal.com", u"paypalobjects.com"};
  configuration.BuildIndexes();
  for (const Row& row : rows) {
    const auto document = Load(row.name);
    ASSERT_NE(document, nullptr);
    PageData page = ReadPage(*document);
    page.configuration = &configuration;
    EXPECT_EQ(Narrow(page.structure), Narrow(row.structure)) << row.name;
    EXPECT_EQ(Narrow(page.body.labelText), Narrow(row.labels)) << row.name;
    EXPECT_EQ(LinkBrandCount(page), row.brandLinks) << row.name;
    EXPECT_EQ(ImageBrandCount(page), row.brandImages) << row.name;
    EXPECT_EQ(page.all.refreshSeconds, row.refresh) << row.name;
    EXPECT_EQ(Hits(page), row.hits) << row.name;
  }
}

TEST(RecordedPages, ReadTheSameWhenRecordedOnceMore) {
  for (const std::string name : {"bank-login", "payment-copy", "web-mail", "article", "images-for-text"}) {
    const auto document = Load(name);
    ASSERT_NE(document, nullptr);
    DocumentRecorder recorder(*document);
    const std::u16string asked = Everything(ReadPage(recorder));
    std::string json;
    ASSERT_TRUE(WriteRecording(recorder.TakeRecording(), json)) << name;
    std::string error;
    const auto again = RecordedDocument::Parse(json, error);
    ASSERT_NE(again, nullptr) << error;
    EXPECT_EQ(asked, Everything(ReadPage(*document))) << name;
    EXPECT_EQ(asked, Everything(ReadPage(*again))) << name;
  }
}

}  // namespace
}  // namespace zeph
