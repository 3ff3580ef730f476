// SPDX-License-Identifier: Apache-2.0
// The command line as other programs use it: the real program, its JSON, its exit statuses.
#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/wait.h>
#include "TestPaths.h"

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;
using std::string_literals::operator""s;

struct Ran {
  int status = 0;
  std::string out;
  std::string err;

  [[nodiscard]] std::vector<Json> Lines() const {
    std::vector<Json> lines;
    std::istringstream text(out);
    for (std::string line; std::getline(text, line);) lines.push_back(Json::parse(line));
    return lines;
  }
};

std::string ReadText(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::stringstream text;
  text << file.rdbuf();
  return text.str();
}

void WriteText(const fs::path& path, const std::string& text) { std::ofstream(path, std::ios::binary) << text; }

std::vector<std::string> Names(const Json& object) {
  std::vector<std::string> names;
  for (const auto& [name, value] : object.items()) names.push_back(name);
  return names;
}

class CommandLine : public testing::Test {
 protected:
  void SetUp() override {
    folder_ = fs::path(testing::TempDir()) /
              ("zeph-" + std::string(testing::UnitTest::GetInstance()->current_test_info()->name()));
    fs::remove_all(folder_);
    fs::create_directories(folder_ / "machine");
    fs::create_directories(folder_ / "user");
  }
  void TearDown() override { fs::remove_all(folder_); }

  /// Runs zeph; arguments are shell words, input is its standard input.
  [[nodiscard]] Ran Run(const std::string& arguments, const std::string& input = "") const {
    WriteText(folder_ / "in", input);
    const std::string command = "cd " + folder_.string() + " && ZEPH_MACHINE_DIR=" + (folder_ / "machine").string() +
                                " ZEPH_USER_DIR=" + (folder_ / "user").string() + " " ZEPH_PROGRAM " " + arguments +
                                " <in >out 2>err";
    Ran ran;
    const int status = std::system(command.c_str());
    ran.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    ran.out = ReadText(folder_ / "out");
    ran.err = ReadText(folder_ / "err");
    return ran;
  }

  /// A folder of small sources: one brand, and rules that tell on the brand's tag and on nothing else.
  [[nodiscard]] std::string Sources() const {
    const fs::path sources = folder_ / "sources";
    fs::create_directories(sources);
    WriteText(sources / "TrustedDomains.xml",
              "<Trusted.Domain>\n<Domain>bank.example</Domain>\n<CN>Example Bank</CN>\n<UT>examplebank</UT>\n"
              "<DT>bank.example</DT>\n</Trusted.Domain>\n");
    WriteText(sources / "SafeList", "<Trusted.Domain D=\"bank.example\">\n<Domain>safe.example</Domain>\n");
    WriteText(
        sources / "Indicators.xml",
        "<Indicator>\n<OnWeight>0.95</OnWeight>\n<TDPriority>1</TDPriority>\n<Category>0</Category>\n<Expression>\n"
        "<FieldID>4</FieldID>\n<MethodID>3</MethodID>\n<ValueType>0</ValueType>\n<Value>8</Value>\n"
        "</Expression>\n</Indicator>\n");
    WriteText(sources / "Resources.xml", "<Server>server.example</Server>\n<TRLMBrandIDs>a,b</TRLMBrandIDs>\n");
    return sources.string();
  }

  fs::path folder_;
};

