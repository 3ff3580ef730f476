// SPDX-License-Identifier: Apache-2.0
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "DetectionEngine/configuration/Configuration.h"
#include "DetectionEngine/platform/CodePage.h"
#include "tests/scoring/ScoringFixture.h"

namespace zeph::test {
namespace {

/// A value in one line: its kind and what that kind holds.
std::string Shown(const FieldValue& value) {
  std::string shown;
  switch (value.kind) {
    case FieldKind::kNone:
      return "none";
    case FieldKind::kNumber:
      return "number " + std::to_string(value.number);
    case FieldKind::kText:
      return "text " + Narrow(value.text);
    case FieldKind::kFlag:
      return value.flag ? "flag true" : "flag false";
    case FieldKind::kNumberWithText:
      return "number " + std::to_string(value.number) + " of " + Narrow(value.text2);
    case FieldKind::kList:
      shown = "list";
      for (const std::u16string_view text : value.list) shown += " " + Narrow(text);
      return shown;
    case FieldKind::kNumbers:
      shown = "numbers";
      for (const std::int32_t number : value.numbers) shown += " " + std::to_string(number);
      return shown;
  }
  return shown;
}

FormRecord Form(TextArena& kept, bool multipleFields, const std::u16string& name, std::int32_t passwords) {
  FormRecord form;
  form.multipleFields = multipleFields;
  form.action = kept.Copy(name + u".php");
  form.actionHost = kept.Copy(name + u".test");
  form.submitValue = kept.Copy(u"send-" + name);
  form.passwordCount = passwords;
  return form;
}

/// A page with another value in each member that a field shows.
PageData FilledPage(const Configuration& configuration) {
  PageData page;
  page.configuration = &configuration;
  page.url.Scheme = u"https";
  page.url.Password = u"secret";
  page.url.UserName = u"user";
  page.url.HostName = u"www.page.test";
  page.url.RawUrl = u"https://www.page.test/path/file.php";
  page.url.UrlPath = u"/path/file.php";
  page.url.FileExtension = u"php";
  page.url.HostIsIp = true;
  TextArena& kept = page.forms.kept;
  page.forms.records = {Form(kept, true, u"one", 1), Form(kept, false, u"two", 2), Form(kept, true, u"three", 0)};
  page.forms.numForms = 4;
  page.body.title = u"title";
  page.body.visibleText = u"visible";
  page.body.labelText = u"label";
  page.body.markerPhrases = {u"welcome-to", u"copyright"};
  page.images.paths = {u"/a.gif", u"/b.gif"};
  page.images.sources = {u"s1", u"s2", u"s3"};
  page.images.hostTally = {{u"img.bank.test", 5}};
  page.links.urls = {u"http://www.bank.test/", u"http://www.page.test/", u"mailto:x"};
  page.links.hostTally = {{u"www.bank.test", 2}, {u"www.page.test", 1}};
  page.links.linkText = u" links";
  page.scripts.texts = {u"script1", u"script2"};
  page.scripts.hostTally = {{u"js.bank.test", 7}};
  page.all.nonEmptyBlockCount = 11;
  page.all.passwordInputCount = 9;
  page.all.elementCount = 31;
  page.all.bodyBackgroundExtension = u"png";
  page.all.shortcutIconHost = u"icon.test";
  return page;
}

Configuration WithBank() {
  Configuration configuration;
  configuration.TrustedDomainInfos[u"bank.test"].DT = {u"bank.test"};
  configuration.BuildIndexes();
  return configuration;
}

TEST(FieldTable, EachNumberShowsItsMember) {
  const std::vector<std::string> expected = {
      "text https",
      "text secret",
      "text user",
      "text www.page.test",
      "text https://www.page.test/path/file.php",
      "list one.test three.test",
      "text title",
      "text visible",
      "list /a.gif /b.gif",
      "number 5 of bank.test",
      "text label",
      "number 11",
      "number 3",
      "number 4",
      "flag false",
      "flag true",
      "list send-one send-three",
      "list http://www.bank.test/ http://www.page.test/ mailto:x",
      "list script1 script2",
      "number 2 of bank.test",
      "text /path/file.php",
      "list one.php two.php three.php",
      "numbers 1 0",
      "number 7",
      "number 3",
      "text png",
      "none",
      "text php",
      "text  links",
      "number 3",
      "text icon.test",
      "number 31",
      "flag true",
      "list welcome-to copyright",
  };
  const Configuration configuration = WithBank();
  PageData page = FilledPage(configuration);
  for (std::uint32_t field = 0; field < expected.size(); ++field) {
    EXPECT_EQ(Shown(GetFieldValue(page, field)), expected[field]) << "field " << field;
    EXPECT_EQ(FindField(field) == nullptr, expected[field] == "none") << "field " << field;
  }
  for (const std::uint32_t beyond : {34U, 255U, 0xFFFFFFFFU}) EXPECT_EQ(Shown(GetFieldValue(page, beyond)), "none");
}

TEST(FieldTable, BrandLinksAreTakenOffOnceTheyWereCounted) {
  const Configuration configuration = WithBank();
  PageData page = FilledPage(configuration);
  EXPECT_EQ(GetFieldValue(page, 12).number, 3);
  EXPECT_EQ(GetFieldValue(page, 19).number, 2);
  EXPECT_EQ(GetFieldValue(page, 12).number, 1);
}

TEST(FieldTable, PasswordFieldsOutsideFormsOfSeveralFieldsCountForThePage) {
  TextArena kept;
  struct Row {
    std::vector<FormRecord> forms;
    std::int32_t onPage;
    const char* shown;
  };
  const std::vector<Row> rows = {
      {{Form(kept, true, u"a", 0)}, 3, "numbers 0"},
      {{Form(kept, false, u"a", 1)}, 1, "numbers 1"},
      {{}, 2, "numbers 2"},
      {{Form(kept, false, u"a", 1)}, 0, "numbers"},
  };
  for (const Row& row : rows) {
    PageData page;
    page.forms.records = row.forms;
    page.all.passwordInputCount = row.onPage;
    EXPECT_EQ(Shown(GetFieldValue(page, 22)), row.shown);
  }
}

}  // namespace
}  // namespace zeph::test
