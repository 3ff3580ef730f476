// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/engine/PageReading.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/platform/Files.h"
#include "documents/DocumentRecorder.h"
#include "documents/RecordingWriter.h"
#include "judging/Pages.h"
#include "tools/zeph/CharsetOption.h"
#include "tools/zeph/Common.h"

namespace zeph {

namespace {

struct RecordOptions {
  std::string url;
  std::string pageUrl;
  std::string charset;
  std::string input;
  std::string output;
  bool scrub = false;
};

/// Puts every question to the document that a classification can ask, and keeps the answers.
Recording RecordPage(IHTMLDocument2& document) {
  DocumentRecorder recorder(document);
  const Configuration nothingKnown;
  PageData pageData;
  pageData.configuration = &nothingKnown;
  std::u16string namedUrl;
  DecodePageUrls(TextOf(recorder.get_URL()), nullptr, nothingKnown, pageData, namedUrl);
  PageReading reading{&recorder, pageData, {}};
  for (const PageStep& step : PageSteps()) {
    if (step.readsDocument) step.Run(reading);
  }
  return recorder.TakeRecording();
}

/// A recording says where its page was. What the page itself claims is no such word: the address then stays open.
void LeaveAddressOpen(Recording& recording) {
  for (RecordedAnswer& answer : recording.document) {
    if (answer.operation == Operation::kUrl) answer.text = u"";
  }
}

void Record(const RecordOptions& options) {
  std::string error;
  std::optional<PageSource> source = ReadPageFile(options.input, error);
  if (!source) throw CommandError(options.input + ": " + error);
  if (source->charset.empty()) source->charset = options.charset;
  std::optional<std::u16string> url;
  std::u16string base;
  bool isKnown = true;
  if (source->recording == nullptr) {
    url = options.url.empty() ? source->savedUrl : Widen(options.url);
    isKnown = !url->empty();
    if (!isKnown) url = kUnknownAddress;
    base = isKnown || source->claimedUrl.empty() ? *url : source->claimedUrl;
  }
  const auto page = OpenPage(*std::move(source), url, std::move(base));  // lends the recording its texts
  Recording recording = RecordPage(page->Document());
  if (!isKnown) LeaveAddressOpen(recording);
  if (options.scrub) ScrubRecording(recording);
  std::string json;
  if (!WriteRecording(recording, json)) throw CommandError(options.input + ": its recording would be too large");
  if (options.output.empty()) return PrintLine(json);
  if (!WriteWholeFile(options.output, json)) throw CommandError(options.output + ": can't be written");
}

}  // namespace

void AddRecordCommand(CLI::App& program, int&) {
  CLI::App* command = program.add_subcommand("record", "Write down what a page answers, to be classified elsewhere");
  auto options = std::make_shared<RecordOptions>();
  command->add_option("page", options->input, "The page's file")->required();
  command->add_option("--output", options->output, "File to write instead of standard output");
  command->add_flag("--scrub", options->scrub,
                    "Leave out values of fields, queries of URLs, and the texts of scripts in files");
  command->add_option("--url", options->url, "The page's address, for files that don't say it");
  command->add_option("--page-url", options->pageUrl, "Taken as by other commands; a recording doesn't hold it");
  AddCharsetOption(*command, options->charset);
  command->footer("Of the files beside a page only scripts in the folder that a browser saved with it are written down.");
  command->callback([options] { Record(*options); });
}

}  // namespace zeph
