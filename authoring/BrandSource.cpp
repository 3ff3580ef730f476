// SPDX-License-Identifier: Apache-2.0
#include "authoring/BrandSource.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <vector>

#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/text/Text.h"
#include "authoring/Lexer.h"

namespace zeph {

namespace {

/// The lists of a brand: what they are called here.
struct BrandList {
  std::string_view name;
  std::vector<std::u16string> TrustedDomainInfo::*list;
};
constexpr std::array<BrandList, 4> kBrandLists = {{{"domains", &TrustedDomainInfo::DT},
                                                   {"url", &TrustedDomainInfo::UT},
                                                   {"title", &TrustedDomainInfo::TT},
                                                   {"text", &TrustedDomainInfo::CT}}};
constexpr std::array<std::string_view, 8> kClauses = {"name", "domains", "url", "title", "text", "safe", "report", "brand"};

class BrandCompiler {
 public:
  BrandCompiler(const SourceFile& file, Configuration& configuration, Diagnostics& found)
      : lexer_(file, found), configuration_(configuration), found_(found) {}

  void Run() {
    while (lexer_.Next().kind != TokenKind::kEnd) {
      if (lexer_.TakeIf("brand")) {
        TakeBrand();
        continue;
      }
      const Token wrong = lexer_.Take();
      found_.Error(wrong.place, "a brand begins here, and \"" + std::string(wrong.text) + "\" begins none",
                   DidYouMean(wrong.text, kClauses));
      while (lexer_.Next().kind != TokenKind::kEnd && !lexer_.Is("brand")) lexer_.Take();
    }
    configuration_.SafeList.Sort();
  }

 private:
  void TakeBrand() {
    if (lexer_.Next().kind != TokenKind::kName && lexer_.Next().kind != TokenKind::kText) {
      found_.Error(lexer_.Next().place, "the domain that stands for the brand is missing here",
                   "a domain that begins with a digit stands in quotation marks");
      return;
    }
    const Token head = lexer_.Take();
    const std::u16string key = head.kind == TokenKind::kText ? head.value : Widen(head.text);
    TrustedDomainInfo info;
    std::vector<Item> safe;
    std::set<std::string_view> seen;
    while (lexer_.Next().kind != TokenKind::kEnd && !lexer_.Is("brand")) {
      const Token clause = lexer_.Take();
      const auto list = std::ranges::find(kBrandLists, clause.text, &BrandList::name);
      if (!seen.insert(clause.text).second) {
        found_.Error(clause.place, "\"" + std::string(clause.text) + "\" stands in this brand before");
      }
      if (list != kBrandLists.end()) {
        for (const Item& item : lexer_.TakeItems(true)) Add(info.*(list->list), item);
      } else if (clause.text == "safe") {
        safe = lexer_.TakeItems();
      } else if (clause.text == "name") {
        if (lexer_.Next().kind == TokenKind::kText) {
          info.CN = lexer_.Take().value;
        } else {
          found_.Error(lexer_.Next().place, "the brand's name in quotation marks is missing here");
        }
      } else if (clause.text == "report") {
        if (!lexer_.Is("no") && !lexer_.Is("yes")) found_.Error(lexer_.Next().place, "\"report\" is yes or no");
        info.NT = !lexer_.Is("no");
        lexer_.Take();
      } else {
        found_.Error(clause.place, "\"" + std::string(clause.text) + "\" says nothing of a brand",
                     DidYouMean(clause.text, kClauses));
        const auto begins = [&](std::string_view word) { return lexer_.Is(word); };
        while (lexer_.Next().kind != TokenKind::kEnd && std::ranges::none_of(kClauses, begins)) lexer_.Take();
      }
    }
    if (info.CN.empty()) found_.Warning(head.place, "the brand has no name");
    if (configuration_.TrustedDomainInfos.contains(key)) {
      found_.Error(head.place, "a brand of this domain stands here before");
      return;
    }
    configuration_.TrustedDomains.Entries.push_back({kDomain, key, {}, 0, {}});
    configuration_.TrustedDomainInfos.emplace(key, std::move(info));
    for (const Item& item : safe) configuration_.SafeList.Add({kDomain, item.text, {}, 0, key});
  }

  void Add(std::vector<std::u16string>& list, const Item& item) {
    if (item.text.find(u'^') != std::u16string::npos) {
      found_.Error(item.place, "an item can't hold a \"^\", which parts items in a package");
    } else if (std::ranges::find(list, item.text) != list.end()) {
      found_.Warning(item.place, "\"" + Narrow(item.text) + "\" stands in this list before");
      list.push_back(item.text);
    } else {
      list.push_back(item.text);
    }
  }

  Lexer lexer_;
  Configuration& configuration_;
  Diagnostics& found_;
};

}  // namespace

void CompileBrands(const SourceFile& file, Configuration& configuration, Diagnostics& found) {
  BrandCompiler(file, configuration, found).Run();
}

std::string DecompileBrands(const Configuration& configuration, bool withSafe) {
  std::map<std::u16string_view, std::vector<std::string>> safe;
  if (withSafe) {
    for (const auto* entries : {&configuration.SafeList.Domains, &configuration.SafeList.Others.Entries}) {
      for (const NetLocation& entry : *entries) safe[entry.TrustedDomainName].push_back(ItemText(entry.Name));
    }
  }
  std::string out;
  for (const NetLocation& brand : configuration.TrustedDomains.Entries) {
    const auto at = configuration.TrustedDomainInfos.find(brand.Name);
    if (at == configuration.TrustedDomainInfos.end()) continue;
    const TrustedDomainInfo& info = at->second;
    const std::string key = Narrow(brand.Name);
    if (!out.empty()) out += '\n';
    out += "brand " + (IsName(key) ? key : Quote(brand.Name)) + '\n';
    if (!info.CN.empty()) out += "  name    " + Quote(info.CN) + '\n';
    const auto line = [&](std::string_view clause, const std::vector<std::string>& items) {
      if (items.empty()) return;
      out += "  " + std::string(clause) + std::string(8 - clause.size(), ' ') + ItemsInBrackets(items, "           ") + '\n';
    };
    for (const BrandList& list : kBrandLists) {
      std::vector<std::string> items;
      for (const std::u16string& item : info.*(list.list)) items.push_back(ItemText(item));
      line(list.name, items);
    }
    line("safe", safe[brand.Name]);
    if (!info.NT) out += "  report  no\n";
  }
  return out;
}

}  // namespace zeph
