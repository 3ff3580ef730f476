// SPDX-License-Identifier: Apache-2.0
#include <random>

#include <gtest/gtest.h>

#include "DetectionEngine/page/FormTextScanner.h"
#include "DetectionEngine/page/StructureEncoder.h"
#include "DetectionEngine/platform/CodePage.h"
#include "tests/page/LiteralScanners.h"

namespace zeph {
namespace {

std::u16string Structure(std::u16string_view html) {
  std::u16string structure;
  EXPECT_EQ(EncodeStructure(1, html, structure), 0);
  return structure;
}

TEST(StructureEncoder, GivesALetterForWhatStandsOnThePage) {
  struct Row {
    std::u16string_view html, structure;
  };
  const Row rows[] = {
      {u"<P>one</P>", u"T"},
      {u"one<BR>two</P>", u"TnTnn"},
      {u" \r\n\t", u""},
      {u"&nbsp;", u""},
      {u"&nbsp;&amp;", u"T"},
      {u"&amp<BR>", u"T"},  // the tag's beginning ends the reference and is lost
      {u"&never ends", u""},
      {u"one<!-- x -->two", u"T"},
      {u"one <B>two</B> <A href=x>three</A>", u"T"},
      {u"a<BR>b<UL><LI>c</LI><LI>d</LI></UL>", u"TnTnnnTnTnn"},
      {u"one<BR><TABLE><TBODY><TR><TD>a</TD></TR><TR><TD>b</TD></TR></TBODY></TABLE>end", u"TnnTnnTnT"},
      {u"a<BR><DIV class=x>b</DIV>", u"TnnTn"},
      {u"<INPUT><INPUT name=x><INPUT type=text><INPUT type=password>", u"IIII"},
      {u"<INPUT type=submit><INPUT type=button><INPUT type=reset><INPUT type=checkbox><INPUT type=radio>", u"BBBCR"},
      {u"<INPUT type=image><INPUT type=file><INPUT type=email>", u"GIBI"},
      {u"one<INPUT type=hidden>two", u"T"},
      {u"<INPUT type=\"text\">", u"I"},
      {u"<INPUT type=\"checkbox\">", u"I"},  // a quoted type isn't known
      {u"<SELECT name=x><OPTION>a</OPTION></SELECT>b", u"ST"},
      {u"<TEXTAREA>text<BR></TEXTAREA>", u"I"},
      {u"<SCRIPT>if (a < b && c > d) x = '</SCRIPT>'", u"T"},  // quotes don't count inside a script
      {u"<STYLE>p { }</STYLE><IMG src=x>", u"G"},
      {u"<IMG height=1 width=1 src=x><IMG src=x width=1 height=2><IMG alt=x>", u"G"},
      {u"<IMG src=x width=\"1\" height=\"1\"><IMG src=x width=1 height=1><IMG src=x width=10 height=1 >", u"GG"},
      {u"<HR><HR color=red>", u"LL"},
      {u"<A title=\"a > b\">x", u"T"},
      {u"<A title=\"<BR>\">", u"n"},
      {u"<br><hr>", u""},
      {u"<BR", u""},
  };
  for (const Row& row : rows) EXPECT_EQ(Structure(row.html), row.structure) << Narrow(row.html);
}

TEST(StructureEncoder, KeepsOffVeryLargePages) {
  std::u16string structure = u"left over";
  EXPECT_EQ(EncodeStructure(40000, u"<HR>", structure), 0);
  EXPECT_EQ(structure, u"L");
  EXPECT_EQ(EncodeStructure(40001, u"<HR>", structure), 1);
  EXPECT_EQ(structure, u"");
}

TEST(FormTextScanner, FindsWhatStandsBeforeFields) {
  struct Row {
    std::u16string_view html, labels;
    std::int32_t fields;
    bool withoutLabel;
  };
  const Row rows[] = {
      {u"Name: <INPUT>", u" Name: ", 1, false},
      {u"<P>Name</P><INPUT name=n>", u" Name", 1, false},
      {u"Name<INPUT type=text><INPUT type=password>", u" Name", 2, true},
      // A label in the same block leaves the block before it for the next field.
      {u"<P>first</P>second<INPUT><INPUT>", u" second first", 2, false},
      {u"<P>first</P><INPUT><INPUT>", u" first", 2, true},
      {u"<P>Name</P><P> </P><INPUT>", u" Name", 1, false},
      {u"<P>Name</P><P>12</P><INPUT>", u"", 1, true},  // the last block that held something has no letter
      {u"Name<INPUT type=hidden><INPUT type=submit><INPUT type=button><INPUT type=image>", u"", 0, false},
      {u"Name<INPUT type=file>More<INPUT type=email>", u" Name More", 2, false},
      {u"Name<INPUT type=\"checkbox\">", u"", 0, false},  // the quote that opens a value isn't kept
      {u"Country <SELECT><OPTION>Utopia</OPTION></SELECT> Town <INPUT>", u" Country   Town ", 1, false},
      {u"a&nbsp;b&amp;c&quot;&lt;&gt;&copy;d<INPUT>", u" a b&c\"<>d", 1, false},
      {u"a&amp<INPUT>b", u"", 0, false},
      {u"<SCRIPT>var x = 'Name';</SCRIPT><STYLE>p</STYLE><INPUT>", u"", 1, true},
      {u"<A title=\"a>b\">Name</A><INPUT>", u" Name", 1, false},
      {u"Name<INPUT", u"", 0, false},
  };
  for (const Row& row : rows) {
    const FormTexts texts = ScanFormTexts(row.html);
    EXPECT_EQ(texts.scanText, row.labels) << Narrow(row.html);
    EXPECT_EQ(texts.fieldCount, row.fields) << Narrow(row.html);
    EXPECT_EQ(texts.fieldWithoutLabel, row.withoutLabel) << Narrow(row.html);
  }
}

TEST(FormTextScanner, ReadsActionsAsTheyStandInTheTag) {
  const std::pair<std::u16string_view, std::u16string_view> rows[] = {
      {u"<FORM>", u""},
      {u"<FORM action=go method=post>", u"go"},
      {u"<FORM method=post action=go>", u"go>"},
      {u"<FORM action=\"go there\" method=post>", u"go"},
      {u"<FORM action=\"go\" method=post>", u"go\""},
      {u"<FORM action=\"\" method=post>", u" method=post>"},
      {u"<FORM action= method=post>", u""},
      {u"<FORM action=>", u""},
      {u"<FORM data-action=x action=y >", u"x"},
  };
  for (const auto& [html, action] : rows) {
    const FormTexts texts = ScanFormTexts(html);
    ASSERT_EQ(texts.forms.size(), 1U) << Narrow(html);
    EXPECT_EQ(texts.forms[0].action, action) << Narrow(html);
  }
}

TEST(FormTextScanner, HandsLabelsToForms) {
  FormData data;
  data.records.resize(2);
  data.records[0].action = u"b";
  data.records[1].action = u"a";
  MergeLabels(data, {{u" one", u"a"}, {u" two", u"b"}});
  EXPECT_EQ(data.records[0].labelText, u" one");
  EXPECT_EQ(data.records[1].labelText, u" two");
  MergeLabels(data, {{u" one", u"a"}, {u" two", u"c"}, {u" three", u"a"}});
  EXPECT_EQ(data.records[0].labelText, u" one");  // no such action: stays
  EXPECT_EQ(data.records[1].labelText, u" three");
}

TEST(Scanners, GiveWhatALiteralReadingGives) {
  constexpr std::u16string_view kPieces[] = {
      u"<P>",
      u"</P>",
      u"<DIV class=x>",
      u"</DIV>",
      u"<BR>",
      u"<TR>",
      u"</TR>",
      u"<UL>",
      u"<LI>",
      u"<FORM action=\"a\">",
      u"<FORM>",
      u"<INPUT>",
      u"<INPUT ",
      u"type=",
      u"text",
      u"password",
      u"checkbox ",
      u"hidden",
      u"file",
      u"<SELECT>",
      u"<SELECT",
      u"</SELECT>",
      u"<TEXTAREA ",
      u"</TEXTAREA>",
      u"<SCRIPT>",
      u"</SCRIPT>",
      u"<STYLE ",
      u"</STYLE>",
      u"<IMG src=x",
      u" width=1",
      u" height=1 ",
      u"<HR ",
      u">",
      u"<",
      u"\"",
      u"'",
      u"=",
      u"&nbsp;",
      u"&amp;",
      u"&",
      u";",
      u" ",
      u"\r\n",
      u"Name",
      u"12",
      u"\u00e9",
      u"action=",
      u"<!-- x -->",
      u"</",
  };
  std::mt19937 random(20);
  for (int round = 0; round < 3000; ++round) {
    std::u16string html;
    for (int i = 0; i < 40; ++i) html += kPieces[random() % std::size(kPieces)];
    EXPECT_EQ(Structure(html), LiteralStructureEncoder().Encode(html)) << Narrow(html);
    const FormTexts texts = ScanFormTexts(html);
    const auto literal = LiteralFormTextScanner().Scan(html);
    EXPECT_EQ(texts.scanText, literal.scanText) << Narrow(html);
    EXPECT_EQ(texts.fieldCount, literal.fieldCount) << Narrow(html);
    EXPECT_EQ(texts.fieldWithoutLabel, literal.fieldWithoutLabel) << Narrow(html);
    ASSERT_EQ(texts.forms.size(), literal.forms.size()) << Narrow(html);
    for (std::size_t i = 0; i < texts.forms.size(); ++i) {
      EXPECT_EQ(texts.forms[i].action, literal.forms[i].action) << Narrow(html);
      EXPECT_EQ(texts.forms[i].labelText, literal.forms[i].labelText) << Narrow(html);
    }
    if (testing::Test::HasFailure()) break;
  }
}

}  // namespace
}  // namespace zeph
