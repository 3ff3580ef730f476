// SPDX-License-Identifier: Apache-2.0
// The browser's reading of addresses: what spoofs live on in one table, and everything else against the URL class of
// Node.js, an independent implementation of the same standard.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/url/BrowserUrl.h"
#include "tests/url/RandomUrls.h"

namespace zeph {
namespace {

TEST(BrowserUrl, FindsWhereABrowserGoes) {
  struct {
    std::u16string_view text;
    std::u16string_view address;  // empty: refused
  } const rows[] = {
      {u"HTTP://EVIL.Test", u"http://evil.test/"},
      {u"http:/evil.test/", u"http://evil.test/"},
      {u"http:evil.test", u"http://evil.test/"},
      {u"http:///evil.test/", u"http://evil.test/"},
      {u"https:\\\\evil.test\\a\\..\\b", u"https://evil.test/b"},
      {u"ht\ttp:/\n/ev\ril.test/lo\ngin", u"http://evil.test/login"},
      {u" \x01http://evil.test/ ", u"http://evil.test/"},
      {u"http://www.bank.test:pw@evil.test:80/", u"http://www.bank.test:pw@evil.test/"},
      {u"https://evil.test:0443/%2e%2E/./a%41 b\"", u"https://evil.test/a%41%20b%22"},
      {u"http://%65vil%2Etest/", u"http://evil.test/"},
      {u"http://0x7f.1/", u"http://127.0.0.1/"},
      {u"http://017700000001", u"http://127.0.0.1/"},
      {u"http://2130706433/", u"http://127.0.0.1/"},
      {u"http://\uFF10\uFF58\uFF17f.1/", u"http://127.0.0.1/"},
      {u"http://1.2.3.256/", u""},
      {u"http://1.2.3.4.5/", u""},
      {u"http://evil.09/", u""},
      {u"http://[::FFFF:1.2.3.4]:80/", u"http://[::ffff:102:304]/"},
      {u"http://[::1/", u""},
      {u"http://-.\u043F\u0440\u0438\u043C\u0435\u0440.\u0440\u0444/", u"http://-.xn--e1afmkfd.xn--p1ai/"},
      {u"http://\u2764.\u043F\u0440\u0438\u043C\u0435\u0440.\u0440\u0444/", u"http://xn--qei.xn--e1afmkfd.xn--p1ai/"},
      {u"http://i\u2764.ws/", u"http://xn--i-7iq.ws/"},
      {u"http://b\u00FC\uFF0Fbank.test/", u""},
      {u"http://a b.test/", u""},
      {u"http:///", u""},
      {u"http://user@/", u""},
      {u"http://h:65536/", u""},
      {u"evil.test/a", u""},
      {u"javascript:alert( 1 )", u"javascript:alert( 1 )"},
      {u"mailto:a@b.test?c=\u00FC", u"mailto:a@b.test?c=%C3%BC"},
      {u"https://h.test/?a='\u00FC#b`", u"https://h.test/?a=%27%C3%BC#b%60"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Narrow(BrowserUrlText(row.text).value_or(u"")), Narrow(row.address)) << Narrow(row.text);
  }
}

namespace fs = std::filesystem;

/// A JSON text in ASCII.
std::string Quoted(std::u16string_view text) {
  std::string quoted = "\"";
  for (const char16_t c : text) {
    char escape[8];
    std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c));
    quoted += escape;
  }
  return quoted + '"';
}

/// What Node.js makes of each text against its base, one a line; an empty line where it refuses.
std::vector<std::string> TheirAddresses(const std::string& cases) {
  const fs::path folder = fs::temp_directory_path() / ("zeph-url-oracle-" + std::to_string(::getpid()));
  fs::create_directories(folder);
  std::ofstream(folder / "cases") << cases;
  std::ofstream(folder / "oracle.js")
      << "const lines = require('fs').readFileSync(process.argv[2], 'utf8').trim().split('\\n');\n"
         "console.log(lines.map(line => { const [text, base] = JSON.parse(line);\n"
         "  try { return new URL(text, base || undefined).href; } catch { return ''; } }).join('\\n'));\n";
  const std::string command = "node '" + (folder / "oracle.js").string() + "' '" + (folder / "cases").string() +
                              "' > '" + (folder / "answers").string() + "'";
  const int status = std::system(command.c_str());
  std::vector<std::string> answers;
  std::ifstream in(folder / "answers");
  for (std::string line; status == 0 && std::getline(in, line);) answers.push_back(line);
  fs::remove_all(folder);
  return answers;
}

TEST(BrowserUrl, AgreesWithAnotherImplementation) {
  constexpr std::size_t kCases = 6000;
  RandomUrls random(20261125);
  std::string cases;
  std::vector<std::pair<std::u16string, std::u16string>> pairs;
  for (std::size_t i = 0; i < kCases; ++i) {
    std::u16string text = random.Strange();
    std::u16string base = random.Below(2) == 0 ? u"" : random.Below(2) == 0 ? random.Usual() : random.Strange();
    // Node.js lets a label begin with an Arabic digit, against the rules for text that runs from right to left; and two
    // halves of a character that a line break kept apart stay apart.
    for (std::u16string* const one : {&text, &base}) {
      std::erase_if(*one, [](char16_t c) { return c == 0x0665 || c == 0xDC00; });
    }
    cases += "[" + Quoted(text) + "," + Quoted(base) + "]\n";
    pairs.emplace_back(std::move(text), std::move(base));
  }
  const std::vector<std::string> theirs = TheirAddresses(cases);
  if (theirs.size() != kCases) GTEST_SKIP() << "Node.js is missing";
  for (std::size_t i = 0; i < kCases; ++i) {
    const auto& [text, base] = pairs[i];
    std::optional<BrowserUrl> from;
    if (!base.empty()) from = ReadBrowserUrl(base);
    std::u16string ours;
    if (base.empty() || from) ours = BrowserUrlText(text, from ? &*from : nullptr).value_or(u"");
    ASSERT_EQ(Narrow(ours), theirs[i]) << Quoted(text) << ' ' << Narrow(text) << " against " << Narrow(base);
    ASSERT_EQ(Narrow(ours.empty() ? ours : *BrowserUrlText(ours)), theirs[i]) << "not stable";
  }
}

}  // namespace
}  // namespace zeph