TEST_F(CommandLine, ChecksUrlsInOrder) {
  const std::string inputs = " http://examplebank.evil.test/ about:blank http://quiet.test/ 'http://[::1]/' nothing.html";
  const Ran ran = Run("check --json --sources " + Sources() + inputs);
  EXPECT_EQ(ran.status, 2);
  EXPECT_NE(ran.err.find("3 inputs not judged, the first: about:blank: "), std::string::npos) << ran.err;
  const auto lines = ran.Lines();
  ASSERT_EQ(lines.size(), 5U);
  EXPECT_EQ(
      lines[0].dump(),
      R"({"input":"http://examplebank.evil.test/","result":0,"classification":5,"spooficity":0.95,"siteName":"Example )"
      R"(Bank","verdict":"spoofing","reason":null,"url":"http://examplebank.evil.test/","urlSource":"given","heldBack":)"
      R"(false,"sent":[],"parts":[]})");
  EXPECT_EQ(lines[2]["verdict"], "unclassified");
  for (const std::size_t i : {1U, 3U, 4U}) {
    EXPECT_EQ(lines[i]["verdict"], "not-judged") << lines[i];
    EXPECT_TRUE(lines[i]["result"].is_null() && lines[i]["classification"].is_null() && lines[i]["url"].is_null());
    EXPECT_TRUE(lines[i]["reason"].is_string()) << lines[i];
  }

  // As they stand, the engine's own answers.
  const Ran exact = Run("check --exact --json --sources " + Sources() + inputs);
  EXPECT_EQ(exact.status, 0) << exact.err;
  const auto engine = exact.Lines();
  ASSERT_EQ(engine.size(), 5U);
  const auto own = [](const Json& line) {
    return Json{line["result"], line["classification"], line["spooficity"], line["siteName"]}.dump();
  };
  EXPECT_EQ(own(engine[1]), R"([0,1,0,"Microsoft"])");
  EXPECT_EQ(own(engine[2]), R"([0,3,0.5,null])");
  EXPECT_EQ(own(engine[3]), R"([-1,3,null,null])");
}

TEST_F(CommandLine, ReadsAnAddressAsABrowserDoes) {
  const Ran ran = Run("check --json --sources " + Sources() + " -",
                      "\xEF\xBB\xBFHTTP:\\\\ExampleBank.evil.TEST\n\nhxxp://examplebank[.]evil[.]test/\r\n"
                      "examplebank.evil.test\nhttp:/exam\tplebank.evil.test\nno address\n");
  const auto lines = ran.Lines();
  ASSERT_EQ(lines.size(), 6U);
  EXPECT_EQ(ran.status, 2);
  for (const std::size_t i : {0U, 2U, 3U, 4U}) {
    EXPECT_EQ(lines[i]["url"], "http://examplebank.evil.test/") << lines[i];
    EXPECT_EQ(lines[i]["verdict"], "spoofing") << lines[i];
  }
  EXPECT_EQ(lines[1]["reason"], "empty");
  EXPECT_EQ(lines[5]["verdict"], "not-judged");
  EXPECT_NE(Run("check --sources " + Sources() + " 'examplebank[.]evil.test'").out.find("read as http://examplebank"),
            std::string::npos);
}

TEST_F(CommandLine, TrustsNoPageOnItsOwnWord) {
  const fs::path sources = Sources();
  // One rule vouches for the bank's own site, one holds what asks for a password.
  WriteText(sources / "Indicators.xml",
            "<Indicator>\n<OnWeight>0.0</OnWeight>\n<Category>0</Category>\n<Expression>\n<FieldID>3</FieldID>\n"
            "<MethodID>6</MethodID>\n<ValueType>1</ValueType>\n<Value>www.bank.example</Value>\n</Expression>\n"
            "</Indicator>\n");
  const std::string at = "https://www.bank.example/signin";
  const std::pair<std::string, std::string> pages[] = {
      {"canonical.html", "<link rel=canonical href='" + at + "'>"},
      {"base.html", "<base href='" + at + "'>"},
      {"mark.html", "<!-- saved from url=(0031)" + at + " --><html>"},
  };
  const std::string check = "check --json --sources " + sources.string() + " ";
  const bool rulesWork = Run(check + at).Lines().at(0)["verdict"] == "trustworthy";
  EXPECT_TRUE(rulesWork) << Run(check + at).out;
  for (const auto& [name, text] : pages) {
    WriteText(folder_ / name, text + "<a href=help>x</a>");
    const Json line = Run(check + name).Lines().at(0);
    EXPECT_EQ(line["verdict"], "unclassified") << line;
    EXPECT_EQ(line["urlSource"], "claimed") << line;
    EXPECT_EQ(line["url"], at) << line;
    EXPECT_EQ(Run(check + "--trust-claimed-url " + name).Lines().at(0)["verdict"], "trustworthy") << name;
    EXPECT_EQ(Run(check + "--url http://evil.test/ " + name).Lines().at(0)["urlSource"], "given") << name;
    EXPECT_NE(Run("check --sources " + sources.string() + " " + name).out.find("by its content alone"),
              std::string::npos);
    // Written down and judged elsewhere it is no more believed.
    ASSERT_EQ(Run("record " + name + " --output page.json").status, 0);
    const Json again = Run(check + "page.json").Lines().at(0);
    EXPECT_EQ(again["verdict"], "unclassified") << again;
    EXPECT_TRUE(again["url"].is_null()) << again;
    EXPECT_NE(ReadText(folder_ / "page.json").find("https://www.bank.example/help"), std::string::npos) << name;
  }
  WriteText(folder_ / "map", "base.html\t" + at + "\n");
  const Json mapped = Run(check + "--map map base.html").Lines().at(0);
  EXPECT_EQ(mapped["urlSource"], "map");
  EXPECT_EQ(mapped["verdict"], "trustworthy");
  EXPECT_EQ(Run(check + "-", "base.html\thttp://evil.test/\n").Lines().at(0)["url"], "http://evil.test/");
  WriteText(folder_ / "empty.html", "");
  EXPECT_EQ(Run(check + "empty.html").Lines().at(0)["reason"], "empty");
}

