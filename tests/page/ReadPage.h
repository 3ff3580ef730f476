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

/// All that was read, as text.
inline std::u16string Everything(const PageData& page) {
  std::u16string text;
  const auto add = [&](std::u16string_view piece) { (text += piece) += u'|'; };
  const auto addAll = [&](const Texts& list) {
    for (const std::u16string_view piece : list) add(piece);
  };
  for (const FormRecord& form : page.forms.records) {
    for (const std::u16string_view piece : {form.action, form.actionHost, form.submitValue, form.labelText}) add(piece);
    add(std::u16string{static_cast<char16_t>(form.textCount), static_cast<char16_t>(form.passwordCount)});
    addAll(form.hiddenNames);
    addAll(form.hiddenValues);
  }
  for (const auto* list : {&page.all.captions, &page.all.textsOfTagF, &page.all.comments, &page.all.backgrounds,
                           &page.links.urls, &page.images.sources, &page.images.paths, &page.scripts.texts,
                           &page.scripts.sources, &page.body.markerPhrases}) {
    addAll(*list);
  }
  for (const std::int32_t width : page.images.widths) text += static_cast<char16_t>(width);
  for (const std::u16string_view piece : {page.all.pageSource, page.body.visibleText, page.body.html}) add(piece);
  for (const std::u16string_view piece :
       {std::u16string_view(page.all.inputValues), std::u16string_view(page.all.shortcutIconHost),
        std::u16string_view(page.links.linkText), page.body.title, std::u16string_view(page.structure),
        std::u16string_view(page.diagnosticText), std::u16string_view(page.referrer),
        std::u16string_view(page.url.RawUrl)}) {
    add(piece);
  }
  return text;
}

}  // namespace zeph
