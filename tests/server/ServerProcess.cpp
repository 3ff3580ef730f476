// SPDX-License-Identifier: Apache-2.0
#include "tests/server/ServerProcess.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <utility>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "TestPaths.h"

namespace zeph::test {

namespace {

constexpr long kPatienceSeconds = 60;

/// One line, or what there is of it at the end.
std::string ReadLine(int descriptor) {
  std::string line;
  for (char c = '\0'; read(descriptor, &c, 1) == 1 && c != '\n';) line += c;
  return line;
}

}  // namespace

ServerProcess::ServerProcess(const std::string& folder, std::vector<std::string> moreArguments, Doors doors,
                             const std::string& program) {
  std::vector<std::string> words = {program, "serve"};
  if (doors != Doors::kHttp) {
    words.insert(words.end(), {"--listen", "127.0.0.1:0", "--self-signed", "check.example", "--verdicts", "verdicts",
                               "--reports", "reports"});
  }
  if (doors != Doors::kEngines && std::ranges::find(moreArguments, "--http") == moreArguments.end()) {
    words.insert(words.end(), {"--http", "127.0.0.1:0"});
  }
  words.insert(words.end(), moreArguments.begin(), moreArguments.end());
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);

  std::array<int, 2> pipe{};
  if (pipe2(pipe.data(), O_CLOEXEC) != 0) throw std::runtime_error("pipe");
  process_ = fork();
  if (process_ == 0) {
    std::signal(SIGPIPE, SIG_DFL);
    if (chdir(folder.c_str()) != 0 || dup2(pipe[1], STDERR_FILENO) < 0) _exit(126);
    execv(arguments[0], arguments.data());
    _exit(127);
  }
  close(pipe[1]);
  said_ = pipe[0];
  std::string said;
  for (;;) {
    const std::string line = ReadLine(said_);
    const auto portBehind = [&line](const char* words) {
      const std::size_t found = line.find(words);
      return found == std::string::npos ? 0 : std::atoi(line.c_str() + found + std::strlen(words));
    };
    if (line.starts_with("zeph: serving ")) {
      port_ = portBehind("serving on port ");
      statusPort_ = portBehind("status page on port ");
      httpPort_ = portBehind("HTTP on port ") + portBehind("HTTPS on port ");
      return;
    }
    if (line.empty()) throw std::runtime_error("the server didn't start: " + said);
    said += line + "\n";
  }
}

std::string ServerProcess::Program() { return ZEPH_PROGRAM; }

ServerProcess::~ServerProcess() {
  if (process_ > 0) {
    Signal(SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  close(said_);
}

std::size_t ServerProcess::OpenDescriptors() const {
  const std::filesystem::directory_iterator open("/proc/" + std::to_string(process_) + "/fd");
  return static_cast<std::size_t>(std::distance(begin(open), end(open)));
}

void ServerProcess::Signal(int signal) const { kill(process_, signal); }

bool ServerProcess::EndsWell() {
  int status = 0;
  waitpid(std::exchange(process_, -1), &status, 0);
  const bool well = WIFEXITED(status) && WEXITSTATUS(status) == 0;
  for (std::string line = ReadLine(said_); !well && !line.empty(); line = ReadLine(said_)) std::cerr << line << "\n";
  return well;
}

Client::Client(int port, Kind kind, const char* fromAddress) : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  const timeval patience{.tv_sec = kPatienceSeconds, .tv_usec = 0};
  setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  setsockopt(socket_, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  if (fromAddress != nullptr) {
    inet_pton(AF_INET, fromAddress, &address.sin_addr);
    bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address);
  }
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  if (connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    close(std::exchange(socket_, -1));
  } else if (kind == Kind::kTls) {
    context_.reset(SSL_CTX_new(TLS_client_method()));
    ssl_.reset(SSL_new(context_.get()));
    SSL_set_fd(ssl_.get(), socket_);
    if (SSL_connect(ssl_.get()) != 1) close(std::exchange(socket_, -1));
  }
}

Client::~Client() {
  if (socket_ >= 0) close(socket_);
}

bool Client::Send(std::string_view data) {
  while (!data.empty() && socket_ >= 0) {
    const ssize_t sent = ssl_ != nullptr ? SSL_write(ssl_.get(), data.data(), static_cast<int>(data.size()))
                                         : send(socket_, data.data(), data.size(), MSG_NOSIGNAL);
    if (sent <= 0) return false;
    data.remove_prefix(static_cast<std::size_t>(sent));
  }
  return socket_ >= 0;
}

std::optional<std::string> Client::ReadSome() {
  std::string buffer(16384, '\0');
  const ssize_t count = socket_ < 0       ? -1
                        : ssl_ != nullptr ? SSL_read(ssl_.get(), buffer.data(), static_cast<int>(buffer.size()))
                                          : recv(socket_, buffer.data(), buffer.size(), 0);
  if (count <= 0) return std::nullopt;
  buffer.resize(static_cast<std::size_t>(count));
  return buffer;
}

std::optional<Answer> Client::Receive() {
  const auto need = [this](std::size_t size) {
    while (received_.size() < size) {
      const auto more = ReadSome();
      if (!more) return false;
      received_ += *more;
    }
    return true;
  };
  const auto needLine = [&](std::size_t from, std::string_view end) {
    std::size_t found = 0;
    while ((found = received_.find(end, from)) == std::string::npos && need(received_.size() + 1)) {
    }
    return found;
  };
  const std::size_t headerEnd = needLine(0, "\r\n\r\n");
  if (headerEnd == std::string::npos) return std::nullopt;
  std::size_t at = headerEnd + 4;
  Answer answer{std::stoi(received_.substr(9, 3)), "", received_.substr(0, headerEnd + 2)};
  const std::size_t lengthAt = answer.head.find("Content-Length: ");
  if (lengthAt != std::string::npos) {
    const std::size_t length = std::stoul(answer.head.substr(lengthAt + 16));
    if (!need(at + length)) return std::nullopt;
    answer.body = received_.substr(at, length);
    at += length;
  } else if (answer.head.find("Transfer-Encoding: chunked") != std::string::npos) {
    for (std::size_t length = 1; length != 0;) {
      const std::size_t lineEnd = needLine(at, "\r\n");
      if (lineEnd == std::string::npos) return std::nullopt;
      length = std::stoul(received_.substr(at, lineEnd - at), nullptr, 16);
      if (!need(lineEnd + 2 + length + 2)) return std::nullopt;
      answer.body += received_.substr(lineEnd + 2, length);
      at = lineEnd + 2 + length + 2;
    }
  }
  received_.erase(0, at);
  return answer;
}

bool Client::IsCutOff() {
  std::array<char, 4096> dropped{};
  for (;;) {
    const ssize_t count = recv(socket_, dropped.data(), dropped.size(), 0);
    if (count == 0 || (count < 0 && errno != EAGAIN)) return true;
    if (count < 0) return false;
  }
}

void Client::SayNoMore() { shutdown(socket_, SHUT_WR); }

void Client::Reset() {
  const linger now{.l_onoff = 1, .l_linger = 0};
  setsockopt(socket_, SOL_SOCKET, SO_LINGER, &now, sizeof now);
  close(std::exchange(socket_, -1));
}

}  // namespace zeph::test