TEST_F(CommandLine, JudgesLettersAndFilesOfMany) {
  const std::string letter =
      "From: a@b.test\nSubject: x\nContent-Type: text/html\nContent-Transfer-Encoding: base64\n\n"
      "PGEgaHJlZj0iaHR0cDovL2V4YW1wbGViYW5rLmV2aWwudGVzdC8iPnd3dy5iYW5rLmV4YW1wbGU8L2E+PGJhc2UgaHJlZj1odHRwOi8vYmFuay5leGFtcGxlPg==\n";
  WriteText(folder_ / "a.eml", letter);
  WriteText(folder_ / "m.mbox", "From a 12:00\n" + letter + "\nFrom b 12:00\nSubject: y\n\nhttp://safe.example/\n");
  // What is said of the address of pages isn't said of what strangers send.
  const auto lines = Run("check --json --trust-claimed-url --url http://bank.example/ --sources " + Sources() + " a.eml m.mbox").Lines();
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[0]["siteName"], "Example Bank");
  EXPECT_EQ(lines[0]["parts"][0]["where"], "link that shows \"www.bank.example\"");
  EXPECT_EQ(lines[0]["parts"][0]["verdict"], "spoofing");
  EXPECT_EQ(lines[0]["parts"][1]["verdict"], "unclassified");
  EXPECT_EQ(lines[1]["input"], "m.mbox: letter 1");
  EXPECT_EQ(lines[1]["verdict"], "spoofing");
  EXPECT_EQ(lines[2]["verdict"], "unclassified");
  const Ran page = Run("check --stdin-page --json --sources " + Sources() + " --url http://examplebank.evil.test/", "Log in");
  EXPECT_EQ(page.Lines().at(0)["verdict"], "spoofing");
}

