// SPDX-License-Identifier: Apache-2.0
// Runs a fuzz target over files and folders of them, for builds without a fuzzer: the seeds stay good, and what was
// once found stays found.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

void Replay(const fs::path& path) {
  std::ostringstream content;
  content << std::ifstream(path, std::ios::binary).rdbuf();
  const std::string bytes = content.str();
  std::printf("%s: %zu bytes\n", path.c_str(), bytes.size());
  std::fflush(stdout);  // so that the one that ends the program is named
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

}  // namespace

int main(int count, char** arguments) {
  for (int i = 1; i < count; ++i) {
    if (!fs::is_directory(arguments[i])) {
      Replay(arguments[i]);
      continue;
    }
    for (const auto& entry : fs::recursive_directory_iterator(arguments[i])) {
      if (entry.is_regular_file()) Replay(entry.path());
    }
  }
  return 0;
}
