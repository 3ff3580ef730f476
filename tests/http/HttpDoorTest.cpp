// SPDX-License-Identifier: Apache-2.0
// The engine over HTTP as its clients ask it, as strangers treat it and as its operators run it.
#include <algorithm>
#include <csignal>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/socket.h>
#include <sys/un.h>

#include "gateways/http/CheckRequest.h"
#include "gateways/http/Tokens.h"
#include "tests/platform/TestFolders.h"
#include "tests/server/ServerProcess.h"

namespace zeph {
namespace {

using test::Answer;
using test::Client;
using test::ServerProcess;
using Kind = Client::Kind;
using Json = nlohmann::json;

constexpr const char* kToken = "0123456789abcdef";

std::string Get(const std::string& target, const std::string& moreHeaders = "") {
  return "GET " + target + " HTTP/1.1\r\nHost: a.test\r\n" + moreHeaders + "\r\n";
}
std::string Post(const std::string& query, const std::string& type, const std::string& body,
                 const std::string& moreHeaders = "") {
  return "POST /v1/check" + query + " HTTP/1.1\r\nHost: a.test\r\nContent-Type: " + type +
         "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n" + moreHeaders + "\r\n" + body;
}
std::string Ask(const std::string& body) { return Post("", "application/json", body); }

class HttpDoor : public FoldersTest {
 protected:
  void SetUp() override { std::signal(SIGPIPE, SIG_IGN); }