TEST_F(CommandLine, OneInputHarmsNoOther) {
  fs::create_symlink("loop.html", folder_ / "loop.html");
  WriteText(folder_ / "bad.json", "{\"recording\": 1, \"document\": {\"get_URL\": [}}");
  std::string groups = "MIME-Version: 1.0\nTo: ";
  for (int i = 0; i < 40'000; ++i) groups += "a:";
  WriteText(folder_ / "deep.mht", groups + "\nContent-Type: text/html\n\n<p>x");
  const std::string input = std::string(4096, 'x') + "\n" + std::string(70'000, 'y') + ".test\n" + std::string(256, 'z') +
                            "/a.html\n\xFF\xFE\nloop.html\nbad.json\nmachine\n/dev/zero\n/etc/shadow/x\na\0b.html\n"s +
                            "deep.mht\nhttp://quiet.test/";
  const auto count = static_cast<std::size_t>(std::ranges::count(input, '\n')) + 1;
  for (const char* jobs : {"1", "3"}) {
    const Ran ran = Run("check --json --sources " + Sources() + " - --jobs " + jobs, input);
    EXPECT_EQ(ran.status, 2) << ran.err;
    const auto lines = ran.Lines();
    ASSERT_EQ(lines.size(), count) << ran.err;
    EXPECT_EQ(lines[count - 1]["verdict"], "unclassified");
    EXPECT_EQ(lines[count - 2]["verdict"], "unclassified") << lines[count - 2];
    for (std::size_t i = 0; i + 2 < count; ++i) EXPECT_EQ(lines[i]["verdict"], "not-judged") << lines[i];
  }
  EXPECT_EQ(Run("check --json --sources " + Sources() + " " + std::string(5000, 'x') + " .").Lines().size(), 4U);
}

TEST_F(CommandLine, WritesInSeveralFormats) {
  const std::string urls = "http://a.quiet.test/\nhttp://examplebank.evil.test/,\"=1\nnothing\nhttp://examplebank.b.test/\n";
  const std::string check = "check --sources " + Sources() + " - --format ";
  const auto out = [&](const std::string& arguments) { return Run(check + arguments, urls).out; };
  EXPECT_EQ(out("csv --held"),
            "input,verdict,spooficity,brand,url,urlSource,heldBack,reason\n"
            "\"http://examplebank.evil.test/,\"\"=1\",spoofing,0.950,Example Bank,\"http://examplebank.evil.test/,%22=1\","
            "given,false,\n"
            "http://examplebank.b.test/,spoofing,0.950,Example Bank,http://examplebank.b.test/,given,false,\n");
  EXPECT_EQ(Json::parse(out("json")).size(), 4U);
  EXPECT_EQ(Json::parse(out("json --held --sort host"))[0]["url"], "http://examplebank.b.test/");
  const std::string table = out("table --sort score");
  EXPECT_LT(table.find("examplebank"), table.find("quiet")) << table;
  EXPECT_LT(table.find("quiet"), table.find("nothing")) << table;
  EXPECT_NE(table.find("4 inputs: 2 spoofing, 1 unclassified, 1 not-judged; brands: Example Bank 2"), std::string::npos)
      << table;
  EXPECT_EQ(out("csv --group brand"),
            "group,held,inputs,spooficity,example\nExample Bank,2,2,0.950,\"http://examplebank.evil.test/,\"\"=1\"\n"
            ",0,2,0.500,http://a.quiet.test/\n");
  EXPECT_NE(out("csv --group domain").find("evil.test,1,1,0.950"), std::string::npos);
  EXPECT_EQ(table.find('\x1b'), std::string::npos);
  EXPECT_NE(out("table --color always").find("\x1b[1;31mspoofing"), std::string::npos);
}

TEST_F(CommandLine, NothingThatStrangersWriteSteersATerminal) {
  const std::string steers = "\x1b]0;x\x07\x1b[2J\xC2\x9B" "1m\xE2\x80\xAE\xE2\x80\xA8\r";
  const fs::path sources = Sources();
  WriteText(sources / "TrustedDomains.xml",
            "<Trusted.Domain>\n<Domain>bank.example</Domain>\n<CN>Example " + steers + "Bank</CN>\n<UT>examplebank</UT>\n"
            "<DT>bank.example</DT>\n</Trusted.Domain>\n");
  const std::string page = steers + ".html";
  WriteText(folder_ / page, "<link rel=canonical href='http://bank.example/" + steers + "'><title>" + steers + "</title>");
  WriteText(folder_ / "list", page + "\nhttp://examplebank.evil.test/" + steers + "x\n" + steers + "\n" + steers + "/x.html\n");
  const std::string from = " --sources " + sources.string() + " ";
  const std::string commands[] = {
      "check --explain" + from + "-",       "check --format table" + from + "-", "check --format csv" + from + "-",
      "check --json --explain" + from + "-", "check --group domain" + from + "-", "inspect url" + from + "-",
      "inspect page" + from + "-",          "inspect tree $(head -n1 in)",       "record $(head -n3 in|tail -n1)",
      "check --map in" + from + "x",        "settings get $(head -n3 in)",       "$(head -n3 in|tail -n1)",
      "check --package $(head -n3 in) x",   "check --sources $(head -n3 in) x",  "report --code 1" + from + "$(head -n3 in)",
      "settings set $(head -n3 in|tail -n1) $(head -n3 in|tail -n1) && " ZEPH_PROGRAM " settings list",
  };
  for (const std::string& command : commands) {
    const Ran ran = Run(command, ReadText(folder_ / "list"));
    const std::string text = ran.err + (command.starts_with("inspect tree") ? "" : ran.out);
    for (const char* part : {"\x1b", "\x07", "\r", "\xC2\x9B", "\xE2\x80\xAE", "\xE2\x80\xA8"}) {
      EXPECT_EQ(text.find(part), std::string::npos) << command << "\n" << text;
    }
  }
}

TEST_F(CommandLine, SaysWhatWasMeant) {
  EXPECT_NE(Run("chek x").err.find("did you mean \"check\"?"), std::string::npos) << Run("chek x").err;
  EXPECT_NE(Run("inspect pag x").err.find("did you mean \"page\"?"), std::string::npos);
  EXPECT_NE(Run("settings set --machine OutputToFiles 1").err.find("there are OutputToFile, "), std::string::npos);
  EXPECT_NE(Run("settings set --machine DebugType 7").err.find("none of 0 to 3"), std::string::npos);
  for (const char* command : {"chek x", "inspect pag x", "settings set --machine OutputToFiles 1"}) {
    EXPECT_EQ(Run(command).status, 2) << command;
  }
}

TEST_F(CommandLine, ExplainsEveryIndicator) {
  const auto lines = Run("check --json --explain --sources " + Sources() + " http://examplebank.evil.test/").Lines();
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0]["brand"], "bank.example");
  EXPECT_EQ(
      lines[0]["indicators"].dump(),
      R"([{"index":0,"evaluated":true,"on":true,"fieldText":"http://examplebank.evil.test/","matchText":"bank.example"}])");
}

TEST_F(CommandLine, TellsReasonsInSentencesStrongestFirst) {
  const std::string sources = Sources();
  const auto rule = [](const std::string& texts, const char* weight, const char* method, const char* value) {
    return "<Indicator>\n" + texts + "<OnWeight>" + weight + "</OnWeight>\n<Category>0</Category>\n<Expression>\n<FieldID>3" +
           "</FieldID>\n<MethodID>" + method + "</MethodID>\n<ValueType>1</ValueType>\n<Value>" + value +
           "</Value>\n</Expression>\n</Indicator>\n";
  };
  WriteText(fs::path(sources) / "Indicators.xml",
            "<Indicator>\n<Name>brand-in-host</Name>\n<TDPriority>1</TDPriority>\n<Category>0</Category>\n<Expression>\n"
            "<FieldID>3</FieldID>\n<MethodID>3</MethodID>\n<ValueType>0</ValueType>\n<Value>8</Value>\n</Expression>\n"
            "</Indicator>\n" +
                rule("<Name>word</Name>\n<Sentence>the host says {match}, caf&#0233;&amp;co</Sentence>\n", "0.6", "6", "evil") +
                rule("<Sentence>{brand} isn't here</Sentence>\n", "0.9", "26", "0") + rule("", "0.2", "6", "test") +
                rule("<Name>quiet</Name>\n<Sentence>quiet</Sentence>\n", "0.99", "6", "quiet"));
  const std::string wanted =
      R"([{"rule":"rule 2","sentence":"Example Bank isn't here","evidence":"bank.example in examplebank.evil.test","weight":0.9,"without":0.27272725},)"
      R"({"rule":"rule 3","sentence":"UrlHost Contains","evidence":"test in examplebank.evil.test","weight":0.2,"without":0.9310345},)"
      R"({"rule":"word","sentence":"the host says evil, caf\u00e9&co","evidence":"evil in examplebank.evil.test","weight":0.6,"without":0.6923077}])";
  ASSERT_EQ(Run("package build --sources sources --output memory.zip").status, 0);
  ASSERT_EQ(Run("package build --sources sources --output pack.zip --format pack").status, 0);
  for (const std::string from : {"--sources sources", "--package memory.zip", "--package pack.zip"}) {
    const Ran ran = Run("check --json --explain " + from + " http://examplebank.evil.test/");
    ASSERT_EQ(ran.Lines().size(), 1U) << ran.err;
    const Json reasons = ran.Lines()[0]["reasons"];
    ASSERT_EQ(reasons.size(), 3U) << from;
    const Json expected = Json::parse(wanted);
    for (std::size_t i = 0; i < reasons.size(); ++i) {
      for (const char* text : {"rule", "sentence", "evidence"}) EXPECT_EQ(reasons[i][text], expected[i][text]) << from;
      for (const char* number : {"weight", "without"}) {
        EXPECT_NEAR(reasons[i][number].get<float>(), expected[i][number].get<float>(), 1e-4) << from << i << number;
      }
    }
  }
}

TEST_F(CommandLine, KeepsTheOrderOfManyJobs) {
  std::string input;
  for (int i = 0; i < 500; ++i)
    input += "http://host" + std::to_string(i) + ".test/" + std::string(i % 7 * 100, 'x') + "\n";
  const std::string command = "check --json --sources " + Sources() + " - --jobs ";
  const Ran one = Run(command + "1", input);
  EXPECT_EQ(one.Lines().size(), 500U);
  EXPECT_EQ(Run(command + "4", input).out, one.out);
}

TEST_F(CommandLine, SaysByItsExitStatusWhatWasAskedFor) {
  const std::string sources = " --sources " + Sources() + " ";
  const std::string spoof = "http://examplebank.evil.test/";
  WriteText(folder_ / "bad.json", R"({"recording": 1, "document": {"get_URL": [}})");
  struct Case {
    std::string arguments;
    int status;
    std::string error;
  };
  const Case cases[] = {
      {"check" + sources + spoof, 0, ""},
      {"check --exit-code" + sources + spoof, 1, ""},
      {"check --exit-code" + sources + "http://quiet.test/", 0, ""},
      {"check" + sources, 2, "input is required"},
      {"check --nonsense" + sources + spoof, 2, "nonsense"},
      {"check --package no.zip x", 2, "no.zip: no such package"},
      {"check --package bad.json x", 2, "bad.json: not loaded"},
      {"check --sources nowhere x", 2, "nowhere: "},
      {"inspect page" + sources + "nothing.json", 2, "nothing.json: "},
      {"inspect nonsense", 2, ""},
      {"", 2, "subcommand is required"},
  };
  for (const Case& row : cases) {
    const Ran ran = Run(row.arguments);
    EXPECT_EQ(ran.status, row.status) << row.arguments << "\n" << ran.out << ran.err;
    EXPECT_NE(ran.err.find(row.error), std::string::npos) << row.arguments << "\n" << ran.err;
    if (row.status == 2) {
      EXPECT_EQ(std::count(ran.err.begin(), ran.err.end(), '\n'), 1) << row.arguments << "\n" << ran.err;
      EXPECT_EQ(ran.out, "") << row.arguments;
    }
  }
}

TEST_F(CommandLine, InspectsManyInputsInOneProcess) {
  const Ran urls = Run("inspect url --sources " + Sources() + " http://a.test/b -", "http://c.test/d\r\nno url\n\n");
  ASSERT_EQ(urls.Lines().size(), 4U) << urls.err;
  EXPECT_EQ(urls.Lines()[1]["record"]["UrlPath"], "/d");
  EXPECT_EQ(urls.Lines()[2]["result"], -1);
  EXPECT_EQ(urls.Lines()[2]["record"]["RawUrl"], "");

  const auto tokens = Run("inspect tokens --sources " + Sources() + " 'http://a.test:81/' 'x'").Lines();
  ASSERT_EQ(tokens.size(), 4U);
  EXPECT_EQ(Names(tokens[0]), (std::vector<std::string>{"form", "tokens", "chosen", "score", "class"}));
  EXPECT_EQ(tokens[1]["form"], "record");
  EXPECT_NE(std::find(tokens[1]["tokens"].begin(), tokens[1]["tokens"].end(), "BE*81"), tokens[1]["tokens"].end());
  EXPECT_EQ(tokens[2].dump(), R"({"form":"text","tokens":null})");
  EXPECT_EQ(Run("inspect strings").Lines().front().size(), 222U);
}

TEST_F(CommandLine, AsksAPageForItsAddressBeforeItsFiles) {
  fs::create_directories(folder_ / "page_files");
  WriteText(folder_ / "page_files" / "a.gif", std::string("GIF89a\x05\x01\x06\x01", 10));
  WriteText(folder_ / "page.html",
            "<base href=http://www.example.test/x/page.html><img src=page_files/a.gif><img src=page_files/b.gif>");
  const auto lines = Run("inspect page --sources " + Sources() + " page.html").Lines();
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0]["pageData"]["url"]["HostName"], "www.example.test");
  EXPECT_EQ(lines[0]["pageData"]["images"]["widths"].dump(), "[261,-1]");
}

