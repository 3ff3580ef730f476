// SPDX-License-Identifier: Apache-2.0
// What is read from a page of HTML is what is read from a recording of it that was written by hand.
#include <memory>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "documents/Recording.h"
#include "documents/html/HtmlDocument.h"
#include "tests/page/ReadPage.h"
#include "tools/zeph/Records.h"

namespace zeph {
namespace {

constexpr std::string_view kPage = R"(<!DOCTYPE html>
<html><head><title>Sign
 in</title><base href="/shop/"><link rel="Shortcut Icon" href="i.ico"><meta http-equiv=Refresh content="7; url=x"></head>
<body background="bg.v2.GIF"><!--saved note--><p class="Big one">Welcome &amp; hello</p>
<form action=go.php><div>User <input name=u value=me></div>Password <INPUT TYPE=PASSWORD name=p>
<input type=hidden name=m value="a@b.example"><button type=Submit>Sign in</button></form>
<table><tr><td background=td.png>a<td>b</table><a href="list.html?a=1">To  the list</a>
<img src="logo.png" width=12 height=8><script src=s.js></script><script language=JavaScript>var a = "<p>";</script>
<p hidden>unseen</p></body></html>)";

/// The same as a browser answered it. Long texts are put in for $HTML, $BODY and $TEXT.
constexpr std::string_view kRecording = R"({"recording": 1, "document": {
  "get_URL": "http://www.example.test/login", "get_referrer": "", "get_title": "Sign in", "get_body": 6,
  "get_all": [0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24],
  "get_images": [21], "get_links": [20], "get_forms": [9], "get_scripts": [22, 23], "tags": {"HTML": [0]}},
 "elements": [
  {"IHTMLElement": {"get_tagName": "HTML", "get_outerHTML": "$HTML"}},
  {"IHTMLElement": {"get_tagName": "HEAD"}},
  {"IHTMLElement": {"get_tagName": "TITLE"}},
  {"IHTMLElement": {"get_tagName": "BASE"}},
  {"IHTMLElement": {"get_tagName": "LINK"},
   "IHTMLLinkElement": {"get_rel": "Shortcut Icon", "get_href": "http://www.example.test/shop/i.ico"}},
  {"IHTMLElement": {"get_tagName": "META"}, "IHTMLMetaElement": {"get_httpEquiv": "Refresh", "get_content": "7; url=x"}},
  {"IHTMLElement": {"get_tagName": "BODY", "get_innerHTML": "$BODY", "get_innerText": "$TEXT"},
   "IHTMLBodyElement": {"get_background": "bg.v2.GIF"},
   "IHTMLDOMNode": {"get_nodeName": "BODY", "get_attributes": {"background": "bg.v2.GIF"}, "get_childNodes": []}},
  {"IHTMLElement": {"get_tagName": "!"}, "IHTMLCommentElement": {"get_text": "saved note"}},
  {"IHTMLElement": {"get_tagName": "P", "get_innerHTML": "Welcome &amp; hello"}},
  {"IHTMLElement": {"get_tagName": "FORM"},
   "IHTMLFormElement": {"get_action": "go.php", "tags": {"INPUT": [11, 12, 13]}}},
  {"IHTMLElement": {"get_tagName": "DIV"}},
  {"IHTMLElement": {"get_tagName": "INPUT", "getAttribute": {"type": "text", "name": "u", "value": "me"}}},
  {"IHTMLElement": {"get_tagName": "INPUT", "getAttribute": {"type": "password", "name": "p"}}},
  {"IHTMLElement": {"get_tagName": "INPUT", "getAttribute": {"type": "hidden", "name": "m", "value": "a@b.example"}}},
  {"IHTMLElement": {"get_tagName": "BUTTON", "get_innerText": "Sign in"}},
  {"IHTMLElement": {"get_tagName": "TABLE"}},
  {"IHTMLElement": {"get_tagName": "TBODY"}},
  {"IHTMLElement": {"get_tagName": "TR"}},
  {"IHTMLElement": {"get_tagName": "TD", "getAttribute": {"background": "td.png"}}},
  {"IHTMLElement": {"get_tagName": "TD"}},
  {"IHTMLElement": {"get_tagName": "A", "get_innerText": "To the list"},
   "IHTMLAnchorElement": {"get_href": "http://www.example.test/shop/list.html?a=1"}},
  {"IHTMLElement": {"get_tagName": "IMG"},
   "IHTMLImgElement": {"get_src": "http://www.example.test/shop/logo.png", "get_width": 12, "get_height": 8}},
  {"IHTMLElement": {"get_tagName": "SCRIPT", "get_innerHTML": ""}, "IHTMLScriptElement": {"get_src": "s.js", "get_text": ""}},
  {"IHTMLElement": {"get_tagName": "SCRIPT", "get_innerHTML": "var a = \"<p>\";", "getAttribute": {"language": "JavaScript"}},
   "IHTMLScriptElement": {"get_src": "", "get_text": "var a = \"<p>\";"}},
  {"IHTMLElement": {"get_tagName": "P", "get_innerHTML": "unseen"}}]})";

constexpr std::string_view kHead =
    R"(<HTML><HEAD><TITLE>Sign\n in</TITLE><BASE href=/shop/><LINK rel=\"Shortcut Icon\" )"
    R"(href=\"http://www.example.test/shop/i.ico\"><META http-equiv=Refresh content=\"7; url=x\"></HEAD>\n)"
    R"(<BODY background=\"bg.v2.GIF\">)";
constexpr std::string_view kBody =
    R"(<!--saved note--><P class=\"Big one\">Welcome &amp; hello</P>\n<FORM action=\"go.php\"><DIV>User )"
    R"(<INPUT name=u value=me></DIV>Password <INPUT type=password name=p>\n<INPUT type=hidden name=m )"
    R"(value=\"a@b.example\"><BUTTON type=submit>Sign in</BUTTON></FORM>\n<TABLE><TBODY><TR><TD background=\"td.png\">a)"
    R"(</TD><TD>b</TD></TR></TBODY></TABLE><A href=\"http://www.example.test/shop/list.html?a=1\">To  the list</A>\n)"
    R"(<IMG src=\"http://www.example.test/shop/logo.png\" width=12 height=8><SCRIPT src=\"s.js\"></SCRIPT>)"
    R"(<SCRIPT language=JavaScript>var a = \"<p>\";</SCRIPT>\n<P hidden=\"\">unseen</P>)";
constexpr std::string_view kText = R"(Welcome & hello\r\nUser \r\nPassword  Sign in\r\na b\r\nTo the list )";

void Replace(std::string& text, std::string_view mark, std::string_view by) {
  text.replace(text.find(mark), mark.size(), by);
}

std::string Json(IHTMLDocument2& document) {
  PageData page = ReadPage(document);
  page.diagnosticText.clear();  // the recording has no tree below the body
  JsonWriter json;
  Write(json, page);
  return json.Take();
}

TEST(HtmlPageData, IsThatOfARecordingMadeByHand) {
  std::string text(kRecording);
  Replace(text, "$HTML", std::string(kHead) + std::string(kBody) + "</BODY></HTML>");
  Replace(text, "$BODY", kBody);
  Replace(text, "$TEXT", kText);
  std::string error;
  const std::unique_ptr<RecordedDocument> recorded = RecordedDocument::Parse(text, error);
  ASSERT_NE(recorded, nullptr) << error;
  HtmlDocument document(kPage, {u"http://www.example.test/login", {}, {}, nullptr});
  EXPECT_EQ(Json(document), Json(*recorded));
}

}  // namespace
}  // namespace zeph
