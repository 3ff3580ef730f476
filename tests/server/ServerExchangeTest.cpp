// SPDX-License-Identifier: Apache-2.0
// The exchange with the classification server, against real TLS servers on loopback.
#include <array>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/sha.h>
#include <openssl/x509.h>

#include "DetectionEngine/base/Cipher.h"
#include "DetectionEngine/base/DebugLog.h"
#include "DetectionEngine/base/StringTable.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/platform/SettingsHive.h"
#include "DetectionEngine/server/ExchangeRules.h"
#include "DetectionEngine/server/HttpUtilities.h"
#include "DetectionEngine/server/ServerRequests.h"
#include "tests/server/TlsServer.h"

namespace zeph {
namespace {

using test::Connection;
using test::TestAuthority;
using test::TlsServer;

constexpr const char* kHost = "check.example.test";
constexpr std::u16string_view kWideHost = u"check.example.test";

/// Trusts one test authority, leads the connection to a server of the test's, and reads the log.
class ServerExchange : public testing::Test {
 protected:
  void SetUp() override {
    std::signal(SIGPIPE, SIG_IGN);
    folder_ = std::filesystem::path(testing::TempDir()) / testing::UnitTest::GetInstance()->current_test_info()->name();
    std::filesystem::remove_all(folder_);
    std::filesystem::create_directories(folder_);
    setenv("ZEPH_MACHINE_DIR", folder_.c_str(), 1);
    authority_.WriteTo((folder_ / "authority.pem").string());
    setenv("SSL_CERT_FILE", (folder_ / "authority.pem").c_str(), 1);
    setenv("SSL_CERT_DIR", folder_.c_str(), 1);
    SettingsHive machine(HiveOwner::kMachine);
    const std::string key(kLogSettingsKey);
    ASSERT_TRUE(machine.CreateKey(key));
    machine.Write(key, "OutputToFile", std::uint32_t{1});
    machine.Write(key, "Directory", folder_.string());
    machine.Write(key, "DebugType", std::uint32_t{1});
  }

  void TearDown() override {
    for (const char* name : {"ZEPH_MACHINE_DIR", "SSL_CERT_FILE", "SSL_CERT_DIR", "ZEPH_CONNECT_TO", "https_proxy"}) {
      unsetenv(name);
    }
    std::filesystem::remove_all(folder_);
  }

  static void ConnectTo(int port) {
    const std::string to = std::string(kHost) + ":443:127.0.0.1:" + std::to_string(port);
    setenv("ZEPH_CONNECT_TO", to.c_str(), 1);
  }

  static std::int32_t Exchange(int expectReply = kReplyRead) {
    return HttpCallServlet(kWideHost, 443, "/path", "a=b", expectReply);
  }

  [[nodiscard]] std::string Log() const {
    std::ifstream file(folder_ / "zeph0.log");
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
  }

