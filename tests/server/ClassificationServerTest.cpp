// SPDX-License-Identifier: Apache-2.0
// The classification server as its operators run it and as the world treats it.
#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <future>
#include <memory>
#include <set>
#include <thread>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "DetectionEngine/base/StringTable.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/platform/Files.h"
#include "DetectionEngine/server/ServerRequests.h"
#include "tests/platform/TestFolders.h"
#include "tests/server/ServerProcess.h"
#include "tools/classification-server/ReportStore.h"
#include "tools/classification-server/Requests.h"
#include "tools/classification-server/VerdictList.h"

namespace zeph {
namespace {

using server::kUnknown;
using server::ReportStore;
using server::ReportSummary;
using server::VerdictList;
using test::Answer;
using test::Client;
using test::ServerProcess;
using Kind = Client::Kind;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kShare = 10;  ///< a sanitizer sees in a tenth what it sees in all
#else
constexpr int kShare = 1;
#endif

std::string ExchangePath() { return Narrow(StringEntry(0xBA)); }

std::string Post(const std::string& body, const std::string& moreHeaders = "") {
  return "POST " + ExchangePath() +
         " HTTP/1.1\r\nHost: check.example\r\nContent-Length: " + std::to_string(body.size()) + "\r\n" + moreHeaders +
         "\r\n" + body;
}

std::string CheckBody(const std::string& url) {
  return "cmd=" + Narrow(StringEntry(0xBC)) + "&ver=2.0&PRIV=0&el=" + SealUrl(Widen(url));
}

std::string ReportBody(const std::string& url) {
  return "cmd=" + Narrow(StringEntry(0xBD)) + "&ver=2.0&el=" + SealUrl(Widen(url)) + "&er=3";
}

std::string Check(const std::string& url) { return Post(CheckBody(url)); }
std::string Report(const std::string& url) { return Post(ReportBody(url)); }

TEST(VerdictListTest, PrefersTheMoreExactLine) {
  std::vector<VerdictList::Fault> faults;
  const VerdictList list = VerdictList::Parse(
      "\xEF\xBB\xBFspoofing url http://Site.example/A?b=1#c\r\n"
      "  # a comment\n\n"
      "confirmed\thost  WWW.site.example # why\n"
      "1 suffix example\n"
      "report suffix site.example\n"
      "5 host twice.example\n"
      "2 host twice.example",
      faults);
  EXPECT_TRUE(faults.empty());
  struct Case {
    const char* url;
    std::int32_t verdict;
  };
  const Case cases[] = {
      {"http://Site.example/A?b=1#c", 2},
      {"http://site.example/A?b=1#c", 4},
      {"http://www.Site.EXAMPLE/", 5},
      {"https://www.site.example:8443/x", 5},
      {"http://deep.www.site.example/", 4},
      {"http://site.example/", 4},
      {"http://mysite.example/", 1},
      {"http://example/", 1},
      {"http://notexample/", kUnknown},
      {"http://twice.example/", 2},
      {"http://1.2.3.4/", kUnknown},
      {"", kUnknown},
      {"no address", kUnknown},
      {"http://", kUnknown},
      {"http://www.site.example@other.test/", kUnknown},
  };
  for (const Case& row : cases) EXPECT_EQ(list.Find(row.url), row.verdict) << row.url;
}

TEST(VerdictListTest, NamesTheLinesThatCantBeRead) {
  struct Case {
    const char* line;
    const char* what;
  };
  const Case cases[] = {
      {"maybe host a.example", "\"maybe\" is no verdict"},
      {"0 host a.example", "\"0\" is no verdict"},
      {"6 host a.example", "\"6\" is no verdict"},
      {"spoofing site a.example", "\"site\" is neither url, host nor suffix"},
      {"spoofing", "\"\" is neither url, host nor suffix"},
      {"spoofing host", "nothing to match"},
      {"spoofing host a.example b.example", "\"b.example\" is more than a line holds"},
      {"spoofing host http://a.example/", "\"http://a.example/\" is no host"},
      {"spoofing host a.example:80", "\"a.example:80\" is no host"},
      {"spoofing suffix .example", "\".example\" is no host"},
  };
  for (const Case& row : cases) {
    std::vector<VerdictList::Fault> faults;
    const VerdictList list =
        VerdictList::Parse("# one\n" + std::string(row.line) + "\r\nspoofing host c.example\n", faults);
    ASSERT_EQ(faults.size(), 1U) << row.line;
    EXPECT_EQ(faults[0].line, 2U) << row.line;
    EXPECT_EQ(faults[0].what, row.what) << row.line;
    EXPECT_EQ(list.size(), 1U) << row.line;
  }
}

class ClassificationServer : public FoldersTest {
 protected:
  void SetUp() override {
    std::signal(SIGPIPE, SIG_IGN);
    SetVerdicts("spoofing host bad.example\nconfirmed url http://bad.example/login?a=b\n");
  }
  void TearDown() override {
    for (const char* name : {"SSL_CERT_FILE", "SSL_CERT_DIR", "ZEPH_CONNECT_TO"}) unsetenv(name);
  }

