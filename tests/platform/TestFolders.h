// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>

#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

namespace zeph {

/// A test with a machine and a user of its own: folders that go with it, and hives in them that don't exist yet.
class FoldersTest : public testing::Test {
 protected:
  FoldersTest() {
    // In memory where that can be had: hives wait for the disk at each change.
    const bool inMemory = access("/dev/shm", W_OK) == 0;
    std::string pattern =
        (inMemory ? "/dev/shm" : std::filesystem::temp_directory_path().string()) + "/zeph-test-XXXXXX";
    folder_ = mkdtemp(pattern.data());
    setenv("ZEPH_MACHINE_DIR", Path("machine").c_str(), 1);
    setenv("ZEPH_USER_DIR", Path("user").c_str(), 1);
    std::filesystem::create_directory(Path("machine"));
  }
  ~FoldersTest() override {
    unsetenv("ZEPH_MACHINE_DIR");
    unsetenv("ZEPH_USER_DIR");
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }

  [[nodiscard]] std::string Path(const std::string& name) const { return folder_ + "/" + name; }

  static std::string Content(const std::string& path) {
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
  }
  static void Fill(const std::string& path, std::string_view content) {
    std::ofstream(path, std::ios::binary) << content;
  }

 private:
  std::string folder_;
};

/// Another process that runs work and ends; true in Join when work gave true.
class Child {
 public:
  template <class Work>
  explicit Child(Work work) : process_(fork()) {
    if (process_ == 0) _exit(work() ? 0 : 1);
  }
  bool Join() {
    int status = 0;
    return waitpid(process_, &status, 0) == process_ && WIFEXITED(status) && WEXITSTATUS(status) == 0;
  }
  void Kill() const { kill(process_, SIGKILL); }

 private:
  pid_t process_;
};

}  // namespace zeph
