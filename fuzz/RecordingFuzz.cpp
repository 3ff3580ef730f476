// SPDX-License-Identifier: Apache-2.0
// Recordings, through all collectors, scanners and measures. Law: a page that is recorded once more reads the same, and
// what is written once is written the same again.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "DetectionEngine/configuration/Configuration.h"
#include "DetectionEngine/page/BrandCounts.h"
#include "DetectionEngine/scoring/FormMeasures.h"
#include "DetectionEngine/scoring/ImageMeasures.h"
#include "DetectionEngine/scoring/PageRecognition.h"
#include "DetectionEngine/scoring/ScriptMeasures.h"
#include "DetectionEngine/scoring/SiteMeasures.h"
#include "DetectionEngine/scoring/TextMeasures.h"
#include "documents/DocumentRecorder.h"
#include "documents/Recording.h"
#include "documents/RecordingWriter.h"
#include "tests/page/ReadPage.h"

namespace zeph {
namespace {

void Measure(PageData& page) {
  static const Configuration configuration = [] {
    Configuration made;
    made.TrustedDomainInfos[u"a.test"].DT = {u"a.test", u"*.b.test"};
    made.BuildIndexes();
    return made;
  }();
  page.configuration = &configuration;
  ExpressionValue value;
  value.Value = u"1,-2,=3,a,|,b,|,0.5";
  value.Prepare();
  LinkBrandCount(page);
  ImageBrandCount(page);
  ScriptBrandCount(page);
  (void)LoginFieldsPresent(page.forms.records, page.all);
  (void)WordsPerField(page, 3);
  (void)FieldDensity(page);
  (void)FormWithExtension(page.forms.records);
  (void)FormWithScheme(page.forms.records);
  (void)OneField(page.forms.records);
  (void)FormWithHiddenAddress(page.forms.records);
  (void)BrandImageShare(page.images, value);
  (void)ImageAreaAgainstText(page);
  (void)ImageGrid(page, value, {});
  (void)ImagesForText(page, value, {}, false, false);
  (void)CountTextGaps(page.body.visibleText);
  (void)SiteNameInPhrase(page.url.MainDomain, page.body.markerPhrases);
  (void)LabelWords(page, value);
  (void)EmptyPageWithMarker(page);
  (void)OwnHostLinks(page.links, page.url, value);
  (void)HiddenScript(page.scripts, page.all.comments);
  (void)ScriptWords(page.scripts.texts);
  (void)SavedCopy(page.all.comments, page.images.sources, page.scripts.sources);
  (void)ShowsMail(page.body.visibleText, page.links.linkText, page.url.RawUrl);
}

}  // namespace
}  // namespace zeph

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) try {
  using namespace zeph;
  std::string error;
  const auto document = RecordedDocument::Parse({reinterpret_cast<const char*>(data), size}, error);
  if (document == nullptr) {
    if (error.empty() || error.find('\n') != std::string::npos) std::abort();
    return 0;
  }
  DocumentRecorder recorder(*document);
  PageData page = ReadPage(recorder);
  Recording recording = recorder.TakeRecording();
  std::string json;
  if (!WriteRecording(recording, json)) return 0;
  const auto again = RecordedDocument::Parse(json, error);
  if (again == nullptr || Everything(ReadPage(*again)) != Everything(page)) std::abort();
  std::string jsonAgain;
  if (!WriteRecording(again->Data(), jsonAgain) || jsonAgain != json) std::abort();
  ScrubRecording(recording);
  Measure(page);
  return 0;
} catch (const zeph::TooCostly&) {
  return 0;
}