  void SetVerdicts(const std::string& list) const { ASSERT_TRUE(WriteWholeFile(Path("verdicts"), list)); }

  void Start(std::vector<std::string> arguments = {}) {
    server_ = std::make_unique<ServerProcess>(Path(""), std::move(arguments));
  }

  /// Leads this process's engine to the server.
  void LeadEngine() const {
    setenv("SSL_CERT_FILE", Path("zeph-test-authority.pem").c_str(), 1);
    setenv("SSL_CERT_DIR", Path("").c_str(), 1);
    setenv("ZEPH_CONNECT_TO", ("check.example:443:127.0.0.1:" + std::to_string(server_->Port())).c_str(), 1);
  }

  [[nodiscard]] Client Connect(Kind kind = Kind::kTls) const { return Client(server_->Port(), kind); }
  [[nodiscard]] Client LookAtStatus() const { return Client(server_->StatusPort(), Kind::kPlain); }

  /// Whether a new client is served.
  [[nodiscard]] bool Serves() const {
    const auto answer = Connect().Exchange(Check("http://bad.example/"));
    return answer && answer->status == 200 && answer->body == server::AnswerBytes(2);
  }

  void ExpectCleanStop() {
    server_->Signal(SIGTERM);
    EXPECT_TRUE(server_->EndsWell());
  }

  [[nodiscard]] std::vector<ReportSummary> Reports() const { return ReportStore(Path("reports")).Latest(1'000'000); }
  [[nodiscard]] std::set<std::string> ReportedUrls() const {
    std::set<std::string> urls;
    for (const ReportSummary& report : Reports()) urls.insert(report.url);
    return urls;
  }

