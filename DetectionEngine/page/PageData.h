// SPDX-License-Identifier: Apache-2.0
// All that was read from one page. One record per classification, owned by the driver, filled step by step
// by the collectors, read by fields and methods on the same thread. Views are of texts that the document lends, which
// stay as long as the call takes, or that the record itself keeps.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "DetectionEngine/page/Tally.h"
#include "DetectionEngine/text/TextArena.h"
#include "DetectionEngine/url/UrlRecord.h"

namespace zeph {

struct Configuration;

/// A list of texts of the page.
using Texts = std::vector<std::u16string_view>;

/// One form of the page.
struct FormRecord {
  bool hasUserFields = false;         ///< at least one select, text area, password or text field
  bool multipleFields = false;        ///< textCount + passwordCount is above 1
  bool hasHiddenAddress = false;      ///< a hidden field's value has the shape of a mail address
  std::u16string_view hiddenAddress;  ///< the first such value
  std::u16string_view action;         ///< as the document gives it
  std::u16string_view actionScheme;
  std::u16string_view actionHost;  ///< the page's host when the action isn't absolute
  std::u16string_view actionExtension;
  std::u16string_view submitValue;  ///< VALUE of the last submit field that had one
  std::int32_t selectCount = 0;
  std::int32_t textareaCount = 0;
  std::int32_t inputCount = 0;
  std::int32_t textCount = 0;
  std::int32_t passwordCount = 0;
  std::int32_t hiddenCount = 0;
  std::int32_t submitCount = 0;
  Texts hiddenNames;
  Texts hiddenValues;             ///< same length and order as hiddenNames
  std::u16string_view labelText;  ///< filled by the form text scanner
};

struct FormData {
  std::vector<FormRecord> records;    ///< forms that were read to their end, in document order
  std::int32_t numForms = 0;          ///< length of the document's form collection
  std::int32_t numVisibleForms = 0;   ///< forms with hasUserFields
  std::int32_t numPasswordForms = 0;  ///< forms with a password field
  TextArena kept;                     ///< those that the document doesn't lend
};

struct LinkData {
  Texts urls;       ///< every non-empty target, lower case
  Texts validUrls;  ///< absolute http and https targets that decode
  Tally urlTally;
  Tally hostTally;
  Tally brandTally;      ///< lazy
  Tally otherHostTally;  ///< lazy
  Texts invalidUrls;     ///< absolute http and https targets that don't decode
  Texts otherUrls;
  Tally otherUrlTally;
  std::int32_t brandLinkCount = 0;  ///< lazy
  std::u16string dominantBrand;     ///< lazy
  std::u16string linkText;          ///< text of all links, each behind one blank, lower case
  bool brandCountsReady = false;
  TextArena kept;  ///< those that the document doesn't lend
};

struct ImageData {
  Texts sources;
  std::vector<std::int32_t> widths;   ///< -1: not given
  std::vector<std::int32_t> heights;  ///< -1: not given; same length as widths
  Texts validUrls;
  Tally urlTally;
  Tally hostTally;
  Tally brandTally;      ///< lazy
  Tally otherHostTally;  ///< lazy
  Texts invalidUrls;
  Texts localUrls;
  Tally pathTally;
  Texts paths;  ///< keys of pathTally, in order
  Tally localTally;
  std::int32_t brandImageCount = 0;  ///< lazy
  std::u16string dominantBrand;      ///< lazy
  std::int32_t totalArea = 0;        ///< held at the largest 32-bit number when it would pass it
  std::int32_t uniqueUrlCount = 0;
  std::int32_t ownImageCount = 0;
  bool brandCountsReady = false;
  TextArena kept;  ///< those that the document doesn't lend
};

struct ScriptData {
  Texts texts;
  Texts languages;
  Texts sources;
  Texts absoluteSources;
  Texts validUrls;
  Tally urlTally;
  Tally hostTally;
  Tally brandTally;      ///< lazy
  Tally otherHostTally;  ///< lazy
  Texts invalidUrls;
  Texts relativeSources;
  Tally relativeTally;
  std::int32_t scriptCount = 0;
  std::int32_t sourceCount = 0;
  std::int32_t brandScriptCount = 0;  ///< lazy
  bool brandCountsReady = false;
  TextArena kept;  ///< those that the document doesn't lend
};

struct BodyData {
  std::u16string_view visibleText;  ///< lent by the document
  std::u16string_view html;         ///< lent by the document
  std::u16string_view title;
  std::int32_t lineBreakCount = 0;
  std::int32_t wordCount = 0;
  Texts markerPhrases;
  bool fieldWithoutLabel = false;  ///< filled by the form text scanner
  std::u16string_view labelText;   ///< filled by the form text scanner
  std::int32_t fieldCount = 0;     ///< filled by the form text scanner
  TextArena kept;                  ///< those that the document doesn't lend
};

/// Counters and lists over the document's collection of all elements.
struct AllParser {
  std::int32_t nonEmptyBlockCount = 0;
  std::int32_t blockCountA = 0;
  std::int32_t blockCountB = 0;
  std::int32_t blockCountC = 0;
  std::int32_t textInputCount = 0;
  std::int32_t passwordInputCount = 0;
  std::int32_t fileInputCount = 0;
  std::int32_t tagCountD = 0;
  std::int32_t tagCountE = 0;
  std::int32_t elementCount = 0;
  std::int32_t refreshSeconds = -1;  ///< -1: no timed refresh
  bool hasMarkerText = false;
  Texts captions;
  Texts textsOfTagF;
  Texts sourcesOfTagG;
  Texts sourcesOfTagH;
  Texts comments;
  Texts backgrounds;
  std::u16string_view bodyBackground;
  std::u16string bodyBackgroundExtension;
  std::u16string shortcutIconHost;
  std::u16string_view pageSource;  ///< lent by the document
  std::u16string inputValues;
};

struct PageData {
  FormData forms;
  LinkData links;
  ImageData images;
  ScriptData scripts;
  BodyData body;
  UrlRecord url;  ///< the URL that the page is judged by
  std::u16string referrer;
  AllParser all;
  std::u16string structure;
  UrlRecord documentUrl;  ///< the document's own URL when the caller gave another one
  bool imageTextFound = false;
  std::u16string diagnosticText;
  const Configuration* configuration = nullptr;
};

}  // namespace zeph
