// SPDX-License-Identifier: Apache-2.0
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "judging/Judge.h"
#include "judging/Letter.h"

namespace zeph {
namespace {

using Strings = std::vector<std::string>;

const std::string kHead = "From: a@b.test\r\nSubject: x\r\nMIME-Version: 1.0\r\n";
const std::string kMixed = kHead + "Content-Type: multipart/mixed; boundary=b\r\n\r\n";

std::string Part(std::string_view headers, std::string_view body) {
  return std::string("--b\r\n").append(headers).append("\r\n\r\n").append(body).append("\r\n");
}

TEST(Letter, GivesItsLinksAndPages) {
  struct Row {
    std::string_view what;
    std::string bytes;
    Strings links;  ///< "where: address"
    Strings pages;  ///< "where: name"
    std::string leftOut = {};
  };
  const Strings body = {"its HTML text: its HTML text"};
  const Row rows[] = {
      {"HTML in base64",
       kHead + "Content-Type: text/html\r\nContent-Transfer-Encoding: base64\r\n\r\n"
               "PGEgaHJlZj0iaHR0cDovL2EudGVzdC94Ij5oZXJlPC9hPjxmb3JtIGFjdGlvbj1odHRwOi8vZi50ZXN0Lz4=\r\n",
       {"link: http://a.test/x", "target of a form: http://f.test/"}, body},
      {"quoted-printable, base, area, refresh",
       kHead + "Content-Type: text/html; charset=utf-8\r\nContent-Transfer-Encoding: quoted-printable\r\n\r\n"
               "<base href=3Dhttp://b.test/d/><map><area href=3D\"=\r\nx\"></map><form action=3Dpost.php></form>"
               "<meta http-equiv=3DRefresh content=3D\"1; URL=3D'http://r.test/'\"><a href=3D#top>top</a>",
       {"link: http://b.test/d/x", "link: http://b.test/d/#top", "target of a form: http://b.test/d/post.php",
        "where it sends its reader on to: http://r.test/"},
       body},
      {"text",
       kHead + "\r\nSee https://a.test/x, (HTTP://b.test/) <http://c.test/>; http://a.test or http:// mailto:a@b.test "
               "https://a.test/x",
       {"text: https://a.test/x", "text: http://b.test/", "text: http://c.test/", "text: http://a.test/"}, {}},
      {"text of links that lie and don't",
       kHead + "Content-Type: text/html\r\n\r\n<a href=http://evil.test/>www.bank.com</a><a href=http://evil.test/2>Go to "
               "<b>https://www.bank.com/login</b> now</a><a href=http://www.bank.com/>bank.com</a><a href=http://e.test/>e.g. "
               "this. Here</a> http://plain.test/",
       {"link that shows \"www.bank.com\": http://evil.test/",
        "link that shows \"https://www.bank.com/login\": http://evil.test/2", "link: http://www.bank.com/",
        "link: http://e.test/", "text: http://plain.test/"},
       body},
      {"nested letters, plain and in base64, and pages by type and name",
       kMixed +
           Part("Content-Type: message/rfc822", kHead + "\r\nhttp://a.test/") +
           Part("Content-Type: application/octet-stream; name=m.eml\r\nContent-Transfer-Encoding: base64",
                "U3ViamVjdDogeA0KDQpodHRwOi8vYi50ZXN0Lw==") +
           Part("Content-Type: application/octet-stream; name=\"Pay.HTM\"", "<a href=http://c.test/>") +
           Part("Content-Type: text/html\r\nContent-Disposition: attachment", "<p>") +
           Part("Content-Type: image/gif; name=x.gif", "http://no.test/") +
           Part("Content-Type: application/x-mimearchive; name=p.mht",
                "MIME-Version: 1.0\r\nContent-Type: text/html\r\nContent-Location: http://www.bank.com/\r\n\r\n<a href=/d>") +
           "--b--",
       {"attached letter, text: http://a.test/", "attached letter, text: http://b.test/",
        "attached page \"Pay.HTM\", link: http://c.test/", "attached page \"p.mht\", link: http://www.bank.com/d"},
       {"attached page \"Pay.HTM\": Pay.HTM", "attached page: attached page", "attached page \"p.mht\": p.mht"}},
      {"neither", kHead + "\r\nHello", {}, {}},
  };
  for (const Row& row : rows) {
    std::string error;
    const std::optional<Letter> letter = ReadLetter(row.bytes, error);
    ASSERT_TRUE(letter) << row.what << ": " << error;
    Strings links;
    for (const LetterLink& link : letter->links) links.push_back(link.where + ": " + link.url);
    Strings pages;
    for (const LetterPage& page : letter->pages) {
      pages.push_back(page.where + ": " + page.name + page.refusal);
      // Whoever made the letter vouches for nothing.
      EXPECT_EQ(page.source.savedUrl, u"") << row.what;
    }
    EXPECT_EQ(links, row.links) << row.what;
    EXPECT_EQ(pages, row.pages) << row.what;
    EXPECT_EQ(letter->leftOut, row.leftOut) << row.what;
  }
}

TEST(Letter, IsBoundedAndSaysWhatWasCut) {
  const auto repeated = [](std::string_view text, int times) {
    std::string all;
    for (int i = 0; i < times; ++i) {
      const std::size_t mark = text.find('%');
      all.append(text.substr(0, mark)).append(std::to_string(i)).append(text.substr(mark + 1));
    }
    return all;
  };
  std::string multiparts = kHead;
  std::string messages = kHead;
  for (int i = 0; i < 5000; ++i) {
    multiparts += "Content-Type: multipart/mixed; boundary=b" + std::to_string(i) + "\n\n--b" + std::to_string(i) + "\n";
    messages += "Content-Type: message/rfc822\n\n";
  }
  std::string groups;
  for (int i = 0; i < 200'000; ++i) groups += "a:";
  struct Row {
    std::string_view what;
    std::string bytes;
    std::string told;  ///< what was left out, or why nothing was read
    std::size_t links;
  };
  const Row rows[] = {
      {"deep parts", multiparts + "\nhttp://a.test/", "what is nested deeper than 32 levels", 0},
      {"deep letters", messages + "\nhttp://a.test/", "what is nested deeper than 32 levels", 0},
      {"many links", kHead + "Content-Type: text/html\n\n" + repeated("<a href=http://h%.test/>x</a>", 100'000),
       "99000 links behind the first 1000 addresses", 1000},
      {"many parts", kMixed + repeated("--b\n\nhttp://h%.test/\n", 3000), "parts behind the first 1000", 999},
      {"many headers", kHead + repeated("X%: y\n", 300'000) + "\nhttp://a.test/",
       "too costly: more parts and headers than a letter of its size may have", 0},
      {"deep addresses", kHead + "To: b: " + groups + "\n\nhttp://a.test/", "", 1},
  };
  for (const Row& row : rows) {
    std::string error;
    const std::optional<Letter> letter = ReadLetter(row.bytes, error);
    EXPECT_EQ(letter ? letter->leftOut : error, row.told) << row.what;
    EXPECT_EQ(letter ? letter->links.size() : 0, row.links) << row.what;
  }
}

TEST(Letter, IsToldFromAPage) {
  struct Row {
    std::string_view bytes, mediaType, name;
    bool isLetter;
  };
  const Row rows[] = {
      {"<p>", "message/rfc822; x=y", "", true},
      {"<p>", "", "a/b.EML", true},
      {"Received: x\r\n by y\r\nSubject: z\r\n\r\n", "", "mail", true},
      {"From: a\nTo: b\n\n<html>", "text/html", "", false},
      {"From: a\nTo: b\n\n<html>", "", "page.html", false},
      {"From: <Saved by a browser>\nSubject: x\nMIME-Version: 1.0\n\n", "", "", false},
      {"From: a\nSnapshot-Content-Location: http://a.test/\nSubject: x\n\n", "", "", false},
      {"<html>\nFrom: a\nTo: b\n\n", "", "", false},
      {"http://a.test/\nhttp://b.test/\n", "", "", false},
  };
  for (const Row& row : rows) EXPECT_EQ(IsLetter(row.bytes, row.mediaType, row.name), row.isLetter) << row.bytes << row.name;
  EXPECT_EQ(Judge({}).OfContent({.bytes = kHead + "\n", .mediaType = {}, .name = "a.eml", .url = {}}).reason,
            "no link and no page in it");
}

}  // namespace
}  // namespace zeph