  std::unique_ptr<ServerProcess> server_;
};

TEST_F(ClassificationServer, AnswersTheEngine) {
  Start();
  LeadEngine();
  struct Case {
    const char16_t* url;
    std::int32_t answer;
  };
  const Case cases[] = {
      {u"http://bad.example/login?a=b", 5},
      {u"http://bad.example/login", 2},
      {u"http://b\u00E4d.example/\U0001F600", 2},
      {u"", 2},
  };
  for (const Case& row : cases) {
    EXPECT_EQ(CheckUrl(row.url, u"check.example", 1), row.answer) << Narrow(row.url);
  }

  EXPECT_EQ(ReportUrl(u"http://b\u00E4d.example/", u"check.example", 3, std::nullopt), 0);
  EXPECT_EQ(ReportUrl(u"http://b\u00E4d.example/", u"check.example", 3, std::nullopt), 0);
  EXPECT_EQ(ReportUrl(u"http://bad.example/", u"check.example", -4, u"a&ctx=b\u00E4 \n"), 0);
  EXPECT_EQ(ReportUrl(u"http://bad.example/", u"check.example", 4, std::u16string(300, u'\u00E4')), 0);
  ExpectCleanStop();
  auto reports = Reports();
  std::ranges::sort(reports, {}, [](const ReportSummary& report) { return std::tie(report.url, report.code); });
  ASSERT_EQ(reports.size(), 3U);
  EXPECT_EQ(reports[0].context, "a&ctx=b\u00E4 \n");
  EXPECT_EQ(reports[0].code, -4);
  // The engine cuts a context at 255 bytes, here within a letter.
  EXPECT_EQ(reports[1].context, Narrow(std::u16string(127, u'\u00E4') + u'\uFFFD'));
  EXPECT_EQ(reports[2].url, "http://b\u00E4d.example/");
  EXPECT_EQ(reports[2].count, 2);
}

TEST_F(ClassificationServer, ReadsItsListAgainWhenThatChanges) {
  Start();
  std::atomic<bool> over{false};
  std::vector<std::jthread> others;
  for (int i = 0; i < 3; ++i) {
    others.emplace_back([&] {
      Client client = Connect();
      while (!over && client.Exchange(Check("http://bad.example/"))) {
      }
    });
  }
  Client client = Connect();
  const auto waitFor = [&](std::int32_t verdict) {
    for (;;) {
      const auto answer = client.Exchange(Check("http://bad.example/"));
      if (!answer || answer->body == server::AnswerBytes(verdict)) return answer.has_value();
    }
  };
  EXPECT_TRUE(waitFor(2));
  SetVerdicts("nonsense\ntrustworthy suffix example\n");
  EXPECT_TRUE(waitFor(1));
  std::filesystem::remove(Path("verdicts"));
  EXPECT_TRUE(waitFor(1)) << "without a file the last list stays";
  SetVerdicts("4 host bad.example");
  EXPECT_TRUE(waitFor(4));
  over = true;
  others.clear();
  ExpectCleanStop();
}

TEST_F(ClassificationServer, KeepsAGoodListFromABadOne) {
  const std::string good = "spoofing host bad.example\n";
  for (const std::string& bad :
       {std::string(), std::string("# all gone\n"), good + std::string("\0", 1), good + "x\ny\n"}) {
    SetVerdicts(good);
    server::VerdictFile file(Path("verdicts"));
    SetVerdicts(bad);
    file.Reread();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(file.Current()->size(), 1U) << bad;
    // A list that was read behind it has been read behind it.
    SetVerdicts(good + "trustworthy host good.example\n");
    file.Reread();
    while (file.Current()->size() == 1) std::this_thread::yield();
    EXPECT_EQ(file.Current()->size(), 2U);
  }
}

TEST_F(ClassificationServer, HearsTheHangUpSignal) {
  Start();
  ASSERT_TRUE(Serves());
  server_->Signal(SIGHUP);
  ASSERT_TRUE(Serves());
  ExpectCleanStop();
}

TEST_F(ClassificationServer, LeavesTheAuthorityOfAServerThatHasThePort) {
  Start();
  const std::string authority = Content(Path("zeph-test-authority.pem"));
  EXPECT_THROW(ServerProcess(Path(""), {"--listen", "127.0.0.1:" + std::to_string(server_->Port())}),
               std::runtime_error);
  EXPECT_EQ(Content(Path("zeph-test-authority.pem")), authority);
  ExpectCleanStop();
}

TEST_F(ClassificationServer, WritesReportsWhereTheyAreLookedFor) {
  for (const bool isReplaced : {false, true}) {
    ReportStore store(Path("reports"));
    const auto keeps = [&](const std::string& url) {
      std::promise<bool> kept;
      store.Add(url, 3, "", [&](bool outcome) { kept.set_value(outcome); });
      return kept.get_future().get();
    };
    EXPECT_TRUE(keeps("http://a.test/"));
    std::filesystem::remove(Path("reports"));
    if (isReplaced) Fill(Path("reports"), "");
    EXPECT_TRUE(keeps("http://b.test/"));
    EXPECT_EQ(ReportedUrls(), std::set<std::string>{"http://b.test/"});
    std::filesystem::remove(Path("reports"));
    std::filesystem::create_directory(Path("reports"));
    EXPECT_FALSE(keeps("http://c.test/"));
    std::filesystem::remove(Path("reports"));
    EXPECT_TRUE(keeps("http://d.test/"));
    store.Finish();
    std::filesystem::remove(Path("reports"));
  }
}

TEST_F(ClassificationServer, HoldsToTheLimitOfItsDatabase) {
  ReportStore store(Path("reports"), 1);
  const std::string context(100'000, 'x');
  int kept = 0;
  for (bool full = false; !full && kept < 100; kept += full ? 0 : 1) {
    std::promise<bool> outcome;
    store.Add(std::to_string(kept), 3, context, [&](bool done) { outcome.set_value(done); });
    full = !outcome.get_future().get();
  }
  EXPECT_GT(kept, 3);
  EXPECT_LT(kept, 11);
  EXPECT_EQ(store.Latest(100).size(), static_cast<std::size_t>(kept));
}

TEST_F(ClassificationServer, RefusesWhatIsNoRequest) {
  Start();
  const std::string check = CheckBody("http://bad.example/");
  const auto replaced = [](std::string text, const std::string& from, const std::string& to) {
    return text.replace(text.find(from), from.size(), to);
  };
  const std::string host = "Host: check.example\r\n";
  struct Case {
    const char* what;
    std::string sent;
    int status;
  };
  const Case cases[] = {
      {"a check", Post(check), 200},
      {"in chunks",
       "POST " + ExchangePath() + " HTTP/1.1\r\n" + host + "Transfer-Encoding: chunked\r\n\r\n3\r\n" +
           check.substr(0, 3) + "\r\n" +
           [&] {
             std::array<char, 16> size{};
             std::snprintf(size.data(), size.size(), "%zx", check.size() - 3);
             return std::string(size.data());
           }() +
           "\r\n" + check.substr(3) + "\r\n0\r\n\r\n",
       200},
      {"by an old client", replaced(Post(check), "HTTP/1.1", "HTTP/1.0"), 200},
      {"by an old client without a host", replaced(replaced(Post(check), "HTTP/1.1", "HTTP/1.0"), host, ""), 200},
      {"without a host", replaced(Post(check), host, ""), 400},
      {"of two hosts", replaced(Post(check), host, host + host), 400},
      {"with a folded line", Post(check, "X: a\r\n b\r\n"), 400},
      {"with a folded line behind a tab", Post(check, "X: a\r\n\tb: c\r\n"), 400},
      {"not posted", "GET " + ExchangePath() + " HTTP/1.1\r\n" + host + "\r\n", 405},
      {"of another path", replaced(Post(check), ExchangePath(), "/"), 400},
      {"of no command", Post(replaced(check, "cmd=", "cmd=x")), 400},
      {"of another version", Post(replaced(check, "2.0", "3.0")), 400},
      {"without privacy", Post(replaced(check, "PRIV=0", "PRIV=")), 400},
      {"with half a number", Post(replaced(check, "PRIV=0", "PRIV=0x")), 400},
      {"with a broken escape", Post(check + "%4"), 400},
      {"with a wrong escape", Post(check + "%zz"), 400},
      {"with an endless address", Post(check + std::string(9000, 'a')), 400},
      {"empty", Post(""), 400},
      {"not HTTP", "\x16\x03\x01\x02\x00\x01\xFC\r\n\r\n", 400},
      {"not a number of bytes", replaced(Post(check), "Content-Length: ", "Content-Length: -"), 400},
      {"a gigabyte announced",
       "POST " + ExchangePath() + " HTTP/1.1\r\n" + host + "Content-Length: 1073741824\r\n\r\n" + check, 413},
      {"more than can be counted",
       "POST " + ExchangePath() + " HTTP/1.1\r\n" + host + "Content-Length: 99999999999999999999999\r\n\r\n", 400},
      {"a chunk of a gigabyte",
       "POST " + ExchangePath() + " HTTP/1.1\r\n" + host + "Transfer-Encoding: chunked\r\n\r\n40000000\r\n", 413},
      {"a body that is too long", Post(std::string(server::kBodyLimit + 1, 'a')), 413},
      {"a header that is too long", Post(check, "X: " + std::string(9000, 'a') + "\r\n"), 413},
      {"a header without end", "POST / HTTP/1.1\r\nX: " + std::string(9000, 'a'), 413},
  };
  for (const Case& row : cases) {
    Client client = Connect();
    const auto answer = client.Exchange(row.sent);
    ASSERT_TRUE(answer) << row.what;
    EXPECT_EQ(answer->status, row.status) << row.what;
    EXPECT_EQ(answer->body, row.status == 200 ? server::AnswerBytes(2) : "") << row.what;
    if (row.status != 200) {
      EXPECT_FALSE(client.Receive()) << row.what << ": the connection goes on";
    }
  }
  EXPECT_FALSE(Connect(Kind::kPlain).Exchange(Post(check))) << "without TLS";

  // Two at once are answered in turn.
  Client client = Connect();
  EXPECT_TRUE(client.Send(Check("http://bad.example/") + Check("http://bad.example/login?a=b")));
  for (const std::int32_t verdict : {2, 5}) {
    const auto answer = client.Receive();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->body, server::AnswerBytes(verdict));
  }
  ExpectCleanStop();
}

TEST_F(ClassificationServer, CutsSlowClientsOffWhileOthersAreServed) {
  Start({"--timeout", "1"});
  std::atomic<int> slow{0};
  const auto slowly = [&slow](auto work) {
    ++slow;
    return std::jthread([&slow, work] {
      work();
      --slow;
    });
  };
  std::vector<std::jthread> threads;
  threads.push_back(slowly([this] { EXPECT_TRUE(Connect(Kind::kPlain).IsCutOff()) << "no handshake"; }));
  threads.push_back(slowly([this] { EXPECT_TRUE(Connect().IsCutOff()) << "no request"; }));
  threads.push_back(slowly([this] {
    Client client = Connect();
    client.Send("POST / HTTP/1.1\r\nX: ");
    while (client.Send("x")) std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }));
  threads.push_back(slowly([this] {
    Client client = Connect();
    client.Send("POST " + ExchangePath() + " HTTP/1.1\r\nContent-Length: 1000\r\n\r\ncmd");
    EXPECT_TRUE(client.IsCutOff()) << "half a body";
  }));
  threads.push_back(slowly([this] {
    Client client = Connect();
    EXPECT_TRUE(client.Exchange(Post(CheckBody("http://bad.example/"), "Connection: close\r\n")));
    EXPECT_TRUE(client.IsCutOff()) << "answered, and stays";
  }));
  int served = 0;
  while (slow > 0) {
    ASSERT_TRUE(Serves());
    ++served;
  }
  EXPECT_GT(served, 0);
  threads.clear();
  ExpectCleanStop();
}

TEST_F(ClassificationServer, ServesTenThousandConnectionsInTurn) {
  Start();
  ASSERT_TRUE(Serves());
  const std::size_t before = server_->OpenDescriptors();
  constexpr int kConnections = 10'000 / kShare;
  for (int i = 0; i < kConnections; ++i) {
    if (i % 20 == 0) {
      ASSERT_TRUE(Serves()) << i;
      continue;
    }
    Client client = Connect(Kind::kPlain);
    if (i % 20 == 1) client.Send("\x16\x03\x01");
    client.Reset();
  }
  while (server_->OpenDescriptors() > before) ASSERT_TRUE(Serves());
  ExpectCleanStop();
}

TEST_F(ClassificationServer, HoldsToItsLimitOfConnections) {
  Start({"--connections", "3", "--connections-per-address", "3", "--status", "127.0.0.1:0"});
  {
    std::array<Client, 3> seated = {Connect(), Connect(), Connect()};
    for (Client& client : seated) EXPECT_TRUE(client.Exchange(Check("http://bad.example/")));
    EXPECT_TRUE(Connect(Kind::kPlain).IsCutOff());
    EXPECT_FALSE(Serves());
    for (Client& client : seated) EXPECT_TRUE(client.Exchange(Check("http://bad.example/")));
    EXPECT_TRUE(LookAtStatus().Exchange("GET / HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n")) << "the page can still be seen";
  }
  while (!Serves()) {
  }
  ExpectCleanStop();
}

TEST_F(ClassificationServer, LeavesSeatsForOtherAddresses) {
  Start({"--connections", "6"});
  std::array<Client, 3> seated = {Connect(), Connect(), Connect()};
  for (Client& client : seated) EXPECT_TRUE(client.Exchange(Check("http://bad.example/")));
  EXPECT_FALSE(Serves());
  EXPECT_TRUE(Client(server_->Port(), Kind::kTls, "127.0.0.2").Exchange(Check("http://bad.example/")));
  seated[0].Reset();
  while (!Serves()) {
  }
  ExpectCleanStop();
}

TEST_F(ClassificationServer, HoldsToItsRate) {
  Start({"--rate", "1"});
  int served = 0;
  std::optional<Answer> answer;
  for (int i = 0; i < 100; ++i) {
    answer = Connect().Exchange(Check("http://bad.example/"));
    if (!answer || answer->status != 200) break;
    ++served;
  }
  EXPECT_GE(served, 2) << "a burst of twice the rate passes";
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 429);
  ExpectCleanStop();
}

TEST_F(ClassificationServer, ShowsWhatItDoesAndTakesNoOrders) {
  SetVerdicts("spoofing host bad.example\nmaybe host b.example\nconfirmed url http://bad.example/login?a=b\n");
  Start({"--status", "0"});
  ASSERT_NE(server_->StatusPort(), 0);
  const std::string hostile = "http://bad.example/\"><script>alert(1)</script>&\x01";
  EXPECT_TRUE(Connect().Exchange(Check(hostile)));
  EXPECT_TRUE(Connect().Exchange(Post(ReportBody(hostile) + "&ctx=<img src=x onerror='y'>\xC3")));
  EXPECT_TRUE(Connect().Exchange("nonsense\r\n\r\n"));

  const std::string host = "Host: 127.0.0.1:1\r\n\r\n";
  const auto page = LookAtStatus().Exchange("GET / HTTP/1.1\r\n" + host);
  ASSERT_TRUE(page);
  EXPECT_EQ(page->status, 200);
  EXPECT_NE(page->body.find("1 check, 1 report, 1 refused request. Reports kept in all: 1."), std::string::npos)
      << page->body;
  EXPECT_NE(page->body.find("http://bad.example/&quot;&gt;&lt;script&gt;alert(1)&lt;/script&gt;&amp; "),
            std::string::npos)
      << page->body;
  EXPECT_NE(page->body.find("&lt;img src=x onerror="), std::string::npos) << page->body;
  for (const char* told : {"spoofing or unknown", "verdicts: 2 verdicts, changed ", "1 line left out", "Up for", "http-equiv=\"refresh\""}) {
    EXPECT_NE(page->body.find(told), std::string::npos) << told << page->body;
  }
  EXPECT_EQ(page->body.find("<script"), std::string::npos) << page->body;
  EXPECT_EQ(page->body.find("<img"), std::string::npos) << page->body;

  struct Case {
    std::string sent;
    int status;
  };
  const Case cases[] = {
      {"GET / HTTP/1.1\r\nHost: localhost\r\n\r\n", 200},
      {"GET / HTTP/1.1\r\nHost: [::1]:80\r\n\r\n", 200},
      {"GET / HTTP/1.1\r\nHost: stranger.example\r\n\r\n", 421},
      {"GET / HTTP/1.1\r\n\r\n", 421},
      {"GET /other HTTP/1.1\r\n" + host, 404},
      {"POST / HTTP/1.1\r\nContent-Length: 3\r\n" + host + "abc", 405},
      {"DELETE / HTTP/1.1\r\n" + host, 405},
      {Check("http://bad.example/"), 421},
  };
  for (const Case& row : cases) {
    const auto answer = LookAtStatus().Exchange(row.sent);
    ASSERT_TRUE(answer) << row.sent;
    EXPECT_EQ(answer->status, row.status) << row.sent;
  }
  EXPECT_FALSE(LookAtStatus().Exchange("nonsense\r\n\r\n"));
  ExpectCleanStop();
}

/// Keeps a database from being written.
class WriteLock {
 public:
  explicit WriteLock(const std::string& path) {
    sqlite3_open(path.c_str(), &database_);
    sqlite3_busy_timeout(database_, 10'000);
    EXPECT_EQ(sqlite3_exec(database_, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
  }
  ~WriteLock() { sqlite3_close(database_); }
  WriteLock(const WriteLock&) = delete;
  WriteLock& operator=(const WriteLock&) = delete;

 private:
  sqlite3* database_ = nullptr;
};

TEST_F(ClassificationServer, AnswersWhatItHasBegunWhenItIsStopped) {
  Start({"--status", "0"});
  constexpr int kReports = 20;
  std::vector<std::unique_ptr<Client>> clients;
  {
    const WriteLock lock(Path("reports"));
    for (int i = 0; i < kReports; ++i) {
      clients.push_back(std::make_unique<Client>(server_->Port(), Kind::kTls));
      EXPECT_TRUE(clients.back()->Send(Report("http://" + std::to_string(i) + ".test/")));
    }
    // Once the server has been through its loops a few times, it has all of them.
    for (int i = 0; i < kReports; ++i) ASSERT_TRUE(Serves());
    server_->Signal(SIGTERM);
  }
  for (const auto& client : clients) {
    const auto answer = client->Receive();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, 200);
  }
  EXPECT_TRUE(server_->EndsWell());
  EXPECT_EQ(ReportedUrls().size(), static_cast<std::size_t>(kReports));
}

/// Reports on several threads until the server goes; gives what it answered.
class Reporters {
 public:
  explicit Reporters(int port) {
    constexpr int kThreads = 8;
    for (int i = 0; i < kThreads; ++i) {
      threads_.emplace_back([this, port, i] {
        Client client(port, Kind::kTls);
        for (int n = 0;; ++n) {
          const std::string url = "http://" + std::to_string(n) + "." + std::to_string(i) + ".test/";
          const auto answer = client.Exchange(Report(url));
          if (!answer || answer->status != 200) return;
          const std::lock_guard lock(mutex_);
          answered_.push_back(url);
        }
      });
    }
  }
  std::size_t Count() {
    const std::lock_guard lock(mutex_);
    return answered_.size();
  }
  std::vector<std::string> Finish() {
    threads_.clear();
    return answered_;
  }

 private:
  std::mutex mutex_;
  std::vector<std::string> answered_;
  std::vector<std::jthread> threads_;
};

TEST_F(ClassificationServer, KeepsEveryReportThatItAnswered) {
  for (const int signal : {SIGTERM, SIGKILL, SIGKILL, SIGKILL}) {
    std::filesystem::remove(Path("reports"));
    Start();
    Reporters reporters(server_->Port());
    while (reporters.Count() < 1000 / kShare) std::this_thread::yield();
    server_->Signal(signal);
    const std::vector<std::string> answered = reporters.Finish();
    EXPECT_EQ(server_->EndsWell(), signal == SIGTERM);
    const std::set<std::string> kept = ReportedUrls();
    for (const std::string& url : answered) EXPECT_TRUE(kept.contains(url)) << signal << " lost " << url;
  }
}

}  // namespace
}  // namespace zeph
