// SPDX-License-Identifier: Apache-2.0
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "DetectionEngine/platform/CodePage.h"
#include "documents/html/Decoder.h"

namespace zeph::html {
namespace {

using std::string_literals::operator""s;

TEST(Decoder, FindsTheEncodingAsBrowsersDo) {
  struct Row {
    std::string bytes;
    std::string_view charset;
    std::string_view encoding;
    std::string_view text;  ///< in UTF-8; not compared when empty
  };
  const std::string late(1100, ' ');
  const Row rows[] = {
      {"\xEF\xBB\xBF\xC3\xA9", "windows-1251", "UTF-8", "\xC3\xA9"},
      {"\xFF\xFE\xE9\0<\0"s, "utf-8", "UTF-16LE", "\xC3\xA9<"},
      {"\xFE\xFF\0\xE9\xD8\x3D\xDE\0\xD8\x3D"s, "", "UTF-16BE", "\xC3\xA9\xF0\x9F\x98\x80\xEF\xBF\xBD"},
      {"\xE9", " Latin1 ", "windows-1252", "\xC3\xA9"},
      {"\x80\x9F\x81", "ascii", "windows-1252", "\xE2\x82\xAC\xC5\xB8\xC2\x81"},
      {"\xC3\xA9", "bogus", "UTF-8", "\xC3\xA9"},
      {"a\xE9z", "", "windows-1252", "a\xC3\xA9z"},
      {"a\xC3", "", "windows-1252", "a\xC3\x83"},
      {"\xC3\xA9\xC3", "", "UTF-8", "\xC3\xA9\xEF\xBF\xBD"},
      {"<meta charset=koi8-r>\xC1", "", "KOI8-R", "<meta charset=koi8-r>\xD0\xB0"},
      {"<META  CHARSET = 'Shift_JIS'>\x82\xA0\x83", "", "Shift_JIS",
       "<META  CHARSET = 'Shift_JIS'>\xE3\x81\x82\xEF\xBF\xBD"},
      {"<meta http-equiv=Content-Type content='text/html; charset=\"big5\"'>", "", "Big5", ""},
      {"<meta content='text/html; charset=big5'>\xE9", "", "windows-1252", ""},
      {"<meta content='charset;charset=gbk' http-equiv=content-type>", "", "GBK", ""},
      {"<!-- <meta charset=big5> --><meta charset=euc-kr>", "", "EUC-KR", ""},
      {"<p title='<meta charset=big5>'><meta charset=iso-8859-5>", "", "ISO-8859-5", ""},
      {"<meta charset=utf-16>\xC3\xA9", "", "UTF-8", ""},
      {"<meta charset=x-user-defined>\xE9", "", "windows-1252", ""},
      {late + "<meta charset=koi8-r>", "", "KOI8-R", ""},
      {late + "<meta charset=koi8-r>", "utf-8", "UTF-8", ""},
      {late + "<script>x = '<meta charset=koi8-r>'</script><!-- <meta charset=big5> -->", "", "UTF-8", ""},
      {"<\0p\0>\0a\0b\0c\0\xE9\0\x3D\xD8\0\xDE"s, "", "UTF-16LE", "<p>abc\xC3\xA9\xF0\x9F\x98\x80"},
      {"\0<\0p\0>\0a\x04\x30"s, "", "UTF-16BE", "<p>a\xD0\xB0"},
      {"<p>a\0b\0c\0d"s, "", "UTF-8", ""},
      {"\0<\0p\0>\0a"s, "utf-8", "UTF-8", ""},
      {"<meta charset=", "", "UTF-8", ""},
      {"<script>hidden", "iso-2022-kr", "replacement", "\xEF\xBF\xBD"},
      {"\xE0\x80\xAF\xF0\x9F\x98<\xED\xA0\x80\xC0\x80", "utf8", "UTF-8",
       "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD<\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
      {"", "", "UTF-8", ""},
  };
  for (const Row& row : rows) {
    const DecodedMarkup decoded = DecodeMarkup(row.bytes, row.charset);
    EXPECT_EQ(decoded.encoding, row.encoding) << row.bytes;
    if (!row.text.empty()) {
      EXPECT_EQ(Narrow({decoded.text.data(), decoded.text.size()}), row.text) << row.bytes;
    }
  }
}

TEST(Decoder, KnowsEveryEncodingOfTheStandard) {
  // One byte pair each that tells the encoding from its neighbours.
  const std::pair<std::string_view, std::string_view> rows[] = {
      {"ibm866", "\xE2\x95\xA6"},     {"iso-8859-2", "\xC3\x8B"},        {"iso-8859-3", "\xC3\x8B"},
      {"iso-8859-4", "\xC3\x8B"},     {"iso-8859-6", "\xD8\xAB"},        {"iso-8859-7", "\xCE\x9B"},
      {"iso-8859-10", "\xC3\x8B"},    {"iso-8859-13", "\xC4\x96"},       {"iso-8859-14", "\xC3\x8B"},
      {"iso-8859-15", "\xC3\x8B"},    {"iso-8859-16", "\xC3\x8B"},       {"koi8-u", "\xD0\xBA"},
      {"macintosh", "\xC3\x80"},      {"windows-874", "\xE0\xB8\xAB"},   {"windows-1250", "\xC3\x8B"},
      {"windows-1251", "\xD0\x9B"},   {"windows-1253", "\xCE\x9B"},      {"windows-1254", "\xC3\x8B"},
      {"windows-1256", "\xD8\xAB"},   {"windows-1257", "\xC4\x96"},      {"windows-1258", "\xC3\x8B"},
      {"x-mac-cyrillic", "\xD0\x8B"}, {"x-user-defined", "\xEF\x9F\x8B"}};
  for (const auto& [label, expected] : rows) {
    const DecodedMarkup decoded = DecodeMarkup("\xCB", label);
    EXPECT_EQ(Narrow({decoded.text.data(), decoded.text.size()}), expected) << label;
  }
  for (const std::string_view label :
       {"gb18030", "euc-jp", "iso-2022-jp", "iso-8859-8", "iso-8859-8-i", "windows-1255"}) {
    EXPECT_NE(DecodeMarkup("x", label).encoding, "UTF-8") << label;
    EXPECT_EQ(DecodeMarkup("x", label).text[0], u'x') << label;
  }
}

TEST(Decoder, ReadsUnassignedBytesAsTheStandardHasThem) {
  struct Row {
    std::string_view charset, bytes, text;
  };
  const Row rows[] = {
      {"windows-874", "\x81\xDB\xFC", "\xC2\x81\xEF\xBF\xBD\xEF\xBF\xBD"},
      {"windows-1255", "\x81\xCA\xD9", "\xC2\x81\xD6\xBA\xEF\xBF\xBD"},
      {"windows-1255", "\xF9\xD1", "\xD7\xA9\xD7\x81"},  // a letter and its mark stay two
      {"iso-8859-8", "\xA1\xE0", "\xEF\xBF\xBD\xD7\x90"},
      {"macintosh", "\xC6\xF0", "\xE2\x88\x86\xEF\xA3\xBF"},
      {"x-mac-cyrillic", "\xFF", "\xE2\x82\xAC"},
      {"koi8-u", "\xAE\xBE", "\xD1\x9E\xD0\x8E"},
      {"gbk",
       "\x80\xFF"
       "a",
       "\xE2\x82\xAC\xEF\xBF\xBD"
       "a"},
      // What is no character takes the byte behind it along, unless that is ASCII.
      {"shift_jis",
       "\x80\x81\xAD"
       "A\x81<",
       "\xC2\x80\xEF\xBF\xBD"
       "A\xEF\xBF\xBD<"},
      {"euc-kr", "\xC9\xA1P", "\xEF\xBF\xBDP"},
      {"euc-jp", "\x8F\xA1\xA1P\x8F\xA2", "\xEF\xBF\xBDP\xEF\xBF\xBD"},
  };
  for (const Row& row : rows) {
    const DecodedMarkup decoded = DecodeMarkup(row.bytes, row.charset);
    EXPECT_EQ(Narrow({decoded.text.data(), decoded.text.size()}), row.text) << row.charset;
  }
}

TEST(Decoder, MakesLineEndsOne) {
  // Runs of every length, so that each place within a block of bytes is met.
  for (std::size_t length = 0; length < 40; ++length) {
    const std::string run(length, 'x');
    for (const std::string_view charset : {"utf-8", "windows-1252", "koi8-r"}) {
      const DecodedMarkup decoded = DecodeMarkup(run + "\r\n" + run + "\r\r\n\n" + run + "\r", charset);
      EXPECT_EQ(Narrow({decoded.text.data(), decoded.text.size()}), run + "\n" + run + "\n\n\n" + run + "\n") << length;
    }
  }
}

}  // namespace
}  // namespace zeph::html
