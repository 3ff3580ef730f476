// SPDX-License-Identifier: Apache-2.0
// What "zeph check" lets leave the machine: watched by a filter of system calls that ends the program at its first
// attempt to open a socket.
#include <algorithm>
#include <array>
#include <csignal>
#include <cstddef>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "TestPaths.h"
#include "tests/platform/TestFolders.h"
#include "tests/server/ServerProcess.h"
#include "tools/classification-server/ReportStore.h"

namespace zeph {
namespace {

#if defined(__x86_64__)
constexpr std::uint32_t kArchitecture = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
constexpr std::uint32_t kArchitecture = AUDIT_ARCH_AARCH64;
#endif

/// From here on, the first call that opens or connects a socket ends this process with SIGSYS. Calls of another
/// architecture do too, whatever they are, and so does the asynchronous interface that reaches all calls.
bool EndAtSockets() {
  constexpr auto kJump = static_cast<std::uint16_t>(BPF_JMP | BPF_JEQ | BPF_K);
  constexpr auto kLoad = static_cast<std::uint16_t>(BPF_LD | BPF_W | BPF_ABS);
  constexpr auto kReturn = static_cast<std::uint16_t>(BPF_RET | BPF_K);
  std::array<sock_filter, 9> filter = {{
      {kLoad, 0, 0, offsetof(seccomp_data, arch)},
      {kJump, 0, 6, kArchitecture},
      {kLoad, 0, 0, offsetof(seccomp_data, nr)},
      {kJump, 4, 0, SYS_socket},
      {kJump, 3, 0, SYS_connect},
      {kJump, 2, 0, SYS_sendto},
      {kJump, 1, 0, SYS_io_uring_setup},
      {kReturn, 0, 0, SECCOMP_RET_ALLOW},
      {kReturn, 0, 0, SECCOMP_RET_KILL_PROCESS},
  }};
  const sock_fprog program{.len = static_cast<unsigned short>(filter.size()), .filter = filter.data()};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

class Privacy : public FoldersTest {
 protected:
  /// A page that the engine alone holds for spoofing, and a configuration that names a server.
  void SetUp() override {
    std::filesystem::create_directory(Path("sources"));
    Fill(Path("sources/TrustedDomains.xml"),
         "<Trusted.Domain>\n<Domain>bank.example</Domain>\n<CN>Example Bank</CN>\n<UT>examplebank</UT>\n"
         "<DT>bank.example</DT>\n</Trusted.Domain>\n");
    Fill(Path("sources/SafeList"), "");
    Fill(Path("sources/Resources.xml"), "<Server>check.example</Server>\n");
    Fill(Path("sources/Indicators.xml"),
         "<Indicator>\n<OnWeight>0.95</OnWeight>\n<TDPriority>1</TDPriority>\n<Category>1</Category>\n<Expression>\n"
         "<FieldID>4</FieldID>\n<MethodID>3</MethodID>\n<ValueType>0</ValueType>\n<Value>8</Value>\n"
         "</Expression>\n</Indicator>\n"
         "<Indicator>\n<OnWeight>1.2</OnWeight>\n<Category>0</Category>\n<Expression>\n"
         "<FieldID>20</FieldID>\n<MethodID>2</MethodID>\n<ValueType>0</ValueType>\n<Value>/attack</Value>\n"
         "</Expression>\n</Indicator>\n");
    Fill(Path("page.html"), "<!DOCTYPE html><title>Sign in</title><form action=/go><input type=password></form>");
  }
  void TearDown() override {
    for (const char* name : {"SSL_CERT_FILE", "ZEPH_CONNECT_TO"}) unsetenv(name);
  }

  /// Runs zeph; its output goes to out. Gives the status as of waitpid.
  [[nodiscard]] int Run(std::vector<std::string> words, bool endAtSockets) const {
    words.insert(words.begin(), ZEPH_PROGRAM);
    words.insert(words.end(), {"--sources", Path("sources")});
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    const pid_t process = fork();
    if (process == 0) {
      const int out = open(Path("out").c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600);
      if (dup2(out, STDOUT_FILENO) < 0 || (endAtSockets && !EndAtSockets())) _exit(126);
      execv(arguments[0], arguments.data());
      _exit(127);
    }
    int status = 0;
    waitpid(process, &status, 0);
    return status;
  }

  /// Checks the page as that of a URL.
  [[nodiscard]] int Check(const std::string& url, std::vector<std::string> options, bool endAtSockets) const {
    options.insert(options.begin(), {"check", Path("page.html"), "--url", url});
    return Run(std::move(options), endAtSockets);
  }

  [[nodiscard]] std::string Out() const { return Content(Path("out")); }
};

TEST_F(Privacy, NoSocketIsOpenedUnlessTheUserSaysSo) {
  const std::string url = "http://examplebank.evil.test/?name=value";
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{}, {"--privacy", "none"}, {"--server", "other.example"}}) {
    const int status = Check(url, arguments, true);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status << Out();
    const std::string host = arguments.empty() || arguments[0] == "--privacy" ? "check.example" : "other.example";
    EXPECT_NE(Out().find("SPOOFING"), std::string::npos) << Out();
    EXPECT_NE(Out().find("not sent: check of " + url + " to " + host), std::string::npos) << Out();
  }
  const std::string attack = "http://examplebank.evil.test/attack?name=value";
  const int quiet = Run({"check", "--json", attack}, true);
  EXPECT_TRUE(WIFEXITED(quiet) && WEXITSTATUS(quiet) == 0) << quiet << Out();
  EXPECT_NE(Out().find("\"classification\": 6"), std::string::npos) << Out();
  for (const char* level : {"full", "partial"}) {
    const int status = Check(url, {"--privacy", level, "--server", "check.example"}, true);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGSYS) << level << " opened none: " << status << Out();
  }
}

