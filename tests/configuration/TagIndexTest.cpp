// SPDX-License-Identifier: Apache-2.0
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "DetectionEngine/configuration/TagIndex.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/text/CharacterClass.h"
#include "DetectionEngine/text/Text.h"

namespace zeph {
namespace {

/// The search as it reads: every position, every probe, on a folded copy.
std::optional<std::u16string_view> FindByProbing(const std::vector<TagIndexEntry>& entries,
                                                 std::u16string_view searched, TagForm form) {
  const std::u16string text = ToLower(searched);
  for (std::size_t position = 0; position < text.size(); ++position) {
    if (form == TagForm::kWord && (!IsAlpha(text[position]) || (position > 0 && IsAlpha(text[position - 1])))) continue;
    int low = 0;
    int high = static_cast<int>(entries.size()) - 1;
    while (high >= low) {
      const int mid = (low + high) / 2;
      const std::u16string& tag = entries[static_cast<std::size_t>(mid)].Tag;
      int order = 0;
      for (std::size_t i = 0; order == 0 && i < tag.size(); ++i) {
        if (position + i == text.size() || text[position + i] < tag[i])
          order = -1;
        else if (text[position + i] > tag[i])
          order = 1;
      }
      const std::size_t next = position + tag.size();
      if (order == 0 && form == TagForm::kWord && next < text.size() && IsAlpha(text[next])) order = 1;
      if (order == 0) return entries[static_cast<std::size_t>(mid)].Domain;
      if (order > 0)
        low = mid + 1;
      else
        high = mid - 1;
    }
  }
  return std::nullopt;
}

TEST(TagIndex, FindsTagsInUrlsAnywhereAndInTextsAsWords) {
  TagIndex index;
  index.Assign({{u"pay", u"pay.example"}, {u"big bank", u"bank.example"}, {u"\u00e9clair", u"cake.example"}});
  struct {
    std::u16string_view text;
    std::u16string_view inUrl, inWords;  ///< empty: no hit
  } const rows[] = {
      {u"http://epay.test/", u"pay.example", u""},
      {u"PAY", u"pay.example", u"pay.example"},
      {u"pay2day", u"pay.example", u"pay.example"},  // a digit ends a word
      {u"2pay", u"pay.example", u"pay.example"},     // and doesn't begin one
      {u"pays", u"pay.example", u""},
      {u"my Big Bank!", u"bank.example", u"bank.example"},
      {u"big ban", u"", u""},
      {u"\u00c9CLAIR", u"cake.example", u"cake.example"},
      {u"", u"", u""},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(index.FindTag(row.text, TagForm::kUrl).value_or(u""), row.inUrl) << Narrow(row.text);
    EXPECT_EQ(index.FindTag(row.text, TagForm::kWord).value_or(u""), row.inWords) << Narrow(row.text);
  }
  index.Assign({});
  EXPECT_FALSE(index.FindTag(u"pay", TagForm::kUrl));
}

TEST(TagIndex, TakesTheTagThatTheProbingMeets) {
  std::mt19937 random(6);
  int found = 0;
  for (int round = 0; round < 4000; ++round) {
    // Few letters, so that several tags match at one place; tags of all lengths from none, equal ones too.
    const std::u16string_view alphabet = round % 2 == 0 ? u"ab" : u"abcde \u00e9\u00c9B1";
    const bool isLong = round % 3 == 0;
    const std::size_t shortest = isLong ? 4 + random() % 3 : random() % 4;
    std::vector<TagIndexEntry> entries(random() % 50);
    for (std::size_t i = 0; i < entries.size(); ++i) {
      const std::size_t length = shortest + random() % 4;
      for (std::size_t k = 0; k < length; ++k) entries[i].Tag += LowerOf(alphabet[random() % alphabet.size()]);
      entries[i].Domain = NumberText(static_cast<std::int64_t>(i));
    }
    TagIndex index;
    index.Assign(std::move(entries));
    for (int i = 0; i < 20; ++i) {
      std::u16string text(random() % (isLong ? 80 : 12), u' ');
      for (char16_t& c : text) c = alphabet[random() % alphabet.size()];
      for (const TagForm form : {TagForm::kUrl, TagForm::kWord}) {
        const auto expected = FindByProbing(index.Entries(), text, form);
        ASSERT_EQ(index.FindTag(text, form), expected) << Narrow(text);
        found += expected ? 1 : 0;
      }
    }
  }
  EXPECT_GT(found, 20000);
}

}  // namespace
}  // namespace zeph
