// SPDX-License-Identifier: Apache-2.0
#include <limits>

#include <gtest/gtest.h>

#include "judging/Json.h"

namespace zeph {
namespace {

template <class T>
std::string Text(const T& value) {
  JsonWriter json;
  Write(json, value);
  return json.Take();
}

TEST(Json, WritesTextsThatAnyReaderTakes) {
  const std::pair<std::u16string, std::string> rows[] = {
      {u"", "\"\""},
      {u"a\"b\\c/", "\"a\\\"b\\\\c/\""},
      {u"\t\r\n\x01\x7F", "\"\\t\\r\\n\\u0001\\u007f\""},
      {u"\u00e4\u20ac", "\"\u00e4\u20ac\""},
      {u"\U0001F600", "\"\U0001F600\""},
      {std::u16string{0xD83D}, "\"\\ud83d\""},
      {std::u16string{0xDE00, 0xD83D}, "\"\\ude00\\ud83d\""},
      {std::u16string{u'a', 0, u'b'}, "\"a\\u0000b\""},
  };
  for (const auto& [text, json] : rows) EXPECT_EQ(Text(text), json);
  EXPECT_EQ(Text(std::string("\xFFz")), "\"\uFFFDz\"");
}

TEST(Json, WritesTheShortestNumbersThatComeBack) {
  EXPECT_EQ(Text(0.89F), "0.89");
  EXPECT_EQ(Text(0.1), "0.1");
  EXPECT_EQ(Text(static_cast<double>(0.4F)), "0.4000000059604645");
  EXPECT_EQ(Text(1e-7), "1e-07");
  EXPECT_EQ(Text(0.0F), "0");
  EXPECT_EQ(Text(std::numeric_limits<float>::quiet_NaN()), "null");
  EXPECT_EQ(Text(std::numeric_limits<double>::infinity()), "null");
  EXPECT_EQ(Text(std::numeric_limits<std::int32_t>::min()), "-2147483648");
}

TEST(Json, SeparatesMembersAndItems) {
  JsonWriter json;
  WriteObject(json, "list", std::vector<std::int32_t>{1, 2}, "none", std::vector<std::int32_t>{}, "map",
              std::map<std::u16string, std::int32_t>{{u"b", 2}, {u"a", 1}}, "missing", std::optional<std::int32_t>{});
  EXPECT_EQ(json.Take(), R"({"list": [1, 2], "none": [], "map": {"a": 1, "b": 2}, "missing": null})");
}

}  // namespace
}  // namespace zeph
