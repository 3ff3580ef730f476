// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "DetectionEngine/page/AllCollectionParser.h"
#include "DetectionEngine/page/BodyCollector.h"
#include "DetectionEngine/page/FormCollector.h"
#include "DetectionEngine/page/FormTextScanner.h"
#include "DetectionEngine/page/ImageCollector.h"
#include "DetectionEngine/page/LinkCollector.h"
#include "DetectionEngine/page/PageDump.h"
#include "DetectionEngine/page/ScriptCollector.h"
#include "DetectionEngine/page/StructureEncoder.h"
#include "DetectionEngine/url/UrlParser.h"

namespace zeph {

/// Runs all collectors and scanners over a document, whatever their statuses.
inline PageData ReadPage(IHTMLDocument2& document) {
  PageData page;
  UrlParser parser;
  parser.DecodeUrl(document.get_URL().value.value_or(u""));
  page.url = parser.TakeRecord();
  page.referrer = document.get_referrer().value.value_or(u"");
  CollectFormData(&document, page.url, page.forms);
  AllCollectionParser all;
  all.GetAllCollectionData(&document);
  all.ParseAllCollection(&document);
  page.all = all.TakeData();
  CollectLinkData(&document, page.links);
  CollectImageData(&document, page.url, page.images);
  CollectBodyData(&document, page.body);
  PageDump dump;
  dump.Build(&document, page.body.visibleText);
  page.diagnosticText = dump.Text();
  ScanFormTexts(page);
  CollectScriptData(&document, page.scripts);
  EncodeStructure(page.all.elementCount, page.body.html, page.structure);
  return page;
}

}  // namespace zeph
