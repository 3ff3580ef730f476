// SPDX-License-Identifier: Apache-2.0
#include "tools/zeph/Records.h"

namespace zeph {

// The overloads for parts of records come first: the writer finds them by their arguments' namespace.
void Write(JsonWriter& json, const IPRange& r) { WriteObject(json, "First", r.First, "Last", r.Last); }

void Write(JsonWriter& json, const NetLocation& r) {
  WriteObject(json, "Type", r.Type, "Name", r.Name, "Range", r.Range, "Mark", r.Mark, "TrustedDomainName",
              r.TrustedDomainName);
}

void Write(JsonWriter& json, const NetLocationList& list) { Write(json, list.Entries); }

void Write(JsonWriter& json, const SafeList& r) { WriteObject(json, "Domains", r.Domains, "Others", r.Others); }

void Write(JsonWriter& json, const Resources& r) {
  WriteObject(json, "Server", r.Server, "ConfigFile", r.ConfigFile, "DownloadFrequency", r.DownloadFrequency,
              "ReservedNumber", r.ReservedNumber, "Group", r.Group, "ReservedText", r.ReservedText, "Upgrade",
              r.Upgrade, "TRLMBrands", r.TRLMBrands, "TRLMBrandIDs", r.TRLMBrandIDs);
}

void Write(JsonWriter& json, const Redirector& r) {
  WriteObject(json, "StartsWith", r.StartsWith, "UrlIsValueOfKey", r.UrlIsValueOfKey, "SkipNumericOptions",
              r.SkipNumericOptions, "CompleteScheme", r.CompleteScheme);
}

void Write(JsonWriter& json, const TrustedDomainInfo& r) {
  WriteObject(json, "NT", r.NT, "CN", r.CN, "UT", r.UT, "TT", r.TT, "DT", r.DT, "CT", r.CT, "Ranges", r.Ranges);
}

void Write(JsonWriter& json, const TokenTable& table) {
  json.BeginObject();
  for (const auto& [token, probability] : table.Sorted()) {
    json.Key(token);
    json.Value(probability);
  }
  json.EndObject();
}

void Write(JsonWriter& json, const TagIndexEntry& r) { WriteObject(json, "Tag", r.Tag, "Domain", r.Domain); }

void Write(JsonWriter& json, const TagIndex& index) { Write(json, index.Entries()); }

void Write(JsonWriter& json, const ExpressionValue& r) {
  WriteObject(json, "ValueType", r.ValueType, "Value", r.Value, "Items", r.Items);
}

void Write(JsonWriter& json, const IndicatorExpression& r) {
  WriteObject(json, "FieldID", r.FieldID, "MethodID", r.MethodID, "ExpressionValue", r.ExpressionValue);
}

void Write(JsonWriter& json, const IndicatorRule& r) {
  WriteObject(json, "OperatorID", r.OperatorID, "Expressions", r.Expressions, "TDPriority", r.TDPriority, "Category",
              r.Category);
}

void Write(JsonWriter& json, const Indicator& r) {
  WriteObject(json, "OnWeight", r.OnWeight, "OffWeight", r.OffWeight, "Rule", r.Rule);
}

void Write(JsonWriter& json, const Indicators& indicators) { Write(json, indicators.Entries); }

void Write(JsonWriter& json, const Configuration& r) {
  WriteObject(json, "Resources", r.Resources, "SafeList", r.SafeList, "BlockList", r.BlockList, "SearchServices",
              r.SearchServices, "PopularSites", r.PopularSites, "WebHostingSites", r.WebHostingSites,
              "ExceptionDomains", r.ExceptionDomains, "TrustedDomains", r.TrustedDomains, "Redirectors", r.Redirectors,
              "UrlAnalysisTable", r.UrlAnalysisTable, "UrlAnalysisWords", r.UrlAnalysisWords, "TrustedDomainInfos",
              r.TrustedDomainInfos, "BlockedToTrusted", r.BlockedToTrusted, "TitleTagIndex", r.TitleTagIndex,
              "UrlTagIndex", r.UrlTagIndex, "ContentTagIndex", r.ContentTagIndex, "ModulePath", r.ModulePath,
              "ModuleFolder", r.ModuleFolder, "ConfigBaseName", r.ConfigBaseName, "OriginalConfigFile",
              r.OriginalConfigFile, "NewConfigFile", r.NewConfigFile, "SpareConfigFile", r.SpareConfigFile,
              "ActiveConfigFile", r.ActiveConfigFile, "KeepOriginalFile", r.KeepOriginalFile, "IsClient", r.IsClient);
}

void Write(JsonWriter& json, const UrlRecord& r) {
  WriteObject(json, "RawUrl", r.RawUrl, "Scheme", r.Scheme, "HostName", r.HostName, "NormalizedUrl", r.NormalizedUrl,
              "DomainTail", r.DomainTail, "MainDomain", r.MainDomain, "UserName", r.UserName, "Password", r.Password,
              "UrlPath", r.UrlPath, "Directory", r.Directory, "FileName", r.FileName, "FileExtension", r.FileExtension,
              "ExtraInfo", r.ExtraInfo, "HostIsBracketed", r.HostIsBracketed, "HostIsIp", r.HostIsIp, "HostHasSlash",
              r.HostHasSlash, "HostIsSingleLabel", r.HostIsSingleLabel, "HostIsHexForm", r.HostIsHexForm,
              "HostIsDottedForm", r.HostIsDottedForm, "Port", r.Port, "PortImplied", r.PortImplied, "IsRedirector",
              r.IsRedirector, "RedirectTarget", r.RedirectTarget);
}

void Write(JsonWriter& json, const FormRecord& r) {
  WriteObject(json, "hasUserFields", r.hasUserFields, "multipleFields", r.multipleFields, "hasHiddenAddress",
              r.hasHiddenAddress, "hiddenAddress", r.hiddenAddress, "action", r.action, "actionScheme", r.actionScheme,
              "actionHost", r.actionHost, "actionExtension", r.actionExtension, "submitValue", r.submitValue,
              "selectCount", r.selectCount, "textareaCount", r.textareaCount, "inputCount", r.inputCount, "textCount",
              r.textCount, "passwordCount", r.passwordCount, "hiddenCount", r.hiddenCount, "submitCount", r.submitCount,
              "hiddenNames", r.hiddenNames, "hiddenValues", r.hiddenValues, "labelText", r.labelText);
}

void Write(JsonWriter& json, const FormData& r) {
  WriteObject(json, "records", r.records, "numForms", r.numForms, "numVisibleForms", r.numVisibleForms,
              "numPasswordForms", r.numPasswordForms);
}

void Write(JsonWriter& json, const LinkData& r) {
  WriteObject(json, "urls", r.urls, "validUrls", r.validUrls, "urlTally", r.urlTally, "hostTally", r.hostTally,
              "brandTally", r.brandTally, "otherHostTally", r.otherHostTally, "invalidUrls", r.invalidUrls, "otherUrls",
              r.otherUrls, "otherUrlTally", r.otherUrlTally, "brandLinkCount", r.brandLinkCount, "dominantBrand",
              r.dominantBrand, "linkText", r.linkText, "brandCountsReady", r.brandCountsReady);
}

void Write(JsonWriter& json, const ImageData& r) {
  WriteObject(json, "sources", r.sources, "widths", r.widths, "heights", r.heights, "validUrls", r.validUrls,
              "urlTally", r.urlTally, "hostTally", r.hostTally, "brandTally", r.brandTally, "otherHostTally",
              r.otherHostTally, "invalidUrls", r.invalidUrls, "localUrls", r.localUrls, "pathTally", r.pathTally,
              "paths", r.paths, "localTally", r.localTally, "brandImageCount", r.brandImageCount, "dominantBrand",
              r.dominantBrand, "totalArea", r.totalArea, "uniqueUrlCount", r.uniqueUrlCount, "ownImageCount",
              r.ownImageCount, "brandCountsReady", r.brandCountsReady);
}

void Write(JsonWriter& json, const ScriptData& r) {
  WriteObject(json, "texts", r.texts, "languages", r.languages, "sources", r.sources, "absoluteSources",
              r.absoluteSources, "validUrls", r.validUrls, "urlTally", r.urlTally, "hostTally", r.hostTally,
              "brandTally", r.brandTally, "otherHostTally", r.otherHostTally, "invalidUrls", r.invalidUrls,
              "relativeSources", r.relativeSources, "relativeTally", r.relativeTally, "scriptCount", r.scriptCount,
              "sourceCount", r.sourceCount, "brandScriptCount", r.brandScriptCount, "brandCountsReady",
              r.brandCountsReady);
}

void Write(JsonWriter& json, const BodyData& r) {
  WriteObject(json, "visibleText", r.visibleText, "html", r.html, "title", r.title, "lineBreakCount", r.lineBreakCount,
              "wordCount", r.wordCount, "markerPhrases", r.markerPhrases, "fieldWithoutLabel", r.fieldWithoutLabel,
              "labelText", r.labelText, "fieldCount", r.fieldCount);
}

void Write(JsonWriter& json, const AllParser& r) {
  WriteObject(json, "nonEmptyBlockCount", r.nonEmptyBlockCount, "blockCountA", r.blockCountA, "blockCountB",
              r.blockCountB, "blockCountC", r.blockCountC, "textInputCount", r.textInputCount, "passwordInputCount",
              r.passwordInputCount, "fileInputCount", r.fileInputCount, "tagCountD", r.tagCountD, "tagCountE",
              r.tagCountE, "elementCount", r.elementCount, "refreshSeconds", r.refreshSeconds, "hasMarkerText",
              r.hasMarkerText, "captions", r.captions, "textsOfTagF", r.textsOfTagF, "sourcesOfTagG", r.sourcesOfTagG,
              "sourcesOfTagH", r.sourcesOfTagH, "comments", r.comments, "backgrounds", r.backgrounds, "bodyBackground",
              r.bodyBackground, "bodyBackgroundExtension", r.bodyBackgroundExtension, "shortcutIconHost",
              r.shortcutIconHost, "pageSource", r.pageSource, "inputValues", r.inputValues);
}

void Write(JsonWriter& json, const PageData& r) {
  WriteObject(json, "forms", r.forms, "links", r.links, "images", r.images, "scripts", r.scripts, "body", r.body, "url",
              r.url, "referrer", r.referrer, "all", r.all, "structure", r.structure, "documentUrl", r.documentUrl,
              "imageTextFound", r.imageTextFound, "diagnosticText", r.diagnosticText);
}

}  // namespace zeph
