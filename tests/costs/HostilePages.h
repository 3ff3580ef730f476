// SPDX-License-Identifier: Apache-2.0
// Pages made to cost much more than they are long: one table for the test of what they may cost, for the benchmark and
// for the seeds of fuzzing.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace zeph {

enum class PageForm { kHtml, kRecording, kMhtml };

/// A beginning, a piece again and again (a "%" in it is its number), an end.
struct HostilePage {
  std::string name;
  PageForm form;
  std::string begin;
  std::string piece;
  std::string end;

  [[nodiscard]] std::string Make(std::size_t length) const {
    std::string page = begin;
    for (std::size_t number = 0; page.size() + end.size() < length || number < 2; ++number) {
      for (const char c : piece) c == '%' ? page += std::to_string(number) : page += c;
    }
    return page + end;
  }
};

/// A recording whose document has these members, the last of them a list of the pieces, and these elements.
inline HostilePage HostileRecording(std::string name, std::string_view list, std::string_view elements) {
  return {std::move(name), PageForm::kRecording,
          R"({"recording": 1, "document": {"get_URL": "http://www.example.test/a", )" + std::string(list) + "[0", ",0",
          R"(]}, "elements": [)" + std::string(elements) + "]}"};
}

inline std::vector<HostilePage> HostilePages() {
  using enum PageForm;
  const std::string text(4000, 'x');
  const std::string ampersands(1990, '&');
  const std::string base = "<base href=\"http://www.example.test/" + ampersands + "/\">";
  const std::string mail = "MIME-Version: 1.0\nContent-Type: multipart/related; boundary=b\n";
  const std::string root = "--b\nContent-Type: text/html\nContent-Location: http://www.example.test/\n\n<p>x</p>\n";
  return {
      // Addresses.
      {"one address against a long base", kHtml, base, "<a href=x>", ""},
      {"addresses against a long base", kHtml, base, "<a href=%>", ""},
      {"sources against a long base", kHtml, base, "<img src=%>", ""},
      {"actions against a long base", kHtml, base, "<form action=%></form>", ""},
      {"queries", kHtml, "", "<a href=?%>", ""},
      {"fragments", kHtml, "", "<a href=#>", ""},
      {"paths", kHtml, "", "<a href=/%>", ""},
      {"hosts", kHtml, "", "<a href=//%>", ""},
      {"areas", kHtml, "", "<area href=#>", ""},
      {"bare areas", kHtml, "", "<area>", ""},
      {"images of data", kHtml, "", "<img src=data:,%>", ""},
      {"images of one source", kHtml, "", "<img src=x>", ""},
      {"relative images", kHtml, "", "<img src=%>", ""},
      {"icons", kHtml, "", "<link rel='shortcut icon' href=%>", ""},
      {"icons of one address", kHtml, "", "<link href=#>", ""},
      {"script sources", kHtml, "", "<script src=%></script>", ""},
      {"absolute script sources", kHtml, "", "<script src=http://%/></script>", ""},
      // Elements.
      {"forms", kHtml, "", "<form></form>", ""},
      {"forms with actions", kHtml, "", "<form action=%></form>", ""},
      {"forms with fields", kHtml, "", "<form><input></form>", ""},
      {"hidden fields", kHtml, "<form>", "<input type=hidden name=%>", ""},
      {"fields", kHtml, "<form>", "<input>", ""},
      {"fields without a form", kHtml, "", "<input>", ""},
      {"fields that name their form", kHtml, "<form id=f></form>", "<input form=f>", ""},
      {"captions", kHtml, "", "<button>x</button>", ""},
      {"submit fields", kHtml, "", "<input type=submit value=%>", ""},
      {"scripts", kHtml, "", "<script>x</script>", ""},
      {"comments", kHtml, "", "<!--12345678-->", ""},
      {"backgrounds", kHtml, "<table>", "<td background=%>", ""},
      {"attributes", kHtml, "<p", " a%", ">"},
      {"attributes of links", kHtml, "", "<a href a b c>", ""},
      {"tags", kHtml, "", "<b>", ""},
      {"blocks", kHtml, "", "<p>", ""},
      {"unknown tags", kHtml, "", "<x%>", ""},
      {"lists", kHtml, "", "<li>x", ""},
      {"text in pieces", kHtml, "", "x<!>", ""},
      {"references", kHtml, "", "&amp;", ""},
      {"no-break blanks", kHtml, "", "\xC2\xA0", ""},
      {"quotes in values", kHtml, "<p title='", "\"", "'>"},
      {"line breaks", kHtml, "", "<br>", ""},
      {"one text", kHtml, "", "x", ""},
      {"words", kHtml, "", "x ", ""},
      {"hidden elements", kHtml, "", "<p hidden>", ""},
      // Texts in one another.
      {"nested buttons", kHtml, "", "<a href=x><object><button>xxxx", ""},
      {"nested buttons without links", kHtml, "", "<object><button>xxxx", ""},
      {"a nest around a text", kHtml,
       [] {
         std::string nest;
         for (int i = 0; i < 120; ++i) nest += "<a href=x><object><button>";
         return nest;
       }(),
       "xxxx ", ""},
      {"options", kHtml, "<select>", "<option>x", ""},
      {"a marker again and again", kHtml, "", "welcome to ", ""},
      // Recordings.
      HostileRecording("one link again and again", R"("get_links": )",
                       R"({"IHTMLAnchorElement": {"get_href": "http://a.test/)" + text +
                           R"("}, "IHTMLElement": {"get_innerText": ")" + text + R"("}})"),
      HostileRecording("one short link again and again", R"("get_links": )",
                       R"({"IHTMLAnchorElement": {"get_href": "a"}})"),
      HostileRecording("one image again and again", R"("get_images": )",
                       R"({"IHTMLImgElement": {"get_src": ")" + text.substr(0, 2000) + R"("}})"),
      HostileRecording("one script again and again", R"("get_scripts": )",
                       R"({"IHTMLScriptElement": {"get_src": "a.js", "get_text": ")" + text +
                           R"("}, "IHTMLElement": {"getAttribute": {"language": "x"}}})"),
      HostileRecording("one form again and again", R"("get_forms": )",
                       R"({"IHTMLFormElement": {"get_action": "http://a.test/)" + text.substr(0, 2000) +
                           R"(", "tags": {"INPUT": [1, 1, 1]}}}, {"IHTMLElement": {"getAttribute": {"type": "hidden", )"
                           R"("name": "n", "value": "v"}}})"),
      HostileRecording("one button again and again", R"("get_all": )",
                       R"({"IHTMLElement": {"get_tagName": "BUTTON", "get_innerText": ")" + text + R"("}})"),
      HostileRecording(
          "one comment again and again", R"("get_all": )",
          R"({"IHTMLElement": {"get_tagName": "!"}, "IHTMLCommentElement": {"get_text": ")" + text + R"("}})"),
      {"elements that answer nothing", kRecording, R"({"recording": 1, "document": {}, "elements": [{})", ",{}", "]}"},
      {"elements of many answers", kRecording, R"({"recording": 1, "document": {}, "elements": [{})",
       R"(,{"IHTMLElement":{"getAttribute":{"a":1,"b":"","c":null}}})", "]}"},
      {"lists of nothing", kRecording, R"({"recording": 1, "document": {"tags": {"x": [])", R"(,"%":[])",
       R"(}}, "elements": []})"},
      {"a list of nulls", kRecording, R"({"recording": 1, "document": {"get_all": [null)", ",null",
       R"(]}, "elements": []})"},
      {"a cache of nothing", kRecording, R"({"recording": 1, "document": {}, "cache": {"x": "")", R"(,"%":"")",
       R"(}})"},
      // Letters.
      {"empty parts", kMhtml, mail + "\n" + root, "--b\n\n", "--b--\n"},
      {"parts of nothing", kMhtml, mail + "\n" + root, "--b\n", "--b--\n"},
      {"parts with places", kMhtml, mail + "\n" + root, "--b\nContent-Location: %\n\n", "--b--\n"},
      {"parts with names", kMhtml, mail + "\n" + root, "--b\nContent-ID: <%>\n\nx\n", "--b--\n"},
      {"a long header", kMhtml, mail + "To: ", "x ", "\n\n" + root},
      {"a long address list", kMhtml, mail + "To: ", "a@b,", "\n\n" + root},
      {"a folded header", kMhtml, mail + "X-Y: ", "x\n ", "\n\n" + root},
      {"headers", kMhtml, mail, "X: y\n", "\n" + root},
      {"headers of a part", kMhtml, mail + "\n--b\n", "X: y\n", "\n" + root},
      {"parameters", kMhtml, mail + "\n--b\nContent-Type: text/html", "; a%=b", "\n\n" + root},
      {"encoded words", kMhtml, mail + "Subject: ", "=?utf-8?q?x?= ", "\n\n" + root},
      {"parts in parts", kMhtml, mail + "\n", "--b\nContent-Type: multipart/related; boundary=b\n\n", root + "--b--\n"},
      {"a part of base64", kMhtml, mail + "\n" + root + "--b\nContent-Transfer-Encoding: base64\n\n", "AAAA",
       "\n--b--\n"},
      {"a page of quoted bytes", kMhtml,
       mail + "\n--b\nContent-Type: text/html\nContent-Transfer-Encoding: quoted-printable\n\n", "=3Cb=3E",
       "\n--b--\n"},
  };
}

}  // namespace zeph