  TestAuthority authority_;
  std::filesystem::path folder_;
};

TEST_F(ServerExchange, SendsTheRequestAsWritten) {
  std::string request;
  const TlsServer server(authority_.Issue(kHost, 10), [&](Connection& connection) {
    request = connection.ReadRequest();
    connection.Answer(std::string("\x05\0\0\0", 4));
  });
  ConnectTo(server.Port());
  EXPECT_EQ(CheckUrl(u"http://bank.example/?q=1", kWideHost, 1), 5);

  const std::string path = Narrow(StringEntry(0xBA));
  EXPECT_TRUE(request.starts_with("POST " + path + " HTTP/1.1\r\n")) << request;
  EXPECT_NE(request.find("User-Agent: InetURL/1.0\r\n"), std::string::npos) << request;
  EXPECT_NE(request.find("Content-Type: application/x-www-form-urlencoded\r\n"), std::string::npos) << request;
  EXPECT_EQ(request.find("Expect:"), std::string::npos) << request;
  EXPECT_TRUE(request.ends_with("\r\n\r\ncmd=" + Narrow(StringEntry(0xBC)) +
                                "&ver=2.0&PRIV=1&el=" + SealUrl(u"http://bank.example/?q=1")))
      << request;
  EXPECT_NE(Log().find("Read the following from server: 5"), std::string::npos) << Log();
}

TEST_F(ServerExchange, ReportsWithTheirOwnPathAndContext) {
  std::string request;
  const TlsServer server(authority_.Issue(kHost, 10), [&](Connection& connection) {
    request = connection.ReadRequest();
    connection.Answer("");
  });
  ConnectTo(server.Port());
  struct Case {
    std::int32_t code;
    std::optional<std::u16string> context;
    std::uint32_t pathEntry;
    std::string end;
  };
  const Case cases[] = {
      {3, std::nullopt, 0xBA, "&er=3"},
      {-4, u"", 0xBA, "&er=-4&ctx="},
      {4, u"a&b=c", 0xBB, "&er=4&ctx=a&b=c"},
      {6, std::u16string(300, u'x'), 0xBA, "&er=6&ctx=" + std::string(255, 'x')},
  };
  for (const Case& row : cases) {
    EXPECT_EQ(ReportUrl(u"http://bank.example/", kWideHost, row.code, row.context), 0) << row.end;
    EXPECT_TRUE(request.starts_with("POST " + Narrow(StringEntry(row.pathEntry)) + " ")) << request;
    EXPECT_TRUE(request.ends_with("cmd=" + Narrow(StringEntry(0xBD)) +
                                  "&ver=2.0&el=" + SealUrl(u"http://bank.example/") + row.end))
        << request;
  }
}

TEST_F(ServerExchange, ReadsTheFirstFourBytesWhateverTheStatus) {
  struct Case {
    std::string body;
    std::string status;
    std::int32_t answer;
    std::int32_t strictAnswer;
  };
  const Case cases[] = {
      {"", "200 OK", 0, 0},
      {"\x02", "200 OK", 2, 0},
      {std::string("\x01\x02", 2), "200 OK", 0x201, 0},
      {std::string("\x01\x02\x03", 3), "404 Not Found", 0x30201, 0},
      {std::string("\x01\0\0\0", 4), "503 Service Unavailable", 1, 0},
      {"<htm", "500 Internal Server Error", 0x6D74683C, 0},
      {std::string("\xFF\xFF\xFF\xFF", 4), "200 OK", -1, -1},
      {std::string("\x04\0\0\0rest", 8), "302 Found\r\nLocation: https://elsewhere.example.test/", 4, 0},
      {std::string("\x04\0\0\0\0", 5), "200 OK", 4, 0},
      {std::string(100'000'000, '\x01'), "200 OK", 0x01010101, 0},
  };
  for (const Case& row : cases) {
    const TlsServer server(authority_.Issue(kHost, 10), [&](Connection& connection) {
      connection.ReadRequest();
      connection.Answer(row.body, row.status);
    });
    ConnectTo(server.Port());
    EXPECT_EQ(Exchange(), row.answer) << row.status << ", " << row.body.size() << " bytes";
    SetStrictServer(true);
    EXPECT_EQ(Exchange(), row.strictAnswer) << row.status << ", " << row.body.size() << " bytes";
    EXPECT_EQ(Exchange(kReplyIgnored), row.status == "200 OK" ? 1 : 0) << row.status;
    SetStrictServer(false);
  }
}

TEST_F(ServerExchange, PassesOverAnnouncingResponses) {
  const TlsServer server(authority_.Issue(kHost, 10), [](Connection& connection) {
    connection.ReadRequest();
    connection.Write("HTTP/1.1 100 Continue\r\n\r\n");
    connection.Answer(std::string("\x03\0\0\0", 4));
  });
  ConnectTo(server.Port());
  EXPECT_EQ(Exchange(), 3);
}

TEST_F(ServerExchange, TrustsAnAuthorityAndNotADateOrAName) {
  struct Case {
    const char* what;
    const char* certificateHost;
    int validDays;
    bool known;
    std::int32_t answer;
  };
  const Case cases[] = {
      {"a good certificate", kHost, 10, true, 1},
      {"one that has run out", kHost, -2, true, 1},
      {"one for another host", "other.example.test", 10, true, 1},
      {"one of an unknown authority", kHost, 10, false, 0},
      {"an outdated one of an unknown authority", kHost, -2, false, 0},
  };
  const TestAuthority stranger;
  for (const Case& row : cases) {
    const TlsServer server((row.known ? authority_ : stranger).Issue(row.certificateHost, row.validDays),
                           [](Connection& connection) {
                             connection.ReadRequest();
                             connection.Answer(std::string("\x01\0\0\0", 4));
                           });
    ConnectTo(server.Port());
    std::filesystem::remove(folder_ / "zeph0.log");
    EXPECT_EQ(Exchange(), row.answer) << row.what;
    EXPECT_EQ(Log().find("Invalid Certificate error contacting server") == std::string::npos, row.known)
        << row.what << "\n"
        << Log();
  }
}

/// A key as it is asked for.
std::string PinOf(const test::Identity& identity) {
  unsigned char* der = nullptr;
  const int size = i2d_PUBKEY(identity.key.get(), &der);
  std::array<unsigned char, 32> hash{};
  SHA256(der, static_cast<std::size_t>(size), hash.data());
  OPENSSL_free(der);
  std::array<unsigned char, 45> text{};
  EVP_EncodeBlock(text.data(), hash.data(), static_cast<int>(hash.size()));
  return std::string("sha256//") + reinterpret_cast<const char*>(text.data());
}

TEST_F(ServerExchange, AsksForTheKeyAndTheFormThatTheMachinesSettingsName) {
  const test::Identity identity = authority_.Issue(kHost, 10);
  const TlsServer server(identity, [](Connection& connection) {
    connection.ReadRequest();
    connection.Answer(std::string("\x01", 1));
  });
  ConnectTo(server.Port());
  const std::string pin = PinOf(identity);
  const std::string other = PinOf(authority_.Issue(kHost, 10));
  SettingsHive machine(HiveOwner::kMachine);
  ASSERT_TRUE(machine.CreateKey(kServerSettingsKey));
  for (const auto& [key, answer] :
       {std::pair<std::string, std::int32_t>{"", 1}, {pin, 1}, {other + ";" + pin, 1}, {other, 0}, {"no key", 0}}) {
    ASSERT_TRUE(machine.Write(kServerSettingsKey, "ServerKey", key));
    EXPECT_EQ(Exchange(), answer) << key;
  }
  machine.Write(kServerSettingsKey, "ServerKey", pin);
  machine.Write(kServerSettingsKey, "StrictServer", std::uint32_t{1});
  EXPECT_EQ(Exchange(), 0) << "a single byte";
}

TEST_F(ServerExchange, FailsWithoutAServer) {
  ConnectTo(1);
  EXPECT_EQ(Exchange(), 0);
  EXPECT_NE(Log().find("HttpSendRequestA set error code "), std::string::npos) << Log();
  EXPECT_EQ(ReportUrl(u"http://bank.example/", kWideHost, 3, std::nullopt), 1);
  for (const std::u16string_view host : {u"", u"a b", u"a/b", u"user@host", u"host:80#"}) {
    EXPECT_EQ(HttpCallServlet(host, 443, "/", "", kReplyRead), 0) << Narrow(host);
  }
  EXPECT_NE(Log().find("InternetConnect failed"), std::string::npos);
  EXPECT_EQ(HttpCallServlet(kWideHost, 443, "no slash", "", kReplyRead), 0);
  EXPECT_NE(Log().find("HttpOpenRequest failed"), std::string::npos);
}

TEST_F(ServerExchange, FailsWhenTheServerDropsTheConnection) {
  const TlsServer server(authority_.Issue(kHost, 10), [](Connection& connection) { connection.ReadRequest(); });
  ConnectTo(server.Port());
  EXPECT_EQ(Exchange(), 0);
  EXPECT_EQ(Exchange(kReplyIgnored), 0);
}

TEST_F(ServerExchange, GivesUpOnAServerThatNeverAnswers) {
  std::atomic<bool> over{false};
  std::atomic<int> asked{0};
  const TlsServer server(authority_.Issue(kHost, 10), [&](Connection& connection) {
    ++asked;
    connection.ReadRequest();
    while (!over) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  });
  ConnectTo(server.Port());
  EXPECT_EQ(Exchange(), 0);
  SetServerRest(std::chrono::seconds(3600));
  bool sent = true;
  EXPECT_EQ(HttpCallServlet(kWideHost, 443, "/path", "a=b", kReplyRead, &sent), 0);
  SetServerRest(std::chrono::seconds(0));
  EXPECT_FALSE(sent);
  EXPECT_EQ(asked, 1) << "it isn't asked again";
  over = true;
  EXPECT_NE(Log().find("HttpSendRequestWithTimeout : Error : Timeout"), std::string::npos) << Log();
  EXPECT_EQ(Log().find("Read the following"), std::string::npos);
}

TEST_F(ServerExchange, TakesWhatADribblingServerGaveInTime) {
  std::atomic<bool> over{false};
  const TlsServer server(authority_.Issue(kHost, 10), [&](Connection& connection) {
    connection.ReadRequest();
    connection.Write("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\n\x07");
    while (!over) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  });
  ConnectTo(server.Port());
  EXPECT_EQ(Exchange(), 7);
  over = true;
}

TEST_F(ServerExchange, IgnoresTheBodyWhenNoReplyIsExpected) {
  std::atomic<bool> over{false};
  const TlsServer server(authority_.Issue(kHost, 10), [&](Connection& connection) {
    connection.ReadRequest();
    connection.Write("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\n");
    while (!over) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  });
  ConnectTo(server.Port());
  EXPECT_EQ(Exchange(kReplyIgnored), 1);
  over = true;
}

TEST_F(ServerExchange, GoesThroughTheProxyOfTheEnvironment) {
  // A proxy that nobody answers on: were it passed over, the server would give its 1.
  const TlsServer server(authority_.Issue(kHost, 10), [](Connection& connection) {
    connection.ReadRequest();
    connection.Answer(std::string("\x01\0\0\0", 4));
  });
  ConnectTo(server.Port());
  setenv("https_proxy", "http://127.0.0.1:1", 1);
  EXPECT_EQ(Exchange(), 0);
  setenv("no_proxy", "127.0.0.1,check.example.test", 1);
  EXPECT_EQ(Exchange(), 1);
  unsetenv("no_proxy");
}

TEST_F(ServerExchange, RunsOnManyThreadsAtOnceWhileSomeAreCutOff) {
  std::atomic<int> turn{0};
  const TlsServer server(authority_.Issue(kHost, 10), [&](Connection& connection) {
    connection.ReadRequest();
    if (turn++ % 4 != 0) connection.Answer(std::string("\x09\0\0\0", 4));
  });
  ConnectTo(server.Port());
  constexpr int kThreads = 16;
  std::atomic<int> answered{0};
  std::atomic<int> failed{0};
  {
    std::vector<std::jthread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([&] {
        const std::int32_t answer = Exchange();
        if (answer == 9) ++answered;
        if (answer == 0) ++failed;
      });
    }
  }
  EXPECT_EQ(answered, kThreads * 3 / 4);
  EXPECT_EQ(failed, kThreads / 4);
}

TEST(SealUrl, EnciphersAndEscapesEachByte) {
  EXPECT_EQ(SealUrl(u""), "");
  const std::u16string url = u"http://b\u00e4nk.example/\U0001F600?q=\xD800";
  std::string sealed = SealUrl(url);
  std::string bytes;
  for (std::size_t i = 0; i < sealed.size(); ++i) {
    if (sealed[i] == '%') {
      ASSERT_LE(i + 2, sealed.size() - 1);
      const std::string digits = sealed.substr(i + 1, 2);
      EXPECT_EQ(digits.find_first_not_of("0123456789abcdef"), std::string::npos) << digits;
      bytes += static_cast<char>(std::stoi(digits, nullptr, 16));
      i += 2;
    } else {
      EXPECT_TRUE(std::isalnum(static_cast<unsigned char>(sealed[i])) != 0 || sealed[i] == '+') << sealed[i];
      bytes += sealed[i] == '+' ? ' ' : sealed[i];
    }
  }
  DecryptData(bytes.data(), bytes.size());
  EXPECT_EQ(bytes, Narrow(url));
}

}  // namespace
}  // namespace zeph