TEST_F(CommandLine, GivesEachInspectedInputItsLine) {
  WriteText(folder_ / "page.html", "<p>x");
  const Ran ran = Run("inspect page --sources " + Sources() + " -", "none.json\n\npage.html\n");
  EXPECT_EQ(ran.status, 2);
  ASSERT_EQ(ran.Lines().size(), 3U) << ran.err;
  EXPECT_TRUE(ran.Lines()[0]["pageData"].is_null() && ran.Lines()[1]["pageData"].is_null());
  EXPECT_TRUE(ran.Lines()[2]["pageData"].is_object());
}

TEST_F(CommandLine, PrintsTreesForAReaderWithoutScripts) {
  WriteText(folder_ / "page.html", "<body><noscript><b>x</b></noscript>");
  const Ran ran = Run("inspect tree page.html");
  EXPECT_NE(ran.out.find("|     <noscript>\n|       <b>\n|         \"x\"\n"), std::string::npos) << ran.out;
}

TEST_F(CommandLine, RecordingsOfPagesGiveWhatThePagesGive) {
  const std::string login =
      "<!DOCTYPE html><title>Log in to PayPal</title><link rel='shortcut icon' href=/i.ico><form action=go.php>Mail "
      "<input name=m value=me@mail.example><p>Password<input type=password name=p value=secret1><input type=hidden "
      "name=r value='http://www.paypal.com/?s=secret2'><input type=submit value='Log in'></form><a "
      "href='https://www.paypal.com/help?id=secret3'>Help</a>&copy; 2026 PayPal";
  const std::string pages[] = {
      "",
      login,
      login +
          "<meta http-equiv=refresh content='3;url=x'><script src=a.js?v=secret4></script><script>if (a < b) "
          "document.write('<p>')</script><!-- saved from url --><img src=//img.example.test/l.gif width=9 height=8>",
      "<table><a href=x>1<tr><td background=b.png><b><i>cell</b> more<table></i>x<p>Copyright \xC2\xA9 Otter<p>",
      "<frameset><frame src=a><frame src=b></frameset>",
      "<plaintext><b>caf\xC3\xA9 & <\xFF\x01",
      "<svg><a href=x><title>t</title></a></svg><select><option value=1>one<option>two</select><textarea>\n "
      "t</textarea>"
      "<template><form></template><button>press</button><map><area href=mailto:me@mail.example></map>",
      std::string(300, '<') + "div><pre>  kept\r\n  so</pre><div style='display:none'>hidden</div><br>end",
  };
  const std::string url = " --url 'http://www.unknown-shop.example/account/?u=secret5' ";
  const std::string rules = " --package " + (fs::path(ZEPH_PROGRAM).parent_path() / "zeph.zip").string() + " ";
  for (const std::string& page : pages) {
    WriteText(folder_ / "page.html", page);
    ASSERT_EQ(Run("record page.html --output page.json" + url).status, 0) << page;
    const auto answer = [&](const std::string& input) {
      Json verdict = Run("check --exact --json --explain" + rules + input).Lines().at(0);
      verdict.erase("input");
      verdict.erase("urlSource");
      return Run("inspect page --installation server" + rules + input).out + verdict.dump();
    };
    EXPECT_EQ(answer("page.json"), answer("page.html" + url)) << page;

    ASSERT_EQ(Run("record page.html --scrub --output page.json" + url).status, 0) << page;
    EXPECT_EQ(ReadText(folder_ / "page.json").find("secret"), std::string::npos) << page;
    const auto scrubbed = Run("check --exact --json" + rules + "page.json").Lines();
    const auto whole = Run("check --exact --json" + rules + "page.html" + url).Lines();
    ASSERT_TRUE(scrubbed.size() == 1 && whole.size() == 1) << page;
    EXPECT_EQ(scrubbed[0]["classification"], whole[0]["classification"]) << page;
  }
}

