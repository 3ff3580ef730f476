// SPDX-License-Identifier: Apache-2.0
#include "authoring/PackageTest.h"

#include <algorithm>
#include <array>

#include "DetectionEngine/platform/CodePage.h"
#include "authoring/Lexer.h"

namespace zeph {

std::vector<PackageCase> ReadCases(const SourceFile& file, Diagnostics& found) {
  constexpr std::array<std::string_view, 6> kClauses = {"case", "url", "verdict", "brand", "fires", "silent"};
  Lexer lexer(file, found);
  std::vector<PackageCase> cases;
  const auto text = [&](std::string_view what) {
    if (lexer.Next().kind == TokenKind::kText) return Narrow(lexer.Take().value);
    found.Error(lexer.Next().place, std::string(what) + " in quotation marks is missing here");
    return std::string();
  };
  const auto names = [&](std::vector<std::string>& list) {
    for (const Item& item : lexer.TakeItems()) list.push_back(Narrow(item.text));
  };
  while (lexer.Next().kind != TokenKind::kEnd) {
    const Token clause = lexer.Take();
    if (clause.text == "case") {
      PackageCase one;
      one.place = lexer.Next().place;
      one.input = text("the address or the page's file");
      cases.push_back(std::move(one));
    } else if (cases.empty()) {
      found.Error(clause.place, "a case begins here, with \"case\" and an address or a file");
      return cases;
    } else if (clause.text == "url") {
      cases.back().url = text("the page's address");
    } else if (clause.text == "brand") {
      cases.back().asksBrand = true;
      cases.back().brand = lexer.TakeIf("none") ? std::string() : text("the brand's name");
    } else if (clause.text == "fires") {
      names(cases.back().fires);
    } else if (clause.text == "silent") {
      names(cases.back().silent);
    } else if (clause.text == "verdict") {
      const Token verdict = lexer.Take();
      if (verdict.text.empty() || std::ranges::find(kVerdictNames, verdict.text) == std::end(kVerdictNames)) {
        found.Error(verdict.place, "no verdict is named \"" + std::string(verdict.text) + "\"", DidYouMean(verdict.text, kVerdictNames));
      }
      cases.back().verdict = verdict.text;
    } else {
      found.Error(clause.place, "\"" + std::string(clause.text) + "\" says nothing of a case", DidYouMean(clause.text, kClauses));
      if (lexer.Next().kind == TokenKind::kText) lexer.Take();
    }
  }
  return cases;
}

}  // namespace zeph
