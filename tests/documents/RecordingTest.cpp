// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <string>

#include <gtest/gtest.h>

#include "DetectionEngine/platform/CodePage.h"
#include "documents/DocumentRecorder.h"
#include "documents/Recording.h"
#include "documents/RecordingWriter.h"

namespace zeph {
namespace {

std::string Quoted(std::string json) {
  std::ranges::replace(json, '\'', '"');
  return json;
}

std::unique_ptr<RecordedDocument> Read(const std::string& json) {
  std::string error;
  std::unique_ptr<RecordedDocument> document = RecordedDocument::Parse(Quoted(json), error);
  EXPECT_EQ(document == nullptr, !error.empty());
  if (document == nullptr) ADD_FAILURE() << error << " in " << json;
  return document;
}

std::string Write(const Recording& recording) {
  std::string json;
  EXPECT_TRUE(WriteRecording(recording, json));
  return json;
}

TEST(Recording, RefusesWhatIsMalformedAndSaysWhere) {
  struct Row {
    std::string json, error;
  };
  const auto element = [](const std::string& text) {
    return "{'recording': 1, 'document': {}, 'elements': [{}, " + text + "]}";
  };
  const Row rows[] = {
      {"", "the recording: an object is expected (line 1, column 1)"},
      {"[]", "the recording: an object is expected (line 1, column 1)"},
      {"{", "the recording: the text ends early (line 1, column 2)"},
      {"{'recording': 1, 'document': {}} x", "the recording: more text stands behind the end (line 1, column 34)"},
      {"{'document': {}}", "/recording: is missing"},
      {"{'recording': 1}", "/document: is missing"},
      {"{'recording': 2, 'document': {}}", "/recording: only recordings of version 1 are known (line 1, column 16)"},
      {"{'recording': 1.0, 'document': {}}", "/recording: only recordings of version 1 are known (line 1, column 18)"},
      {"{'recording': 1,\n 'document': []}", "/document: an object is expected (line 2, column 14)"},
      {"{'recording': 1, 'document': {'get_Url': ''}}",
       "/document/get_Url: there is no such operation (line 1, column 41)"},
      {"{'recording': 1, 'document': {'get_URL': 5}}", "/document/get_URL: a text is expected (line 1, column 42)"},
      {"{'recording': 1, 'document': {'get_URL': {'x': 5}}}",
       "/document/get_URL/x: an object that stands for a failure has the member \"status\" (line 1, column 47)"},
      {"{'recording': 1, 'document': {'get_URL': {'status': 5, 'x': 1}}}",
       "/document/get_URL/x: a failure has no member but \"status\" (line 1, column 60)"},
      {"{'recording': 1, 'document': {'get_URL': {'status': 2147483648}}}",
       "/document/get_URL/status: a status is a whole number of 32 bits (line 1, column 63)"},
      {"{'recording': 1, 'document': {'get_all': {}}}",
       "/document/get_all: an object that stands for a failure has the member \"status\" (line 1, column 44)"},
      {"{'recording': 1, 'document': {'get_all': ['0']}}",
       "/document/get_all/0: a number is expected (line 1, column 43)"},
      {"{'recording': 1, 'document': {'get_all': [-1]}}",
       "/document/get_all/0: an element is named by its position in \"elements\" (line 1, column 45)"},
      {"{'recording': 1, 'document': {'get_all': [0, 1, 0]}, 'elements': [{}]}",
       "/document/get_all/1: there is no element 1"},
      {"{'recording': 1, 'document': {'get_body': 0}}", "/document/get_body: there is no element 0"},
      {"{'recording': 1, 'document': {'tags': {'HTML': 5}}}",
       "/document/tags/HTML: a list is expected (line 1, column 48)"},
      {"{'recording': 1, 'document': {}, 'elements': {}}", "/elements: a list is expected (line 1, column 46)"},
      {"{'recording': 1, 'document': {}, 'elements': [5]}", "/elements/0: an object is expected (line 1, column 47)"},
      {element("{'IHTMLInputElement': {}}"),
       "/elements/1/IHTMLInputElement: an element has no such interface (line 1, column 72)"},
      {element("{'document': {}}"), "/elements/1/document: an element has no such interface (line 1, column 63)"},
      {element("{'IHTMLElement': {'get_href': ''}}"),
       "/elements/1/IHTMLElement/get_href: there is no such operation (line 1, column 80)"},
      {element("{'IHTMLElement': {'getAttribute': {'type': true}}}"),
       "/elements/1/IHTMLElement/getAttribute/type: a text is expected (line 1, column 94)"},
      {element("{'IHTMLImgElement': {'get_width': 1.5}}"),
       "/elements/1/IHTMLImgElement/get_width: a whole number is expected (line 1, column 88)"},
      {element("{'IHTMLDOMNode': {'get_childNodes': [7]}}"),
       "/elements/1/IHTMLDOMNode/get_childNodes/0: there is no element 7"},
      {element("{'IHTMLElement': {'get_tagName': 'a\\x'}}"),
       "/elements/1/IHTMLElement/get_tagName: an escape isn't known (line 1, column 86)"},
      {element("{'IHTMLElement': {'get_tagName': 'a\nb'}}"),
       "/elements/1/IHTMLElement/get_tagName: a control character stands in a text (line 1, column 86)"},
      {element("{'IHTMLElement': {'get_tagName': '\xff'}}"),
       "/elements/1/IHTMLElement/get_tagName: a text isn't UTF-8 (line 1, column 86)"},
      {element("{'IHTMLElement': {'get_tagName': 'a}}"),
       "/elements/1/IHTMLElement/get_tagName: a text doesn't end (line 1, column 90)"},
      {element("{'IHTMLElement': {'get_tagName': 'a',}}"),
       "/elements/1/IHTMLElement/get_tagName: the name of a member is expected (line 1, column 88)"},
      {element("{'IHTMLImgElement': {'get_width': 01}}"),
       "/elements/1/IHTMLImgElement/get_width: a number is written wrongly (line 1, column 87)"},
      {"{'recording': 1, 'document': {}, 'note\n': 1}",
       "/document: a control character stands in a text (line 1, column 39)"},
      {"{'recording': 1, 'document': {}, 'a/b~\\u000a': nul}", "/a~1b~0?: a value is expected (line 1, column 48)"},
      {"{'recording': 1, 'document': {}, 'cache': {'u': 1}}", "/cache/u: a text is expected (line 1, column 49)"},
  };
  for (const Row& row : rows) {
    std::string error;
    EXPECT_EQ(RecordedDocument::Parse(Quoted(row.json), error), nullptr) << row.json;
    EXPECT_EQ(error, row.error) << row.json;
  }
  std::string error;
  const std::string deep = "{'recording': 1, 'document': {}, 'note': " + std::string(100000, '[');
  EXPECT_EQ(RecordedDocument::Parse(Quoted(deep), error), nullptr);
  EXPECT_NE(error.find("nested too deeply"), std::string::npos) << error;
}

TEST(Recording, AnswersAsItIsWritten) {
  const auto document = Read(
      "\xEF\xBB\xBF{'note': {'by': ['hand', 1.5e3, true, null, {}]}, 'elements': ["
      "{'IHTMLElement': {'get_tagName': '\\ud83d\\ude00\\ud800\\u00e9', 'get_innerText': '', 'get_outerHTML': null,"
      "  'getAttribute': {'Type': 'text', 'size': 3, 'x': null, 'bad': {'status': -5}}}},"
      "{'IHTMLFormElement': {'tags': {'INPUT': [0, null, {'status': -6}, 0], 'select': {'status': -7}, 'x': null}}},"
      "{'IHTMLFormElement': {'tags': {'status': -8}}, 'IHTMLElement': {'getAttribute': {'status': -9}}},"
      "{'IHTMLDOMNode': {'get_attributes': {'Class': 'c', 'tabindex': -3, 'big': 40000, 'part': 1.5}}},"
      "{'IHTMLDOMNode': {'get_attributes': {'status': -10}, 'get_childNodes': {'status': -11}}}],"
      "'document': {'get_title': 'first', 'get_title': 'last', 'get_body': null, 'get_links': {'status': 3},"
      "  'get_all': [0, 1], 'tags': {'Html': [1]}},"
      "'cache': {'http://a/': 'one\\u0000', 'http://b/': null}, 'recording': 1}");
  ASSERT_NE(document, nullptr);
  EXPECT_EQ(document->get_title().value, u"last");
  EXPECT_FALSE(document->get_URL().value.has_value());
  EXPECT_EQ(document->get_body().value, nullptr);
  EXPECT_EQ(document->get_links().status, 3);
  EXPECT_EQ(document->get_forms().value, nullptr);
  EXPECT_EQ(document->UrlCache()->Retrieve("http://a/"), std::string_view("one\0", 4));
  EXPECT_FALSE(document->UrlCache()->Retrieve("http://b/").has_value());

  IHTMLElementCollection& all = *document->get_all().value;
  EXPECT_EQ(all.get_length().value, 2);
  EXPECT_EQ(all.item(-1).value, nullptr);
  EXPECT_EQ(all.item(2).value, nullptr);
  EXPECT_EQ(all.tags(u"HTML").value->item(0).value, all.item(1).value);
  EXPECT_EQ(all.tags(u"BODY").value->get_length().value, 0);
  EXPECT_EQ(all.item(0).value->QueryForm(), nullptr);

  IHTMLElement& element = *all.item(0).value->QueryElement();
  EXPECT_EQ(element.get_tagName().value, std::u16string({0xD83D, 0xDE00, 0xD800, 0xE9}));
  EXPECT_EQ(element.get_innerText().value, u"");
  EXPECT_FALSE(element.get_outerHTML().value.has_value());
  EXPECT_FALSE(element.get_innerHTML().value.has_value());
  using Kind = AttributeValue::Kind;
  EXPECT_EQ(element.getAttribute(u"TYPE").value.text, u"text");
  EXPECT_EQ(element.getAttribute(u"size").value.kind, Kind::kNumber);
  EXPECT_EQ(element.getAttribute(u"x").value.kind, Kind::kNone);
  EXPECT_EQ(element.getAttribute(u"bad").status, -5);
  EXPECT_EQ(element.getAttribute(u"none").status, 0);

  IHTMLFormElement& form = *all.item(1).value->QueryForm();
  IHTMLElementCollection& inputs = *form.tags(u"input").value;
  EXPECT_EQ(inputs.get_length().value, 4);
  EXPECT_EQ(inputs.item(1).value, nullptr);
  EXPECT_EQ(inputs.item(1).status, 0);
  EXPECT_EQ(inputs.item(2).status, -6);
  EXPECT_EQ(inputs.item(3).value, all.item(0).value);
  EXPECT_EQ(form.tags(u"SELECT").status, -7);
  EXPECT_EQ(form.tags(u"X").value, nullptr);
  EXPECT_EQ(form.tags(u"TEXTAREA").value->get_length().value, 0);
}

TEST(Recording, WritesWhatItReads) {
  const std::string written =
      "{\"recording\": 1, "
      "\"document\": {\"get_URL\": \"http://a.test/\", "
      "\"get_title\": {\"status\": -4}, "
      "\"get_body\": 1, "
      "\"get_all\": [0, 1, null, {\"status\": 2}], "
      "\"get_images\": [], "
      "\"tags\": {\"html\": [0]}}, "
      "\"elements\": ["
      "{\"IHTMLElement\": {\"getAttribute\": {\"size\": 3, \"type\": "
      "\"a\\\"\\\\\\n\\u0001\\ud800\xC3\xA9\xF0\x9F\x98\x80\"},"
      " \"get_tagName\": \"\"}, \"IHTMLImgElement\": {\"get_width\": -7}}, "
      "{\"IHTMLFormElement\": {\"tags\": {\"input\": null, \"select\": {\"status\": -1}}}, \"IHTMLMetaElement\": {}}, "
      "{\"IHTMLFormElement\": {\"tags\": {\"status\": -8}}, \"IHTMLDOMNode\": {\"get_childNodes\": [],"
      " \"get_attributes\": {}}}, "
      "{}], "
      "\"cache\": {"
      "\"http://a.test/x\": \"y\"}}";
  EXPECT_EQ(Write(Read(written)->Data()), written);
}

/// Asks every operation of every element once.
void AskEverything(IHTMLDocument2& document) {
  IHTMLElementCollection* const all = document.get_all().value;
  all->tags(u"HTML");
  document.get_body();
  document.get_images();
  for (std::int32_t i = 0; i < all->get_length().value; ++i) {
    DocumentObject* const object = all->item(i).value;
    if (object == nullptr) continue;
    if (IHTMLElement* const element = object->QueryElement()) {
      element->get_tagName();
      element->getAttribute(u"Type");
      element->getAttribute(u"size");
      element->getAttribute(u"none");
    }
    if (IHTMLImgElement* const image = object->QueryImg()) image->get_width();
    if (IHTMLFormElement* const form = object->QueryForm()) {
      form->tags(u"INPUT");
      form->tags(u"SELECT");
    }
    object->QueryMeta();
    if (IHTMLDOMNode* const node = object->QueryNode()) {
      node->get_childNodes();
      node->get_attributes();
    }
  }
}

TEST(DocumentRecorder, WritesDownWhatWasAsked) {
  const auto document = Read(
      "{'recording': 1, 'document': {'get_URL': 'http://a.test/', 'get_title': {'status': -4}, 'get_body': 1,"
      " 'get_referrer': 'r', 'get_links': [0], 'get_images': {'status': -3}, 'get_all': [0, 1, null, 2, 0],"
      " 'tags': {'HTML': [1], 'BODY': [1]}}, 'elements': ["
      "{'IHTMLElement': {'getAttribute': {'type': 'a', 'size': 3, 'other': 'x'}, 'get_tagName': '',"
      " 'get_innerText': 'not asked'}, 'IHTMLImgElement': {'get_width': -7, 'get_height': 2}},"
      "{'IHTMLFormElement': {'tags': {'INPUT': [3, null], 'select': {'status': -1}}}, 'IHTMLMetaElement': {}},"
      "{'IHTMLDOMNode': {'get_childNodes': [], 'get_attributes': {}}}, {'IHTMLElement': {}}], 'cache': {'u': 'v'}}");
  DocumentRecorder recorder(*document);
  AskEverything(recorder);
  AskEverything(recorder);  // asking again adds nothing
  EXPECT_EQ(recorder.UrlCache()->Retrieve("u"), "v");
  EXPECT_EQ(recorder.UrlCache()->Retrieve("x"), std::nullopt);
  EXPECT_EQ(Write(recorder.TakeRecording()),
            "{\"recording\": 1, "
            "\"document\": {\"get_URL\": \"http://a.test/\", "
            "\"get_referrer\": \"r\", "
            "\"get_title\": {\"status\": -4}, "
            "\"get_body\": 1, "
            "\"get_all\": [0, 1, null, 2, 0], "
            "\"get_images\": {\"status\": -3}, "
            "\"tags\": {\"html\": [1]}}, "
            "\"elements\": ["
            "{\"IHTMLElement\": {\"getAttribute\": {\"size\": 3, \"type\": \"a\"}, \"get_tagName\": \"\"}, "
            "\"IHTMLImgElement\": {\"get_width\": -7}}, "
            "{\"IHTMLFormElement\": {\"tags\": {\"input\": [3, null], \"select\": {\"status\": -1}}}, "
            "\"IHTMLMetaElement\": {}}, "
            "{\"IHTMLDOMNode\": {\"get_childNodes\": [], \"get_attributes\": {}}}, "
            "{}], "
            "\"cache\": {"
            "\"u\": \"v\"}}");
}

TEST(Recording, ScrubTakesOutValuesAndQueries) {
  const auto document = Read(
      "{'recording': 1, 'document': {'get_URL': 'http://a.test/?id=1', 'get_referrer': 'http://b.test/#x?y'},"
      "'elements': ["
      "{'IHTMLElement': {'getAttribute': {'type': 'text', 'value': 'secret', 'name': 'who?'}}},"
      "{'IHTMLElement': {'getAttribute': {'type': 'Submit', 'value': 'Sign in?'}}},"
      "{'IHTMLAnchorElement': {'get_href': 'http://c.test/x?t=1'}, 'IHTMLElement': {'get_innerText': 'really?'}},"
      "{'IHTMLElement': {'get_outerHTML': '<A href=\\u0022x?t=1\\u0022 title=a?>why?</A>"
      "<INPUT value=secret type=password><INPUT type=submit value=Go><INPUT type=\\u0022text\\u0022 "
      "value=\\u0022a>b\\u0022>"
      "<TEXTAREA name=t>secret <B></TEXTAREA><SCRIPT src=s?t=1>if (a<b) c = d ? \\u0027e\\u0027 : f</SCRIPT>"
      "<!-- <INPUT value=x> --><IMG src=p?q <'}}],"
      "'cache': {'http://a.test/s?t=1': 'secret'}}");
  ASSERT_NE(document, nullptr);
  DocumentRecorder recorder(*document);
  Recording recording;  // whose texts lie with the document
  recording.document = document->Data().document;
  recording.elements = document->Data().elements;
  recording.answers = document->Data().answers;
  recording.lists = document->Data().lists;
  recording.cache = document->Data().cache;
  ScrubRecording(recording);
  const std::string json = Write(recording);
  EXPECT_EQ(json.find("secret"), std::string::npos) << json;
  EXPECT_EQ(json.find("t=1"), std::string::npos) << json;
  EXPECT_EQ(json.find("id=1"), std::string::npos) << json;
  for (const std::string_view stays : {"who?", "Sign in?", "really?", "\"value\": \"\""}) {
    EXPECT_NE(json.find(stays), std::string::npos) << stays << " in " << json;
  }
  EXPECT_NE(json.find("<A href=\\\"x\\\" title=a?>why?</A><INPUT value= type=password><INPUT type=submit value=Go>"
                      "<INPUT type=\\\"text\\\" value=\\\"\\\"><TEXTAREA name=t></TEXTAREA>"
                      "<SCRIPT src=s>if (a<b) c = d ? 'e' : f</SCRIPT><!-- <INPUT value=x> --><IMG src=p <"),
            std::string::npos)
      << json;
}

}  // namespace
}  // namespace zeph
