// SPDX-License-Identifier: Apache-2.0
// All that was read from one page. One record per classification, owned by the driver, filled step by step
// by the collectors, read by fields and methods on the same thread. Texts of the whole page's size are the document's,
// which stay as long as the call takes; all others are copies.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "DetectionEngine/text/UnitOrder.h"
#include "DetectionEngine/url/UrlRecord.h"

namespace zeph {

struct Configuration;

/// Text to count, in ascending order of the 16-bit code units.
using Tally = std::map<std::u16string, std::int32_t, UnitOrder>;

/// One form of the page.
struct FormRecord {
  bool hasUserFields = false;     ///< at least one select, text area, password or text field
  bool multipleFields = false;    ///< textCount + passwordCount is above 1
  bool hasHiddenAddress = false;  ///< a hidden field's value has the shape of a mail address
  std::u16string hiddenAddress;   ///< the first such value
  std::u16string action;          ///< as the document gives it
  std::u16string actionScheme;
  std::u16string actionHost;  ///< the page's host when the action isn't absolute
  std::u16string actionExtension;
  std::u16string submitValue;  ///< VALUE of the last submit field that had one
  std::int32_t selectCount = 0;
  std::int32_t textareaCount = 0;
  std::int32_t inputCount = 0;
  std::int32_t textCount = 0;
  std::int32_t passwordCount = 0;
  std::int32_t hiddenCount = 0;
  std::int32_t submitCount = 0;
  std::vector<std::u16string> hiddenNames;
  std::vector<std::u16string> hiddenValues;  ///< same length and order as hiddenNames
  std::u16string labelText;                  ///< filled by the form text scanner
};

struct FormData {
  std::vector<FormRecord> records;    ///< forms that were read to their end, in document order
  std::int32_t numForms = 0;          ///< length of the document's form collection
  std::int32_t numVisibleForms = 0;   ///< forms with hasUserFields
  std::int32_t numPasswordForms = 0;  ///< forms with a password field
};

struct LinkData {
  std::vector<std::u16string> urls;       ///< every non-empty target, lower case
  std::vector<std::u16string> validUrls;  ///< absolute http and https targets that decode
  Tally urlTally;
  Tally hostTally;
  Tally brandTally;                         ///< lazy
  Tally otherHostTally;                     ///< lazy
  std::vector<std::u16string> invalidUrls;  ///< absolute http and https targets that don't decode
  std::vector<std::u16string> otherUrls;
  Tally otherUrlTally;
  std::int32_t brandLinkCount = 0;  ///< lazy
  std::u16string dominantBrand;     ///< lazy
  std::u16string linkText;          ///< text of all links, each behind one blank, lower case
  bool brandCountsReady = false;
};

struct ImageData {
  std::vector<std::u16string> sources;
  std::vector<std::int32_t> widths;   ///< -1: not given
  std::vector<std::int32_t> heights;  ///< -1: not given; same length as widths
  std::vector<std::u16string> validUrls;
  Tally urlTally;
  Tally hostTally;
  Tally brandTally;      ///< lazy
  Tally otherHostTally;  ///< lazy
  std::vector<std::u16string> invalidUrls;
  std::vector<std::u16string> localUrls;
  Tally pathTally;
  std::vector<std::u16string> paths;  ///< keys of pathTally, in order
  Tally localTally;
  std::int32_t brandImageCount = 0;  ///< lazy
  std::u16string dominantBrand;      ///< lazy
  std::int32_t totalArea = 0;        ///< held at the largest 32-bit number when it would pass it
  std::int32_t uniqueUrlCount = 0;
  std::int32_t ownImageCount = 0;
  bool brandCountsReady = false;
};

struct ScriptData {
  std::vector<std::u16string> texts;
  std::vector<std::u16string> languages;
  std::vector<std::u16string> sources;
  std::vector<std::u16string> absoluteSources;
  std::vector<std::u16string> validUrls;
  Tally urlTally;
  Tally hostTally;
  Tally brandTally;      ///< lazy
  Tally otherHostTally;  ///< lazy
  std::vector<std::u16string> invalidUrls;
  std::vector<std::u16string> relativeSources;
  Tally relativeTally;
  std::int32_t scriptCount = 0;
  std::int32_t sourceCount = 0;
  std::int32_t brandScriptCount = 0;  ///< lazy
  bool brandCountsReady = false;
};

struct BodyData {
  std::u16string_view visibleText;  ///< lent by the document
  std::u16string_view html;         ///< lent by the document
  std::u16string title;
  std::int32_t lineBreakCount = 0;
  std::int32_t wordCount = 0;
  std::vector<std::u16string> markerPhrases;
  bool fieldWithoutLabel = false;  ///< filled by the form text scanner
  std::u16string labelText;        ///< filled by the form text scanner
  std::int32_t fieldCount = 0;     ///< filled by the form text scanner
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
  std::vector<std::u16string> captions;
  std::vector<std::u16string> textsOfTagF;
  std::vector<std::u16string> sourcesOfTagG;
  std::vector<std::u16string> sourcesOfTagH;
  std::vector<std::u16string> comments;
  std::vector<std::u16string> backgrounds;
  std::u16string bodyBackground;
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