TEST_F(CommandLine, MakesPackagesThatSayWhatTheirSourcesSay) {
  const Json wanted = Run("inspect package --sources " + Sources()).Lines().front();
  ASSERT_EQ(Names(wanted), (std::vector<std::string>{"Configuration", "Indicators"}));
  const auto content = [](Json package) {
    for (const char* text : {"ModulePath", "ModuleFolder", "ConfigBaseName", "OriginalConfigFile", "NewConfigFile",
                             "SpareConfigFile", "ActiveConfigFile"}) {
      package["Configuration"].erase(text);
    }
    return package;
  };
  for (const std::string format : {"memory", "pack"}) {
    const Ran built = Run("package build --sources " + Sources() + " --output made.zip --format " + format);
    ASSERT_EQ(built.status, 0) << built.err;
    const Ran inspected = Run("inspect package --package made.zip");
    ASSERT_EQ(inspected.status, 0) << inspected.err;
    EXPECT_EQ(content(inspected.Lines().front()).dump(), content(wanted).dump()) << format;
    EXPECT_EQ(Run("package unpack made.zip --output " + format).status, 0);
  }
  EXPECT_TRUE(fs::exists(folder_ / "memory" / "packed3.dat"));
  for (const char* name : {"TrustedDomains.xml", "SafeList", "Indicators.xml", "Resources.xml"}) {
    EXPECT_EQ(ReadText(folder_ / "pack" / name), ReadText(folder_ / "sources" / name)) << name;
  }
}

