// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/page/FormCollector.h"
#include "tests/page/Pages.h"

namespace zeph {
namespace {

/// The one form of a page that holds these INPUT elements.
FormData CollectInputs(const std::string& inputs, std::string_view form = "'get_action': 'go'") {
  const auto count = std::ranges::count(inputs, '\n');
  std::string indexes;
  for (std::ptrdiff_t i = 1; i <= count; ++i) indexes += (i > 1 ? ", " : "") + std::to_string(i);
  std::string elements = "{'IHTMLFormElement': {" + std::string(form) + ", 'tags': {'INPUT': [" + indexes + "]}}}";
  std::string_view rest = inputs;
  while (!rest.empty()) {
    const std::size_t end = rest.find('\n');
    elements.append(", {'IHTMLElement': {'getAttribute': {").append(rest.substr(0, end)).append("}}}");
    rest.remove_prefix(end + 1);
  }
  FormData data;
  EXPECT_EQ(CollectFormData(Page("'get_forms': [0]", elements).get(), Decoded(u"http://a.test/x/y"), data), 0);
  return data;
}

TEST(FormCollector, CountsFieldsByTheirType) {
  const FormData data = CollectInputs(
      "'type': 'PassWord'\n"
      "'type': 'text'\n"
      "\n"
      "'type': ''\n"
      "'type': 'email'\n"
      "'type': 7\n"
      "'type': 'hidden', 'name': 'n', 'value': 'v'\n"
      "'type': 'submit', 'value': 'first'\n"
      "'type': 'Submit', 'value': 'last'\n"
      "'type': 'submit'\n"
      "'type': 'button'\n"
      "'type': 'checkbox'\n"
      "'type': 'file'\n"
      "'type': 'image'\n"
      "'type': 'radio'\n"
      "'type': 'reset'\n");
  ASSERT_EQ(data.records.size(), 1U);
  const FormRecord& form = data.records[0];
  EXPECT_EQ(form.inputCount, 16);
  EXPECT_EQ(form.passwordCount, 1);
  EXPECT_EQ(form.textCount, 5);
  EXPECT_EQ(form.hiddenCount, 1);
  EXPECT_EQ(form.submitCount, 3);
  EXPECT_EQ(form.submitValue, u"last");
  EXPECT_TRUE(form.multipleFields);
  EXPECT_TRUE(form.hasUserFields);
  EXPECT_EQ(data.numVisibleForms, 1);
  EXPECT_EQ(data.numPasswordForms, 1);
}

TEST(FormCollector, ListsOfHiddenFieldsStayParallel) {
  const FormData data = CollectInputs(
      "'type': 'hidden', 'name': 'a'\n"
      "'type': 'hidden', 'value': 'x@y.z'\n"
      "'type': 'hidden'\n"
      "'type': 'hidden', 'name': {'status': -1}, 'value': 'second@y.z'\n"
      "'type': 'hidden', 'name': 'b', 'value': 'c'\n");
  ASSERT_EQ(data.records.size(), 1U);
  const FormRecord& form = data.records[0];
  EXPECT_EQ(form.hiddenCount, 5);
  EXPECT_EQ(form.hiddenNames, (Texts{u"a", u"", u"", u"b"}));
  EXPECT_EQ(form.hiddenValues, (Texts{u"", u"x@y.z", u"second@y.z", u"c"}));
  EXPECT_EQ(form.hiddenAddress, u"x@y.z");
  EXPECT_FALSE(form.hasUserFields);
  EXPECT_EQ(data.numVisibleForms, 0);
}

TEST(FormCollector, ReadsActionsAgainstThePage) {
  struct Row {
    std::string_view action;
    std::u16string_view host, scheme, extension;
  };
  const Row rows[] = {
      {"'http://b.test/in.PHP?q'", u"b.test", u"http", u"php"},
      {"'https://b.test/'", u"b.test", u"https", u""},
      {"'HTTP://b.test/in.php'", u"a.test", u"HTTP", u"php"},  // read as a relative one, which keeps the page's host
      {"'send.asp'", u"a.test", u"http", u"asp"},
      {"'mailto:x@b.test'", u"a.test", u"mailto", u""},
      {"'http://['", u"", u"", u""},
      {"''", u"", u"", u""},
      {"null", u"", u"", u""},
  };
  for (const Row& row : rows) {
    const FormData data = CollectInputs("", "'get_action': " + std::string(row.action));
    ASSERT_EQ(data.records.size(), 1U) << row.action;
    EXPECT_EQ(data.records[0].actionHost, row.host) << row.action;
    EXPECT_EQ(data.records[0].actionScheme, row.scheme) << row.action;
    EXPECT_EQ(data.records[0].actionExtension, row.extension) << row.action;
  }
}

TEST(FormCollector, DropsFormsThatCantBeReadToTheEnd) {
  const std::string page = "'get_forms': [0, 1, null, 2, {'status': -5}, 3, 4, 5, 6]";
  const std::string elements =
      "{'IHTMLFormElement': {'get_action': {'status': -1}}},"
      "{'IHTMLFormElement': {'tags': {'SELECT': {'status': -2}}}},"
      "{'IHTMLFormElement': {'tags': {'TEXTAREA': {'status': -3}}}},"
      "{'IHTMLFormElement': {'tags': {'INPUT': {'status': -4}}}},"
      "{'IHTMLElement': {}},"
      // The first field fails, the last one doesn't: the form stands.
      "{'IHTMLFormElement': {'tags': {'INPUT': [7, null, 8]}}},"
      // The last one fails, and with it the form.
      "{'IHTMLFormElement': {'tags': {'INPUT': [8, 7]}}},"
      "{'IHTMLElement': {'getAttribute': {'type': {'status': -6}}}},"
      "{'IHTMLElement': {'getAttribute': {'type': 'password'}}}";
  FormData data;
  EXPECT_EQ(CollectFormData(Page(page, elements).get(), {}, data), -6);
  EXPECT_EQ(data.numForms, 9);
  ASSERT_EQ(data.records.size(), 1U);
  EXPECT_EQ(data.records[0].inputCount, 3);
  EXPECT_EQ(data.records[0].passwordCount, 1);
  EXPECT_EQ(data.records[0].textCount, 0);
}

TEST(FormCollector, KnowsTheShapeOfAnAddress) {
  for (const std::u16string_view address : {u"a@b.c", u"a@b@c.d", u"a.b@c.d", u"x@.y"}) {
    EXPECT_TRUE(LooksLikeAddress(address)) << Narrow(address);
  }
  for (const std::u16string_view text : {u"", u"@.", u"@b.c", u"a@b", u"a.b@c", u"a@b.", u"a@b.c."}) {
    EXPECT_FALSE(LooksLikeAddress(text)) << Narrow(text);
  }
  EXPECT_TRUE(LooksLikeAddress(std::u16string(46, u'a') + u"@b.c"));
  EXPECT_FALSE(LooksLikeAddress(std::u16string(47, u'a') + u"@b.c"));
}

}  // namespace
}  // namespace zeph
