// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/engine/PageReading.h"
#include "DetectionEngine/platform/Files.h"
#include "documents/DocumentRecorder.h"
#include "documents/RecordingWriter.h"
#include "tools/zeph/Common.h"
#include "tools/zeph/Pages.h"

namespace zeph {

namespace {

struct RecordOptions {
  PageOptions page;
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
    if (step.readsDocument) step.run(reading);
  }
  return recorder.TakeRecording();
}

void Record(const RecordOptions& options) {
  const std::unique_ptr<LoadedPage> page = LoadPage(options.input, options.page);
  Recording recording = RecordPage(page->Document());
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
  command->add_flag("--scrub", options->scrub, "Leave out values of fields and queries of URLs");
  AddPageOptions(*command, options->page);
  command->callback([options] { Record(*options); });
}

}  // namespace zeph
