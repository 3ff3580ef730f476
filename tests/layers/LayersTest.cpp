// SPDX-License-Identifier: Apache-2.0
// The house keeps its shape: a file includes only what stands on its own floor or below, and only the ground floor
// knows the operating system and its libraries.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include "TestPaths.h"

namespace {

namespace fs = std::filesystem;

const fs::path kRoot = ZEPH_SOURCE_DIR;

std::string ReadText(const fs::path& path) {
  std::ifstream file(path);
  std::stringstream text;
  text << file.rdbuf();
  return text.str();
}

/// Path below DetectionEngine/ without its ending: a header stands on the floor of its body.
std::string Stem(const fs::path& path) { return fs::path(path).replace_extension().generic_string(); }

/// The floor of each body, counted from the ground, as the build lists them.
std::map<std::string, int> ReadFloors() {
  std::map<std::string, int> floors;
  const std::string build = ReadText(kRoot / "DetectionEngine/CMakeLists.txt");
  const std::regex floor(R"(zeph_floor\(\w+\s+SOURCES\s+([^)]*?)(BUILDS_ON|LIBRARIES|\)))");
  const std::regex source(R"([\w/]+\.cpp)");
  int rank = 0;
  for (std::sregex_iterator it(build.begin(), build.end(), floor), end; it != end; ++it, ++rank) {
    const std::string sources = (*it)[1];
    for (std::sregex_iterator file(sources.begin(), sources.end(), source), none; file != none; ++file) {
      floors[Stem(file->str())] = rank;
    }
  }
  return floors;
}

struct Source {
  fs::path path;  ///< from the root
  std::vector<std::string> own;
  std::vector<std::string> foreign;
};

std::vector<Source> ReadSources() {
  std::vector<Source> sources;
  const std::regex include(R"re(#include ([<"])([^>"]+)[>"])re");
  for (const auto& entry : fs::recursive_directory_iterator(kRoot / "DetectionEngine")) {
    const std::string ending = entry.path().extension().string();
    if (ending != ".cpp" && ending != ".h") continue;
    Source source{fs::relative(entry.path(), kRoot), {}, {}};
    const std::string text = ReadText(entry.path());
    for (std::sregex_iterator it(text.begin(), text.end(), include), end; it != end; ++it) {
      ((*it)[1] == "\"" ? source.own : source.foreign).push_back((*it)[2]);
    }
    sources.push_back(std::move(source));
  }
  return sources;
}

TEST(Layers, EveryBodyStandsOnAFloor) {
  const auto floors = ReadFloors();
  ASSERT_GT(floors.size(), 30U);
  for (const Source& source : ReadSources()) {
    if (source.path.extension() != ".cpp") continue;
    EXPECT_TRUE(floors.contains(Stem(fs::relative(source.path, "DetectionEngine")))) << source.path;
  }
}

TEST(Layers, NoFileIncludesWhatStandsAbove) {
  const auto floors = ReadFloors();
  for (const Source& source : ReadSources()) {
    const auto floor = floors.find(Stem(fs::relative(source.path, "DetectionEngine")));
    if (floor == floors.end()) continue;  // a header of plain records: what it includes is checked by its users
    for (const std::string& own : source.own) {
      EXPECT_TRUE(own.starts_with("DetectionEngine/")) << source.path << " includes " << own;
      const auto included = floors.find(Stem(fs::relative(own, "DetectionEngine")));
      if (included != floors.end()) {
        EXPECT_LE(included->second, floor->second) << source.path << " includes " << own << ", which stands above";
      }
    }
  }
}

TEST(Layers, OnlyTheGroundFloorKnowsTheSystem) {
  const std::set<std::string> cHeaders = {"stddef.h", "stdint.h", "uchar.h"};  // of the headers that C reads too
  for (const Source& source : ReadSources()) {
    const std::string room = source.path.parent_path().filename().string();
    if (room == "platform") continue;
    for (const std::string& foreign : source.foreign) {
      const bool isStandard = foreign.find_first_of("/.") == std::string::npos;
      const bool isZlib = room == "configuration" && foreign == "zlib.h";
      EXPECT_TRUE(isStandard || isZlib || cHeaders.contains(foreign)) << source.path << " includes " << foreign;
    }
  }
}

}  // namespace