TEST_F(CommandLine, MakesNoPackThatWouldNotLoad) {
  const fs::path sources = Sources();
  std::string tags;
  for (int i = 0; i < 20000; ++i) tags += "<Entry>\nthe same site\n";
  WriteText(sources / "PopularSites.xml", tags);
  const Ran built = Run("package build --sources " + sources.string() + " --output made.zip --format pack --unchecked");
  EXPECT_EQ(built.status, 2);
  EXPECT_NE(built.err.find("more than 20 times"), std::string::npos) << built.err;
  EXPECT_FALSE(fs::exists(folder_ / "made.zip"));
}

TEST_F(CommandLine, PackageHoldsNothingOfItsBuilder) {
  ASSERT_EQ(Run("package build --sources " + Sources() + " --output one.zip").status, 0);
  fs::create_directories(folder_ / "elsewhere");
  setenv("ZEPH_MACHINE_DIR", (folder_ / "another").c_str(), 1);
  ASSERT_EQ(Run("package build --sources sources --output elsewhere/two.zip").status, 0);
  setenv("ZEPH_MACHINE_DIR", (folder_ / "machine").c_str(), 1);
  for (const char* name : {"one.zip", "elsewhere/two.zip"}) {
    EXPECT_EQ(ReadText(folder_ / name), ReadText(folder_ / "one.zip")) << name;
    // Wherever it lies, a newer one is looked for where this program looks for its own.
    const Json configuration =
        Run(std::string("inspect package --package ") + name).Lines().front()["Configuration"];
    EXPECT_EQ(configuration["NewConfigFile"], (folder_ / "machine/Corvanta/zeph.zip").string()) << name;
    EXPECT_EQ(configuration["ModulePath"], ZEPH_PROGRAM) << name;
  }
}

