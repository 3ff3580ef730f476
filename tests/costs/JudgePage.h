// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "DetectionEngine/configuration/ConfigurationMgr.h"
#include "DetectionEngine/engine/PageReading.h"
#include "DetectionEngine/scoring/IndicatorRunner.h"
#include "DetectionEngine/url/UrlParser.h"
#include "documents/Recording.h"
#include "documents/SavedPage.h"
#include "documents/html/HtmlDocument.h"
#include "tests/costs/HostilePages.h"

namespace zeph {

/// Reads a document to its end and runs all rules; the status of the step that ended it. Leaves nothing behind.
inline Status JudgeDocument(IHTMLDocument2& document, const ConfigurationPair& package) {
  PageData data;
  UrlParser parser;
  parser.DecodeUrl(document.get_URL().value.value_or(u""));
  data.url = parser.TakeRecord();
  data.configuration = &package.configuration;
  std::vector<IndicatorResult> results(package.indicators.Entries.size());
  PageReading reading{&document, data, {}};
  for (const PageStep& step : PageSteps()) {
    const Status status = step.Run(reading);
    if (step.IsBad(status)) return status;
  }
  for (const std::uint32_t stage : {0U, 7U, 1U, 2U, 3U}) {
    RunStage(package.indicators, package.configuration, data, stage, results);
  }
  return 0;
}

/// The same from a page's bytes. 1: they are no page, or too costly to be made one.
inline Status JudgePage(std::string_view bytes, PageForm form, const ConfigurationPair& package) {
  std::string error;
  if (form == PageForm::kRecording) {
    const auto document = RecordedDocument::Parse(bytes, error);
    return document == nullptr ? 1 : JudgeDocument(*document, package);
  }
  if (form == PageForm::kMhtml) {
    const auto page = ReadMhtml(bytes, error);
    if (!page) return 1;
    HtmlDocument document(page->html, {page->url, {}, page->charset, page->resources});
    return JudgeDocument(document, package);
  }
  HtmlDocument document(bytes, {u"http://www.example.test/a/b?c", {}, {}, nullptr});
  return JudgeDocument(document, package);
}

/// What reading and judging a page of so many bytes may take from the heap.
constexpr std::size_t MayTake(std::size_t bytes) { return std::max(std::size_t{24} << 20, 12 * bytes); }

}  // namespace zeph
