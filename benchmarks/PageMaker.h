// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <iterator>
#include <random>
#include <string>
#include <string_view>

namespace zeph {

/// Pages as they are met: a head with scripts and styles, menus, tables, forms, articles, comments; always the same.
class PageMaker {
 public:
  std::string Make(std::size_t length) {
    std::string page =
        "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<title>Shop &amp; more - "
        "account</title>\n<link rel=\"stylesheet\" href=\"/css/site.css?v=3\">\n<link rel=\"shortcut icon\" "
        "href=\"/favicon.ico\">\n<style>\nbody { margin: 0 } .menu > li { float: left }\n</style>\n</head>\n<body "
        "class=\"page\">\n";
    while (page.size() < length) Block(page);
    return page + "</body>\n</html>\n";
  }

 private:
  std::string Words(std::size_t count) {
    static constexpr std::string_view kWords[] = {"account",  "the",         "of",   "your",   "order",   "and",
                                                  "shipping", "caf\xC3\xA9", "to",   "news",   "please",  "price",
                                                  "we",       "sign",        "a",    "&nbsp;", "in",      "for",
                                                  "service",  "free",        "more", "&copy;", "details", "item"};
    std::string text;
    for (std::size_t i = 0; i < count; ++i)
      (text += kWords[random_() % std::size(kWords)]) += i % 12 == 11 ? '\n' : ' ';
    return text;
  }
  std::string Number() { return std::to_string(random_() % 10000); }

  void Block(std::string& page) {
    switch (random_() % 8) {
      case 0:
        page += "<ul class=\"menu menu-" + Number() + "\" id=\"m" + Number() + "\">\n";
        for (int i = 0; i < 6; ++i) {
          page += "  <li><a href=\"/category/" + Number() + "/list.html?page=" + Number() +
                  "&amp;sort=up\" class=\"link\">" + Words(2) + "</a>\n";
        }
        page += "</ul>\n";
        break;
      case 1:
        page += "<table border=0 cellpadding=\"2\"><tr><th>" + Words(1) + "<th>" + Words(1) + "</tr>\n";
        for (int i = 0; i < 5; ++i)
          page += "<tr><td align=left>" + Words(3) + "</td><td><b>" + Number() + "</b></td></tr>\n";
        page += "</table>\n";
        break;
      case 2:
        page += "<form action=\"/go/" + Number() + "\" method=\"post\"><label for=q>" + Words(2) +
                "</label><input type=\"text\" name=\"q\" value=\"\"><input type=hidden name=t value=\"" + Number() +
                "\"><select name=s><option value=1 selected>" + Words(1) + "<option value=2>" + Words(1) +
                "</select><button type=submit>" + Words(1) + "</button></form>\n";
        break;
      case 3:
        page +=
            "<script type=\"text/javascript\">\n  var items" + Number() + " = [\"" + Words(8) +
            "\"];\n  if (items.length < 3 && window.load) { document.write('<p>' + items[0] + '</p>'); }\n</script>\n";
        break;
      case 4:
        page += "<!-- " + Words(6) + " -->\n<div class=\"box box-wide\" data-id=\"" + Number() +
                "\" style=\"color:#333;padding:4px\">";
        page += "<img src=\"/img/" + Number() + ".png\" width=120 height=80 alt=\"" + Words(2) + "\"><br>" + Words(12) +
                "</div>\n";
        break;
      default:
        page += "<div class=\"article\"><h2>" + Words(4) + "</h2>\n<p>" + Words(40) + "<em>" + Words(2) + "</em> " +
                Words(25) + "<a href=\"http://www.example.test/" + Number() + "\">" + Words(2) + "</a>.</p>\n<p>" +
                Words(30) + "</div>\n";
        break;
    }
  }

  std::mt19937 random_{20061};
};

}  // namespace zeph