TEST_F(Privacy, TheServersAnswerIsShownWithWhatBecameOfIt) {
  const std::string site = "http://examplebank.evil.test";
  struct Case {
    std::string path;
    const char* privacy;
    const char* verdict;
    const char* answer;
    bool reported;
  };
  Fill(Path("verdicts"), "confirmed url " + site + "/confirmed?a=b\nspoofing url " + site + "/spoofing?a=b\n" +
                             "trustworthy url " + site + "/trustworthy?a=b\nconfirmed url " + site + "/partial\n");
  const Case cases[] = {
      {"/unknown", "full", "SPOOFING", "the server answered 2, spoofing", false},
      {"/confirmed?a=b", "full", "confirmed by the server", "the server answered 5, confirmed", true},
      {"/spoofing?a=b", "full", "SPOOFING", "the server answered 2, spoofing", false},
      {"/trustworthy?a=b", "full", "trustworthy", "the server answered 1, trustworthy", false},
      {"/trustworthy?a=b", "partial", "SPOOFING", "the server answered 2, spoofing", false},
      {"/partial?a=b", "partial", "confirmed by the server", "the server answered 5, confirmed", false},
  };
  test::ServerProcess server(Path(""));
  setenv("SSL_CERT_FILE", Path("zeph-test-authority.pem").c_str(), 1);
  setenv("ZEPH_CONNECT_TO", ("check.example:443:127.0.0.1:" + std::to_string(server.Port())).c_str(), 1);
  for (const Case& row : cases) {
    const std::string what = row.path + " " + row.privacy;
    EXPECT_EQ(Check(site + row.path, {"--privacy", row.privacy, "--server", "check.example"}, false), 0) << what;
    EXPECT_NE(Out().find(row.verdict), std::string::npos) << what << "\n" << Out();
    EXPECT_NE(Out().find(row.answer), std::string::npos) << what << "\n" << Out();
    EXPECT_EQ(Out().find("\n    sent: report of ") != std::string::npos, row.reported) << what << "\n" << Out();
  }

  EXPECT_EQ(Run({"report", site, "--code", "6", "--context", "a b", "--server", "check.example"}, false), 0);
  for (const std::string level : {"full", "partial"}) {
    EXPECT_EQ(
        Run({"check", "--json", site + "/attack?" + level, "--privacy", level, "--server", "check.example"}, false), 0);
  }
  server.Signal(SIGTERM);
  EXPECT_TRUE(server.EndsWell());
  const auto reports = server::ReportStore(Path("reports")).Latest(10);
  ASSERT_EQ(reports.size(), 4U);
  for (const std::string& url : {site + "/attack?full", site + "/attack"}) {
    EXPECT_TRUE(std::ranges::any_of(reports, [&](const auto& report) { return report.url == url && report.code == 6; }))
        << url;
  }
  EXPECT_TRUE(std::ranges::any_of(reports, [&](const server::ReportSummary& report) {
    return report.url == site && report.code == 6 && report.context == "a b";
  }));
  const int status = Run({"report", site, "--code", "6", "--server", "check.example"}, false);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 2) << "without a server: " << status << Out();
}

TEST_F(Privacy, SitesAreRememberedFromAnEmptyMachine) {
  // Rule 2 knows a page of mail, and notes its site; rule 3 asks whether the page was reached from there.
  const auto rule = [](int category, int method) {
    return "<Indicator>\n<OnWeight>0.5</OnWeight>\n<Category>" + std::to_string(category) +
           "</Category>\n<Expression>\n<FieldID>0</FieldID>\n<MethodID>" + std::to_string(method) +
           "</MethodID>\n<ValueType>0</ValueType>\n<Value></Value>\n</Expression>\n</Indicator>\n";
  };
  Fill(Path("sources/Indicators.xml"), Content(Path("sources/Indicators.xml")) + rule(3, 15) + rule(3, 45));
  const auto page = [this](const std::string& name, const std::string& url, const std::string& referrer,
                           const std::string& text) {
    Fill(Path(name), "{\"recording\":1,\"document\":{\"get_URL\":\"" + url + "\",\"get_referrer\":\"" + referrer +
                         "\",\"get_body\":0,\"get_all\":[0]},\"elements\":[{\"IHTMLElement\":{\"get_tagName\":"
                         "\"BODY\",\"get_innerText\":\"" +
                         text + "\",\"get_innerHTML\":\"\"}}]}");
  };
  page("mail.json", "http://www.mail.test/inbox", "http://x.test/", "From: a\\r\\nTo: b");
  page("linked.json", "http://other.test/", "http://www.mail.test/inbox", "Hello");
  const auto isLinked = [this] {
    EXPECT_EQ(Run({"check", "--json", "--explain", Path("linked.json")}, true), 0);
    return Out().find("{\"index\": 3, \"evaluated\": true, \"on\": true") != std::string::npos;
  };
  EXPECT_FALSE(isLinked());
  EXPECT_EQ(Run({"check", Path("mail.json")}, true), 0);
  EXPECT_TRUE(isLinked());
}

}  // namespace
}  // namespace zeph
