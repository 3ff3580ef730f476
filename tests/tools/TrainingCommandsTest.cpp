// SPDX-License-Identifier: Apache-2.0
// zeph train and zeph eval on lists that plainly teach something: the real program, its files, its exit statuses.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/wait.h>
#include "TestPaths.h"

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

class TrainingCommands : public testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(folder_ / "rules");
    Write("p", List("verify-", ".top/account/login", 300));
    Write("l", List("garden", ".org/roses", 600));
    Write("rules/TrustedDomains.xml", "<Trusted.Domain>\n<Domain>bank.example</Domain>\n<CN>Bank</CN>\n</Trusted.Domain>\n");
    Write("rules/Indicators.xml",
          "<!-- high -->\n<Indicator>\n<Category>7</Category>\n<OnWeight>0.5</OnWeight>\n<Expression>\n<FieldID>0</FieldID>\n"
          "<MethodID>46</MethodID>\n<ValueType>0</ValueType>\n</Expression>\n</Indicator>\n");
  }
  void TearDown() override { fs::remove_all(folder_); }

  void Write(const std::string& name, const std::string& text) const {
    std::ofstream(folder_ / name, std::ios::binary) << text;
  }
  [[nodiscard]] std::string ReadText(const std::string& name) const {
    std::ifstream file(folder_ / name, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
  }
  [[nodiscard]] static std::string List(const std::string& word, const std::string& end, int count) {
    std::mt19937 random(static_cast<unsigned>(count));  // NOLINT(cert-msc51-cpp): the same lists each time
    std::string list;
    for (int i = 0; i < count; ++i) {
      list += "https://" + word;
      for (int letter = 0; letter < 7; ++letter) list += static_cast<char>('a' + random() % 26);
      list += end + "\n";
    }
    return list;
  }
  /// The exit status; what it prints goes into "out" and "err".
  [[nodiscard]] int Run(const std::string& arguments) const {
    const int status = std::system(("cd " + folder_.string() + " && ZEPH_MACHINE_DIR=" + folder_.string() +
                                    " ZEPH_USER_DIR=" + folder_.string() + " " ZEPH_PROGRAM " " + arguments + " >out 2>err")
                                       .c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  fs::path folder_ = fs::path(testing::TempDir()) / ("zeph-training-" + std::to_string(std::random_device()()));
};

TEST_F(TrainingCommands, MakeAPackageThatHoldsWhatItWasTaught) {
  ASSERT_EQ(Run("train --sources rules --phishing p --legitimate l --output rules --validate group:0.2"), 0) << ReadText("err");
  const std::string table = ReadText("rules/URLAnalysis.xml");
  EXPECT_NE(table.find("<w>verify</w>"), std::string::npos);
  ASSERT_EQ(Run("train --sources rules --phishing p --legitimate l --output again --validate group:0.2"), 0);
  EXPECT_EQ(ReadText("again/URLAnalysis.xml"), table);

  ASSERT_EQ(Run("train --weights --sources rules --phishing p --legitimate l --output rules --validate group:0.2"), 0) << ReadText("err");
  EXPECT_TRUE(ReadText("rules/Indicators.xml").starts_with("<!-- high -->\n<Indicator>\n<Category>7</Category>\n<OnWeight>0.9"))
      << ReadText("rules/Indicators.xml");

  Write("p2", List("verify-", ".top/account/login", 80));
  Write("l2", List("garden", ".org/roses", 90) + "no address at all://\n");
  ASSERT_EQ(Run("eval --sources rules --phishing p2 --legitimate l2 --json --html report.html"), 0) << ReadText("err");
  const Json evaluation = Json::parse(ReadText("out")).at("evaluation");
  EXPECT_EQ(evaluation.at("phishing"), 80);
  EXPECT_EQ(evaluation.at("legitimate"), 90);
  EXPECT_GE(evaluation.at("held").at("phishing").at("hits"), 75);
  EXPECT_LE(evaluation.at("held").at("legitimate").at("hits"), 1);
  EXPECT_GT(evaluation.at("area"), 0.98);
  EXPECT_NE(ReadText("report.html").find("</html>"), std::string::npos);
}

TEST_F(TrainingCommands, SayWhatCannotBeUsed) {
  const struct {
    const char* arguments;
    const char* says;
  } rows[] = {
      {"train --sources rules --phishing none --legitimate l --output o", "none: "},
      {"train --sources rules --phishing p --legitimate l --output o --validate half", "split 'half'"},
      {"train --sources rules --phishing p --legitimate p --output o", "nothing to learn from"},
      {"train --sources rules --phishing p --legitimate l --output o --validate none --weights", "held out"},
      {"eval --sources rules --phishing p --legitimate l --only source:other", "nothing to judge"},
      {"eval --sources rules --phishing p --legitimate l --html no/such/folder.html", "can't be written"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Run(row.arguments), 2) << row.arguments;
    EXPECT_NE(ReadText("err").find(row.says), std::string::npos) << row.arguments << ": " << ReadText("err");
  }
}

}  // namespace