  void Start(std::vector<std::string> arguments = {}, ServerProcess::Doors doors = ServerProcess::Doors::kHttp) {
    server_ = std::make_unique<ServerProcess>(Path(""), std::move(arguments), doors);
  }
  void WriteTokens(const std::string& text, mode_t mode = 0600) const {
    Fill(Path("tokens"), text);
    chmod(Path("tokens").c_str(), mode);
  }
  [[nodiscard]] Client Connect(const char* from = nullptr) const { return Client(server_->HttpPort(), Kind::kPlain, from); }
  [[nodiscard]] Answer Exchange(const std::string& request) const {
    return Connect().Exchange(request).value_or(Answer{});
  }
  /// The value of a metric, by its name and labels as they stand; -1 when it isn't there.
  [[nodiscard]] double Metric(const std::string& name) const {
    const std::string text = "\n" + Exchange(Get("/metrics")).body;
    const std::size_t found = text.find("\n" + name + " ");
    return found == std::string::npos ? -1 : std::stod(text.substr(found + name.size() + 2));
  }
  /// Until it is so, or for a long time.
  template <class IsSo>
  static bool Eventually(IsSo isSo) {
    for (int i = 0; i < 3000; ++i) {
      if (isSo()) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
  }
  void ExpectCleanStop() {
    server_->Signal(SIGTERM);
    EXPECT_TRUE(server_->EndsWell());
  }

  std::unique_ptr<ServerProcess> server_;
};

/// What is sent, and what is answered: the status, and for a body of JSON one member and its value.
struct Row {
  std::string what;
  std::string sent;
  int status;
  std::string pointer;
  Json value;
};

TEST_F(HttpDoor, AnswersWhatItIsAsked) {
  Start();
  const std::string page = "<html><title>Log in to your PayPal account</title><body>hello</body></html>";
  const std::string recording = R"({"recording":{"recording":1,"document":{"get_URL":"http://a.test/","get_all":[],"get_title":"x"},"elements":[]}})";
  const Row rows[] = {
      {"an address", Ask(R"({"url":"http://www.example.test/"})"), 200, "/url", "http://www.example.test/"},
      {"reported form", Ask(R"({"url":"hxxp://www[.]example[.]test/"})"), 200, "/url", "http://www.example.test/"},
      {"a path is no file", Ask(R"({"url":"/etc/passwd"})"), 200, "/verdict", "not-judged"},
      {"no address", Ask(R"({"url":"ht!tp://"})"), 200, "/verdict", "not-judged"},
      {"html", Ask(Json({{"html", page}, {"url", "http://a.test/x"}}).dump()), 200, "/url", "http://a.test/x"},
      {"bytes", Ask(R"({"bytes":"PGh0bWw+aGVsbG88L2h0bWw+","contentType":"text/html","url":"http://a.test/"})"), 200, "/result", 0},
      {"a page that nobody tells the address of", Ask(Json({{"html", page}}).dump()), 200, "/urlSource", nullptr},
      {"recording", Ask(recording), 200, "/urlSource", "document"},
      {"message", Ask(Json({{"message", "From: a@a.test\r\nSubject: x\r\nContent-Type: text/plain\r\n\r\nsee http://www.example.test/y\r\n"}}).dump()),
       200, "/parts/0/url", "http://www.example.test/y"},
      {"a raw letter", Post("", "message/rfc822", "From: a@a.test\r\nSubject: x\r\n\r\nsee http://www.example.test/y\r\n"), 200,
       "/parts/0/url", "http://www.example.test/y"},
      {"a raw page", Post("?url=http%3A%2F%2Fa.test%2Fz", "text/html; charset=utf-8", page), 200, "/url", "http://a.test/z"},
      {"its address in a header", Post("", "text/html", page, "Content-Location: http://a.test/h\r\n"), 200, "/url", "http://a.test/h"},
      {"explained", Post("?explain=1", "application/json", R"({"url":"http://www.example.test/"})"), 200, "/brand", ""},
      {"nothing at all", Post("", "text/html", ""), 200, "/reason", "empty"},

      {"no JSON", Ask("nonsense"), 400, "/error", "an object is expected (line 1, column 1)"},
      {"cut JSON", Ask(R"({"url":"http://a.te)"), 400, "/where", "/url"},
      {"two objects", Ask(R"({"url":"http://a.test/"} {})"), 400, "", nullptr},
      {"unknown member", Ask(R"({"url":"http://a.test/","path":"/etc/passwd"})"), 400, "/where", "/path"},
      {"twice", Ask(R"({"url":"http://a.test/","url":"http://b.test/"})"), 400, "/where", "/url"},
      {"wrong kind", Ask(R"({"url":7})"), 400, "/where", "/url"},
      {"nothing asked", Ask("{}"), 400, "/where", nullptr},
      {"two contents", Ask(R"({"html":"a","message":"b"})"), 400, "", nullptr},
      {"no base64", Ask(R"({"bytes":"####"})"), 400, "/where", "/bytes"},
      {"base64 in the middle", Ask(R"({"bytes":"AA==AAAA"})"), 400, "/where", "/bytes"},
      {"unknown query", Post("?verbose=1", "application/json", "{}"), 400, "/where", "the query"},
      {"no flag", Post("?explain=yes", "application/json", "{}"), 400, "/where", "the query"},
      {"deep", Ask(R"({"recording":)" + std::string(100'000, '[')), 400, "", nullptr},

      {"no type", "POST /v1/check HTTP/1.1\r\nHost: a\r\nContent-Length: 2\r\n\r\n{}", 415, "/where", "Content-Type"},
      {"a type that isn't taken", Post("", "application/pdf", "%PDF"), 415, "/where", "Content-Type"},
      {"an encoding that isn't taken", Post("", "text/html", "x", "Content-Encoding: gzip\r\n"), 415, "/where", "Content-Encoding"},
      {"no such path", Get("/v1/other"), 404, "", nullptr},
      {"another method", Get("/v1/check"), 405, "", nullptr},
      {"no host", "GET /healthz HTTP/1.1\r\n\r\n", 400, "/where", "Host"},
      {"two hosts", "GET /healthz HTTP/1.1\r\nHost: a\r\nHost: b\r\n\r\n", 400, "/where", "Host"},
      {"two lengths", "POST /v1/check HTTP/1.1\r\nHost: a\r\nContent-Length: 2\r\nContent-Length: 3\r\n\r\n{}", 400, "/where", "the header"},
      {"length and chunks", "POST /v1/check HTTP/1.1\r\nHost: a\r\nContent-Length: 2\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n", 400, "", nullptr},
      {"a folded line", "GET /healthz HTTP/1.1\r\nHost: a\r\nX: a\r\n b\r\n\r\n", 400, "/error", "a folded line"},
      {"a flood of headers", "GET /healthz HTTP/1.1\r\nHost: a\r\n" + std::string(9000, 'x'), 431, "", nullptr},
      {"no HTTP", "nonsense\r\n\r\n", 400, "", nullptr},
      {"a gigabyte announced", "POST /v1/check HTTP/1.1\r\nHost: a\r\nContent-Type: text/html\r\nContent-Length: 1073741824\r\n\r\n", 413, "/where", "the body"},
  };
  for (const Row& row : rows) {
    const Answer answer = Exchange(row.sent);
    EXPECT_EQ(answer.status, row.status) << row.what << ": " << answer.body;
    if (row.pointer.empty() || answer.body.empty()) continue;
    const Json body = Json::parse(answer.body, nullptr, false);
    const Json::json_pointer pointer(row.pointer);
    ASSERT_TRUE(body.contains(pointer)) << row.what << ": " << answer.body;
    EXPECT_EQ(body[pointer], row.value) << row.what << ": " << answer.body;
  }
  ExpectCleanStop();
}

TEST_F(HttpDoor, AnswersBatchesInOrderAndPipelinesInTurn) {
  Start();
  std::string batch = "\n{\"url\":\"nonsense\n";
  constexpr int kLines = 1000;
  for (int i = 0; i < kLines; ++i) batch += "{\"url\":\"http://www.example.test/" + std::to_string(i) + "\"}\r\n";
  Client client = Connect();
  // Behind the batch, on the same connection and at once, further requests.
  ASSERT_TRUE(client.Send(Post("", "application/x-ndjson", batch) + Ask(R"({"url":"http://after.example.test/"})") + Get("/healthz")));
  const auto answer = client.Receive();
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 200);
  std::istringstream lines(answer->body);
  std::string line;
  ASSERT_TRUE(std::getline(lines, line));
  EXPECT_EQ(Json::parse(line)["where"], "line 2, /url") << line;
  for (int i = 0; i < kLines; ++i) {
    ASSERT_TRUE(std::getline(lines, line)) << i;
    ASSERT_EQ(Json::parse(line)["url"], "http://www.example.test/" + std::to_string(i));
  }
  EXPECT_FALSE(std::getline(lines, line));
  const auto second = client.Receive();
  ASSERT_TRUE(second);
  EXPECT_EQ(Json::parse(second->body)["url"], "http://after.example.test/");
  const auto third = client.Receive();
  ASSERT_TRUE(third);
  EXPECT_EQ(third->body, "ok\n");

  // In chunks, and announced: each part is waited for.
  Client careful = Connect();
  ASSERT_TRUE(careful.Send("POST /v1/check HTTP/1.1\r\nHost: a\r\nContent-Type: application/json\r\nExpect: 100-continue\r\n"
                           "Transfer-Encoding: chunked\r\n\r\n"));
  const auto go = careful.Receive();
  ASSERT_TRUE(go);
  EXPECT_EQ(go->status, 100);
  ASSERT_TRUE(careful.Send("8\r\n{\"url\":\"\r\n"));
  const auto judged = careful.Exchange("13\r\nhttp://a.b.c.test\"}\r\n0\r\n\r\n");
  ASSERT_TRUE(judged);
  EXPECT_EQ(Json::parse(judged->body)["url"], "http://a.b.c.test/") << judged->body;
  ExpectCleanStop();
}

TEST_F(HttpDoor, IsAsItsDescriptionSays) {
  WriteTokens(std::string("# who\nfirst ") + kToken + "\nsecond 0123456789abcdefg\n");
  Start({"--tokens", "tokens", "--rate", "50", "--body-limit", "1", "--requests", "2"});
  const std::string auth = std::string("Authorization: Bearer ") + kToken + "\r\n";
  const Answer described = Exchange(Get("/v1/openapi.json"));
  ASSERT_EQ(described.status, 200);
  const Json document = Json::parse(described.body);
  EXPECT_EQ(document["openapi"], "3.1.0");

  std::set<std::string> promised;
  for (const auto& [path, methods] : document["paths"].items()) {
    for (const auto& [method, operation] : methods.items()) {
      for (const auto& [status, response] : operation["responses"].items()) promised.insert(method + " " + path + " " + status);
    }
  }
  // 503 needs a server of its own: HoldsEachClientToItsShare and IsNotReadyWithoutPackage see them.
  std::set<std::string> seen = {"post /v1/check 503", "get /readyz 503"};
  std::map<int, Answer> ofCheck;
  const auto check = [&](const std::string& sent) {
    const Answer answer = Exchange(sent);
    seen.insert("post /v1/check " + std::to_string(answer.status));
    ofCheck[answer.status] = answer;
  };
  check(Post("?explain=1", "application/json", R"({"url":"http://www.example.test/"})", auth));
  check(Post("", "application/json", "{}", auth));
  check(Post("", "application/json", "{}", "Authorization: Bearer wrong-token-here\r\n"));
  check(Post("", "application/json", std::string(2 << 20, ' '), auth));
  check(Post("", "text/plain", "x", auth));
  check("POST /v1/check HTTP/1.1\r\n" + std::string(9000, 'x'));
  for (int i = 0; i < 2000 && !ofCheck.contains(429); ++i) check(Post("", "application/json", "{}", auth));
  for (const char* path : {"/v1/openapi.json", "/metrics", "/healthz", "/readyz"}) {
    seen.insert("get " + std::string(path) + " " + std::to_string(Exchange(Get(path, auth)).status));
  }
  seen.insert("get /metrics " + std::to_string(Exchange(Get("/metrics")).status));
  EXPECT_EQ(seen, promised);

  // Members, both ways: all that are answered are described, all that are required are answered.
  const auto compare = [&](const Json& body, const std::string& schemaName) {
    const Json& schema = document["components"]["schemas"][schemaName];
    for (const auto& [name, value] : body.items()) EXPECT_TRUE(schema["properties"].contains(name)) << schemaName << ": " << name;
    for (const Json& name : schema["required"]) EXPECT_TRUE(body.contains(name.get<std::string>())) << schemaName << ": " << name;
  };
  Json answer = Json::parse(ofCheck[200].body);
  compare(answer, "Answer");
  // What is described is answered: with an explanation nothing is missing but what parts alone have.
  for (const auto& [name, value] : document["components"]["schemas"]["Answer"]["properties"].items()) {
    EXPECT_TRUE(name == "where" || answer.contains(name)) << name;
  }
  for (const int status : {400, 401, 413, 415, 429, 431}) compare(Json::parse(ofCheck[status].body), "Problem");
  EXPECT_NE(ofCheck[429].head.find("Retry-After: "), std::string::npos);
  EXPECT_NE(ofCheck[401].head.find("WWW-Authenticate: Bearer"), std::string::npos);
  for (const auto& [name, schema] : document["components"]["schemas"]["Question"]["properties"].items()) {
    http_door::Problem problem;
    const std::string wrong = "{\"" + name + "\":7}";
    EXPECT_FALSE(http_door::ReadQuestion(wrong, problem));
    EXPECT_EQ(problem.what.find("no such member"), std::string::npos) << name;
  }
  // The other client isn't held up by the first one's rate.
  EXPECT_EQ(Exchange(Post("", "application/json", R"({"url":"http://a.test/"})", "Authorization: Bearer 0123456789abcdefg\r\n")).status, 200);
  ExpectCleanStop();
}

TEST_F(HttpDoor, ReadsOnlyTokensThatAreKeptSecret) {
  struct Case {
    std::string text;
    mode_t mode;
    std::string error;  ///< what it ends with; empty: it is taken
  };
  const std::string good = std::string("a ") + kToken + "\n";
  const Case cases[] = {
      {good, 0600, ""},
      {"# c\n\n" + good + "b 0123456789abcdefgh\r\n", 0640, ""},
      {good, 0644, "(chmod 640)"},
      {good, 0660, "(chmod 640)"},
      {"", 0600, "holds no token"},
      {"a short\n", 0600, ":1: a token has 16 to 256 characters"},
      {good + "a 0123456789abcdefgh\n", 0600, ":2: a name that stands above"},
      {good + "b " + kToken + "\n", 0600, ":2: a token that stands above"},
      {"a/b " + std::string(kToken), 0600, ":1: no name of a client"},
      {"a " + std::string(kToken) + " more", 0600, ":1: more than a name and a token"},
  };
  for (const Case& row : cases) {
    WriteTokens(row.text, row.mode);
    std::string error;
    const auto tokens = http_door::Tokens::Read(Path("tokens"), error);
    EXPECT_EQ(tokens.has_value(), row.error.empty()) << row.text << error;
    EXPECT_TRUE(error.ends_with(row.error)) << error;
    EXPECT_EQ(error.find(kToken), std::string::npos) << "a secret in a message";
    if (!tokens) continue;
    EXPECT_EQ(tokens->NameOf(kToken), "a");
    EXPECT_EQ(tokens->NameOf("0123456789abcdeF"), "");
  }
}

TEST_F(HttpDoor, HoldsEachClientToItsShare) {
  // A seat more than one address may have; bodies of 2 MB in all, half of them for one.
  Start({"--connections", "8", "--body-limit", "1", "--memory-limit", "2"});
  const std::string slowBody = "POST /v1/check HTTP/1.1\r\nHost: a\r\nContent-Type: text/html\r\nContent-Length: 1000000\r\n\r\n";
  {
    std::vector<std::unique_ptr<Client>> crowd;
    for (int i = 0; i < 4; ++i) {
      crowd.push_back(std::make_unique<Client>(server_->HttpPort(), Kind::kPlain));
      ASSERT_TRUE(crowd.back()->Exchange(Get("/healthz")));
    }
    const auto refused = Connect().Receive();
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->status, 503);
    EXPECT_NE(refused->head.find("Retry-After: "), std::string::npos);
    EXPECT_TRUE(Connect("127.0.0.2").Exchange(Get("/healthz"))) << "others get in";
    // One that sends much and never ends has its share of the room for bodies, and no more.
    ASSERT_TRUE(crowd[0]->Send(slowBody + std::string(900'000, 'x')));
    Client other = Connect("127.0.0.2");
    ASSERT_TRUE(Eventually([&] {
      const auto answer = other.Exchange(Get("/metrics"));
      return answer && answer->body.find("zeph_http_body_bytes 0\n") == std::string::npos;
    }));
    ASSERT_TRUE(crowd[1]->Send(slowBody + std::string(900'000, 'x')));
    const auto full = crowd[1]->Receive();
    ASSERT_TRUE(full);
    EXPECT_EQ(full->status, 503);
    EXPECT_NE(full->body.find("too many bytes"), std::string::npos) << full->body;
    EXPECT_EQ(Client(server_->HttpPort(), Kind::kPlain, "127.0.0.2").Exchange(Ask(R"({"url":"http://a.test/"})"))->status, 200);
    // A body in chunks without end is cut at the limit.
    std::string chunks;
    for (int i = 0; i < 1100; ++i) chunks += "3e8\r\n" + std::string(1000, 'x') + "\r\n";
    Client endless = Connect("127.0.0.2");
    endless.Send("POST /v1/check HTTP/1.1\r\nHost: a\r\nContent-Type: text/html\r\nTransfer-Encoding: chunked\r\n\r\n" + chunks);
    const auto cut = endless.Receive();
    ASSERT_TRUE(cut);
    EXPECT_EQ(cut->status, 413);
  }
  EXPECT_TRUE(Eventually([&] { return Metric("zeph_http_body_bytes") == 0; })) << "what clients held is free again";
  EXPECT_GE(Metric("zeph_http_connections_refused_total"), 1);
  ExpectCleanStop();
}

TEST_F(HttpDoor, CutsOffWhoSendsSlowlyAndAnswersWhoSaysNoMore) {
  Start({"--timeout", "1"});
  Client header = Connect();
  ASSERT_TRUE(header.Send("POST /v1/check HT"));
  Client body = Connect();
  ASSERT_TRUE(body.Send("POST /v1/check HTTP/1.1\r\nHost: a\r\nContent-Type: text/html\r\nContent-Length: 10\r\n\r\nabc"));
  Client silent = Connect();
  // Chunk headers without end: neither a busy loop nor room without bound.
  Client strange = Connect();
  strange.Send("POST /v1/check HTTP/1.1\r\nHost: a\r\nContent-Type: text/html\r\nTransfer-Encoding: chunked\r\n\r\n1;" +
               std::string(100'000, 'x'));
  Client halfClosed = Connect();
  ASSERT_TRUE(halfClosed.Send(Ask(R"({"html":"<p>x","url":"http://a.test/"})")));
  halfClosed.SayNoMore();
  const auto answer = halfClosed.Receive();
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 200);
  EXPECT_TRUE(header.IsCutOff());
  EXPECT_TRUE(body.IsCutOff());
  EXPECT_TRUE(silent.IsCutOff());
  EXPECT_TRUE(strange.IsCutOff());
  EXPECT_EQ(Exchange(Ask(R"({"url":"http://a.test/"})")).status, 200);
  ExpectCleanStop();
}

/// The Prometheus text format: each sample belongs to a family that was announced, histograms add up.
TEST_F(HttpDoor, CountsWhatItDoes) {
  Start({"--access-log", "access"});
  EXPECT_EQ(Exchange(Ask(R"({"url":"http://www.example.test/secret?token=1"})")).status, 200);
  EXPECT_EQ(Exchange(Post("?url=http://b.example.test/secret", "text/html", "<p>x")).status, 200);
  EXPECT_EQ(Exchange(Ask("{")).status, 400);
  const std::string text = Exchange(Get("/metrics")).body;
  Fill(Path("metrics"), text);
  if (std::system("command -v promtool >/dev/null 2>&1") == 0) {
    EXPECT_EQ(std::system(("promtool check metrics <" + Path("metrics") + " >&2").c_str()), 0);
  }
  std::map<std::string, std::string> types;
  std::istringstream lines(text);
  double lastBucket = -1;
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string first, second, name, rest;
    words >> first;
    if (first == "#") {
      words >> second >> name >> rest;
      EXPECT_TRUE(second != "TYPE" || types.emplace(name, rest).second) << line;
      continue;
    }
    name = first.substr(0, first.find('{'));
    for (const char* suffix : {"_bucket", "_sum", "_count"}) {
      if (name.ends_with(suffix)) name.resize(name.size() - std::string_view(suffix).size());
    }
    EXPECT_TRUE(types.contains(name)) << line;
    const double value = std::stod(line.substr(line.rfind(' ')));
    if (first.find("_bucket{") == std::string::npos) continue;
    EXPECT_GE(value, std::exchange(lastBucket, value)) << line;
  }
  EXPECT_EQ(Metric("zeph_http_requests_total{status=\"400\"}"), 1);
  EXPECT_GE(Metric("zeph_http_requests_total{status=\"200\"}"), 3);
  EXPECT_EQ(Metric("zeph_ready"), 1);
  EXPECT_GE(Metric("zeph_package_age_seconds"), 0);
  const double inBuckets = Metric("zeph_http_request_duration_seconds_bucket{le=\"+Inf\"}");
  EXPECT_EQ(Metric("zeph_http_request_duration_seconds_count"), inBuckets + 1) << "each look is a request, too";
  double verdicts = 0;
  for (const char* verdict : {"trustworthy", "spoofing", "spoofing-confirmed", "script-attack", "unclassified", "not-judged"}) {
    verdicts += Metric("zeph_verdicts_total{verdict=\"" + std::string(verdict) + "\"}");
  }
  EXPECT_EQ(verdicts, 2);

  ExpectCleanStop();
  const std::string log = Content(Path("access"));
  EXPECT_EQ(log.find("secret"), std::string::npos) << "of addresses the host alone is logged: " << log;
  const Json line = Json::parse(log.substr(0, log.find('\n')));
  EXPECT_EQ(line["host"], "www.example.test");
  EXPECT_EQ(line["status"], 200);
  EXPECT_EQ(line["client"], "127.0.0.1");
  EXPECT_EQ(line["judged"], 1);
}

TEST_F(HttpDoor, IsNotReadyWithoutPackage) {
  // The program alone, without the package that stands beside it.
  const std::filesystem::path alone = Path("alone");
  std::filesystem::create_directory(alone);
  std::filesystem::copy_file(ServerProcess::Program(), alone / "zeph");
  server_ = std::make_unique<ServerProcess>(Path(""), std::vector<std::string>{}, ServerProcess::Doors::kHttp, (alone / "zeph").string());
  EXPECT_EQ(Exchange(Get("/healthz")).status, 200);
  const Answer answer = Exchange(Get("/readyz"));
  EXPECT_EQ(answer.status, 503);
  EXPECT_NE(answer.head.find("Retry-After: "), std::string::npos);
  EXPECT_EQ(Json::parse(Exchange(Ask(R"({"url":"http://a.test/"})")).body)["reason"], "no configuration could be loaded");
  EXPECT_EQ(Metric("zeph_ready"), 0);
  // One that comes is taken.
  std::filesystem::copy_file(std::filesystem::path(ServerProcess::Program()).parent_path() / "zeph.zip", alone / "zeph.zip");
  EXPECT_TRUE(Eventually([&] { return Exchange(Get("/readyz")).status == 200; }));
  EXPECT_EQ(Json::parse(Exchange(Ask(R"({"url":"http://a.test/"})")).body)["reason"], nullptr);
  ExpectCleanStop();
}

TEST_F(HttpDoor, ReloadsTellsItsManagerAndDrains) {
  WriteTokens(std::string("first ") + kToken + "\n");
  Fill(Path("verdicts"), "spoofing host bad.example\n");
  // A service manager: datagrams to a socket of its own.
  const int manager = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  Path("notify").copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(bind(manager, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  const timeval patience{.tv_sec = 60, .tv_usec = 0};
  setsockopt(manager, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  const auto told = [manager] {
    std::string text(1000, '\0');
    text.resize(static_cast<std::size_t>(std::max<ssize_t>(0, recv(manager, text.data(), text.size(), 0))));
    return text.substr(0, text.find('\n'));
  };
  setenv("NOTIFY_SOCKET", Path("notify").c_str(), 1);
  Start({"--tokens", "tokens", "--access-log", "access"}, ServerProcess::Doors::kBoth);
  unsetenv("NOTIFY_SOCKET");
  EXPECT_EQ(told(), "READY=1");
  EXPECT_NE(server_->Port(), 0) << "the engines' door is open beside";

  const auto asked = [&](const std::string& token) {
    return Exchange(Post("", "application/json", R"({"url":"http://a.test/"})", "Authorization: Bearer " + token + "\r\n")).status;
  };
  EXPECT_EQ(asked(kToken), 200);
  const std::string fresh = "fedcba9876543210";
  WriteTokens("first " + fresh + "\n");
  std::filesystem::rename(Path("access"), Path("access.1"));
  server_->Signal(SIGHUP);
  EXPECT_EQ(told(), "RELOADING=1");
  EXPECT_EQ(told(), "READY=1");
  EXPECT_EQ(asked(kToken), 401);
  EXPECT_EQ(asked(fresh), 200);
  EXPECT_NE(Content(Path("access")), "");
  // A file that can't be used changes nothing.
  WriteTokens("first short\n");
  server_->Signal(SIGHUP);
  EXPECT_EQ(told(), "RELOADING=1");
  EXPECT_EQ(told(), "READY=1");
  EXPECT_EQ(asked(fresh), 200);

  // A batch that is under way when the end is asked for is answered whole.
  std::string batch;
  constexpr std::ptrdiff_t kLines = 3000;
  for (std::ptrdiff_t i = 0; i < kLines; ++i) batch += "{\"url\":\"http://www.example.test/" + std::to_string(i) + "\"}\n";
  Client client = Connect();
  ASSERT_TRUE(client.Send(Post("", "application/x-ndjson", batch, "Authorization: Bearer " + fresh + "\r\n")));
  ASSERT_TRUE(Eventually([&] {
    const auto answer = Exchange(Get("/metrics", "Authorization: Bearer " + fresh + "\r\n"));
    return answer.body.find("zeph_verdicts_total{verdict=\"unclassified\"} 0\n") == std::string::npos;
  }));
  server_->Signal(SIGTERM);
  EXPECT_EQ(told(), "STOPPING=1");
  const auto answer = client.Receive();
  ASSERT_TRUE(answer);
  EXPECT_EQ(std::ranges::count(answer->body, '\n'), kLines);
  EXPECT_TRUE(server_->EndsWell());
  close(manager);
}

TEST_F(HttpDoor, IsReachedByTlsAndByUnixSocket) {
  Start({"--http-tls", "--self-signed"});
  const auto answer = Client(server_->HttpPort(), Kind::kTls).Exchange(Ask(R"({"url":"http://a.test/"})"));
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 200);
  ExpectCleanStop();

  Fill(Path("other"), "no socket");
  EXPECT_THROW(Start({"--http", "unix:" + Path("other")}), std::runtime_error);
  EXPECT_EQ(Content(Path("other")), "no socket") << "what isn't a dead socket stays";
  for (const bool isKilled : {true, false}) {
    Start({"--http", "unix:" + Path("door")});
    const int door = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    Path("door").copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(connect(door, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    const std::string request = "GET /healthz HTTP/1.0\r\n\r\n";
    ASSERT_EQ(send(door, request.data(), request.size(), MSG_NOSIGNAL), static_cast<ssize_t>(request.size()));
    std::string text(1000, '\0');
    EXPECT_GT(recv(door, text.data(), text.size(), 0), 0);
    EXPECT_TRUE(text.starts_with("HTTP/1.1 200 ")) << text;
    close(door);
    if (isKilled) {
      server_.reset();  // kill -9 leaves the socket's file, which the next start takes over
    } else {
      ExpectCleanStop();
      EXPECT_FALSE(std::filesystem::exists(Path("door")));
    }
  }
}

}  // namespace
}  // namespace zeph
