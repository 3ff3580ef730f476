// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <cstddef>
#include <string>

#include "DetectionEngine/configuration/Configuration.h"
#include "DetectionEngine/page/BrandCounts.h"
#include "DetectionEngine/scoring/FieldValue.h"
#include "DetectionEngine/scoring/RowsByNumber.h"

namespace zeph {
namespace {

std::int32_t SizeOf(const Texts& list) { return static_cast<std::int32_t>(list.size()); }

void SetList(FieldValue& out, const Texts& list) { out.list.assign(list.begin(), list.end()); }

/// One member of the forms, of all or of those with several fields to fill in.
template <bool kAllForms>
void SetFormTexts(FieldValue& out, const FormData& forms, std::u16string_view FormRecord::*member) {
  for (const FormRecord& form : forms.records) {
    if (kAllForms || form.multipleFields) out.list.push_back(form.*member);
  }
}

void ReadPasswordCounts(PageData& page, FieldValue& out) {
  for (const FormRecord& form : page.forms.records) {
    if (form.multipleFields) out.numbers.push_back(form.passwordCount);
  }
  // Many sign-in pages of today ask for nothing but the password, or have no form at all.
  if (out.numbers.empty() && page.all.passwordInputCount >= 1) out.numbers.push_back(page.all.passwordInputCount);
}

using enum FieldKind;

constexpr bool kCounts = true;  // the column "counts" of the rows that have it

}  // namespace

// clang-format off
constexpr std::array<Field, 33> kFields = {{
    {0, "UrlScheme", kText, "scheme of the page's URL",
     [](PageData& page, FieldValue& out) { out.text = page.url.Scheme; }},
    {1, "UrlPassword", kText, "password in the URL",
     [](PageData& page, FieldValue& out) { out.text = page.url.Password; }},
    {2, "UrlUserName", kText, "user name in the URL",
     [](PageData& page, FieldValue& out) { out.text = page.url.UserName; }},
    {3, "UrlHost", kText, "host of the URL",
     [](PageData& page, FieldValue& out) { out.text = page.url.HostName; }},
    {4, "Url", kText, "the whole URL",
     [](PageData& page, FieldValue& out) { out.text = page.url.RawUrl; }},
    {5, "FormHosts", kList, "host that each form with several fields sends to",
     [](PageData& page, FieldValue& out) { SetFormTexts<false>(out, page.forms, &FormRecord::actionHost); }},
    {6, "Title", kText, "title of the page",
     [](PageData& page, FieldValue& out) { out.text = page.body.title; }},
    {7, "VisibleText", kText, "text of the page as a reader sees it",
     [](PageData& page, FieldValue& out) { out.text = page.body.visibleText; }},
    {8, "ImagePaths", kList, "paths of the images, each once, in order of the text",
     [](PageData& page, FieldValue& out) { SetList(out, page.images.paths); }},
    {9, "BrandImages", kNumberWithText, "number of images from brands' sites, and the brand with most of them",
     [](PageData& page, FieldValue& out) {
       out.number = ImageBrandCount(page);
       out.text2 = page.images.dominantBrand;
     }, kCounts},
    {10, "FormLabels", kText, "text that labels the fields of forms",
     [](PageData& page, FieldValue& out) { out.text = page.body.labelText; }},
    {11, "FilledBlocks", kNumber, "number of text blocks that aren't empty",
     [](PageData& page, FieldValue& out) { out.number = page.all.nonEmptyBlockCount; }},
    {12, "LinksButBrandLinks", kNumber, "number of links, less those to brands' sites once BrandLinks has counted them",
     [](PageData& page, FieldValue& out) { out.number = SizeOf(page.links.urls) - page.links.brandLinkCount; }},
    {13, "Forms", kNumber, "number of forms",
     [](PageData& page, FieldValue& out) { out.number = page.forms.numForms; }},
    {14, "HostIsSingleLabel", kFlag, "the host has no dot",
     [](PageData& page, FieldValue& out) { out.flag = page.url.HostIsSingleLabel; }},
    {15, "HostIsAddress", kFlag, "the host is an address",
     [](PageData& page, FieldValue& out) { out.flag = page.url.HostIsIp; }},
    {16, "SubmitCaptions", kList, "caption of the submit button of each form with several fields",
     [](PageData& page, FieldValue& out) { SetFormTexts<false>(out, page.forms, &FormRecord::submitValue); }},
    {17, "LinkUrls", kList, "targets of the links, lower case",
     [](PageData& page, FieldValue& out) { SetList(out, page.links.urls); }},
    {18, "ScriptTexts", kList, "texts of the scripts",
     [](PageData& page, FieldValue& out) { SetList(out, page.scripts.texts); }},
    {19, "BrandLinks", kNumberWithText, "number of links to brands' sites, and the brand with most of them",
     [](PageData& page, FieldValue& out) {
       out.number = LinkBrandCount(page);
       out.text2 = page.links.dominantBrand;
     }, kCounts},
    {20, "UrlPath", kText, "path of the URL",
     [](PageData& page, FieldValue& out) { out.text = page.url.UrlPath; }},
    {21, "FormActions", kList, "action of each form, as written",
     [](PageData& page, FieldValue& out) { SetFormTexts<true>(out, page.forms, &FormRecord::action); }},
    {22, "PasswordCounts", kNumbers, "number of password fields of each form with several fields, else of the page",
     ReadPasswordCounts},
    {23, "BrandScripts", kNumber, "number of scripts from brands' sites",
     [](PageData& page, FieldValue& out) { out.number = ScriptBrandCount(page); }, kCounts},
    {24, "Images", kNumber, "number of images",
     [](PageData& page, FieldValue& out) { out.number = SizeOf(page.images.sources); }},
    {25, "BackgroundExtension", kText, "extension of the body's background image, lower case",
     [](PageData& page, FieldValue& out) { out.text = page.all.bodyBackgroundExtension; }},
    {27, "UrlExtension", kText, "extension of the file that the URL names, lower case",
     [](PageData& page, FieldValue& out) { out.text = page.url.FileExtension; }},
    {28, "LinkText", kText, "text of all links, lower case",
     [](PageData& page, FieldValue& out) { out.text = page.links.linkText; }},
    {29, "Links", kNumber, "number of links",
     [](PageData& page, FieldValue& out) { out.number = SizeOf(page.links.urls); }},
    {30, "IconHost", kText, "host of the page's icon",
     [](PageData& page, FieldValue& out) { out.text = page.all.shortcutIconHost; }},
    {31, "Elements", kNumber, "number of elements of the page",
     [](PageData& page, FieldValue& out) { out.number = page.all.elementCount; }},
    {32, "IsClient", kFlag, "the engine runs in a client installation",
     [](PageData& page, FieldValue& out) { out.flag = page.configuration != nullptr && page.configuration->IsClient; }},
    {33, "MarkerPhrases", kList, "phrases of the text that tend to hold the site's own name, lower case",
     [](PageData& page, FieldValue& out) { SetList(out, page.body.markerPhrases); }},
}};
// clang-format on

namespace {

constexpr RowsByNumber<34> kByNumber(kFields);

}  // namespace

const Field* FindField(std::uint32_t number) noexcept { return kByNumber.Find(kFields, number); }

std::string_view KindName(FieldKind kind) noexcept {
  switch (kind) {
    case kNone:
      return "none";
    case kNumber:
      return "number";
    case kList:
      return "list";
    case kText:
      return "text";
    case kFlag:
      return "flag";
    case kNumbers:
      return "numbers";
    case kNumberWithText:
      return "number with text";
  }
  return "";
}

void ReadField(PageData& pageData, const Field& field, FieldValue& value) {
  value.Clear();
  value.kind = field.kind;
  field.read(pageData, value);
}

FieldValue GetFieldValue(PageData& pageData, std::uint32_t fieldId) {
  FieldValue value;
  if (const Field* const field = FindField(fieldId)) ReadField(pageData, *field, value);
  return value;
}

}  // namespace zeph
