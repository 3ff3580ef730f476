// SPDX-License-Identifier: Apache-2.0
// Documents for tests, stated as recordings.
#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/url/UrlParser.h"
#include "documents/Recording.h"

namespace zeph {

/// A document of these members and elements, both JSON with apostrophes in the place of quotes. It lasts to the end of
/// the tests: what is read from it are views.
inline std::shared_ptr<RecordedDocument> Page(std::string_view document, std::string_view elements,
                                              std::string_view cache = "") {
  std::string json = "{'recording': 1, 'document': {";
  json.append(document).append("}, 'elements': [").append(elements).append("], 'cache': {").append(cache).append("}}");
  std::ranges::replace(json, '\'', '"');
  std::string error;
  static std::vector<std::shared_ptr<RecordedDocument>> kept;
  kept.push_back(RecordedDocument::Parse(json, error));
  if (kept.back() == nullptr) ADD_FAILURE() << error << " in " << json;
  return kept.back();
}

inline UrlRecord Decoded(std::u16string_view url) {
  UrlParser parser;
  EXPECT_EQ(parser.DecodeUrl(url), 0);
  return parser.TakeRecord();
}

inline constexpr std::string_view kFailure = "{'status': -2147467259}";  ///< kStatusFail

}  // namespace zeph