TEST_F(CommandLine, KeepsSettings) {
  EXPECT_EQ(Run("settings get --machine OutputToFile").status, 2);
  EXPECT_EQ(Run("settings set --machine OutputToFile 1").status, 0);
  EXPECT_EQ(Run("settings set --machine Directory " + folder_.string()).status, 0);
  EXPECT_EQ(Run("settings get --machine OutputToFile").out, "1\n");
  EXPECT_NE(Run("settings list --machine").out.find("OutputToFile         1"), std::string::npos);
  EXPECT_EQ(Run("settings set --machine OutputToFile many").status, 2);
  EXPECT_EQ(Run("check --sources " + Sources() + " http://examplebank.evil.test/").status, 0);
  EXPECT_NE(ReadText(folder_ / "zeph0.log").find("http://examplebank.evil.test/"), std::string::npos)
      << "the log follows the settings";
  EXPECT_EQ(Run("settings delete --machine OutputToFile").status, 0);
  EXPECT_EQ(Run("settings delete --machine OutputToFile").status, 2);
  EXPECT_EQ(Run("settings set Anything 'a text'").status, 0);
  EXPECT_EQ(Run("settings get Anything").out, "a text\n");
}

TEST_F(CommandLine, NeverSendsUnlessAskedTo) {
  // A script attack is reported by every classification; by default that ends in a line that says so.
  const fs::path sources = Sources();
  WriteText(sources / "Indicators.xml",
            "<Indicator>\n<OnWeight>1.2</OnWeight>\n<Category>0</Category>\n<Expression>\n<FieldID>4</FieldID>\n"
            "<MethodID>49</MethodID>\n</Expression>\n</Indicator>\n");
  const Ran ran = Run("check --sources " + sources.string() + " 'http://a.test/?%3Cscript%3E'");
  EXPECT_NE(ran.out.find("SCRIPT ATTACK"), std::string::npos) << ran.out;
  EXPECT_NE(ran.out.find("not sent: report of http://a.test/?%3Cscript%3E to server.example"), std::string::npos)
      << ran.out;
}

}  // namespace
