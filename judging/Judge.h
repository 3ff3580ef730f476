// SPDX-License-Identifier: Apache-2.0
// Takes an input in, asks the engine, and says what its answer means. Commands and gateways share it.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "documents/html/InnerPages.h"
#include "judging/Judgement.h"
#include "judging/Pages.h"

namespace zeph {

struct JudgeOptions {
  /// Each input goes to the library as it stands: nothing is trimmed, completed or lowered, a page is judged by what its
  /// document says.
  bool exact = false;
  bool explains = false;
  bool trustsClaims = false;  ///< a page's own word for its address is taken
  std::string charset;        ///< of pages of markup that nobody else names one for; may be empty
  std::string url;            ///< the address of pages that nobody else tells
  std::string pageUrl;        ///< the address to judge every page by, whatever it is
  std::vector<RuleText> ruleTexts;  ///< what the configuration's rules say of themselves, for explanations
};

/// Any number of threads at once. Works on the configuration that is in force when it is made.
class Judge {
 public:
  explicit Judge(JudgeOptions options);

  /// A path of a regular file is a page; anything else is an address. Never fails: what can't be judged gets a
  /// judgement that says why.
  [[nodiscard]] Judgement Of(const Input& input) const;
  [[nodiscard]] Judgement OfAddress(const std::string& text) const;
  /// What a program hands over, with what it knows of it. Its own files beside it are out of reach.
  [[nodiscard]] Judgement OfContent(Content content) const;
  /// A letter, as mail programs send it: its links and pages are its parts, and the worst of them counts. What asks
  /// for an address of pages isn't meant for what a stranger attaches, so options of addresses don't reach it.
  [[nodiscard]] Judgement OfLetter(std::string_view bytes) const;
  /// mapUrl: the page's address by a list that goes with it; may be empty. What a page of markup carries inside itself
  /// is judged too, by the address of the page (unless options say exact): its parts, of which the worst counts.
  [[nodiscard]] Judgement OfPage(PageSource source, const std::string& mapUrl) const;

 private:
  void ClassifyUrl(const std::u16string& url, Judgement& judgement) const;
  void ClassifyPage(IHTMLDocument2& document, const std::u16string& pageUrl, Judgement& judgement) const;
  void Conclude(bool isPage, Judgement& judgement) const;
  void JudgeInnerPages(std::unique_ptr<LoadedPage> page, const std::string& within, std::size_t depth, InnerRoom& room,
                       Judgement& whole) const;

  JudgeOptions options_;
  std::size_t nameRoom_;
};

}  // namespace zeph
