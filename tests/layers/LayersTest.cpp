// SPDX-License-Identifier: Apache-2.0
// The house keeps its shape: a file includes only what stands on its own floor or below, and only the ground floor
// knows the operating system and its libraries.
#include <algorithm>
#include <filesystem>
#include <fstream>
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

/// The folders from the ground up: those of the library as the build lists its floors, then what uses it.
std::vector<std::string> ReadFloors() {
  std::vector<std::string> floors;
  const std::string build = ReadText(kRoot / "DetectionEngine/CMakeLists.txt");
  const std::regex floor(R"(zeph_floor\(zeph_(\w+))");
  for (std::sregex_iterator it(build.begin(), build.end(), floor), end; it != end; ++it) {
    floors.push_back("DetectionEngine/" + (*it)[1].str());
  }
  floors.insert(floors.end(), {"documents", "authoring", "judging", "gateways", "tools"});
  return floors;
}

/// Which floor a file stands on, counted from the ground. The public headers, straight in DetectionEngine/, are below
/// all: -1. A path that stands on no floor: the number of floors.
int FloorOf(const std::string& path, const std::vector<std::string>& floors) {
  if (path.starts_with("DetectionEngine/") && path.find('/', 16) == std::string::npos) return -1;
  const auto floor = std::find_if(floors.begin(), floors.end(),
                                  [&](const std::string& folder) { return path.starts_with(folder + "/"); });
  return static_cast<int>(floor - floors.begin());
}

struct Source {
  std::string path;  ///< from the root
  std::string room;  ///< name of its folder
  std::vector<std::string> own;
  std::vector<std::string> foreign;
};

std::vector<Source> ReadSources() {
  std::vector<Source> sources;
  const std::regex include(R"re(#include ([<"])([^>"]+)[>"])re");
  for (const char* folder : {"DetectionEngine", "documents", "authoring", "judging", "gateways", "tools"}) {
    for (const auto& entry : fs::recursive_directory_iterator(kRoot / folder)) {
      const std::string ending = entry.path().extension().string();
      if (ending != ".cpp" && ending != ".h") continue;
      Source source{fs::relative(entry.path(), kRoot).generic_string(),
                    entry.path().parent_path().filename().string(), {}, {}};
      const std::string text = ReadText(entry.path());
      for (std::sregex_iterator it(text.begin(), text.end(), include), end; it != end; ++it) {
        ((*it)[1] == "\"" ? source.own : source.foreign).push_back((*it)[2]);
      }
      sources.push_back(std::move(source));
    }
  }
  return sources;
}

TEST(Layers, EveryFileStandsOnAFloor) {
  const auto floors = ReadFloors();
  ASSERT_GT(floors.size(), 8U);
  for (const Source& source : ReadSources()) {
    EXPECT_LT(FloorOf(source.path, floors), static_cast<int>(floors.size())) << source.path;
  }
}

TEST(Layers, NoFileIncludesWhatStandsAbove) {
  const auto floors = ReadFloors();
  for (const Source& source : ReadSources()) {
    for (const std::string& own : source.own) {
      if (own.ends_with(".inc")) continue;  // a part of the file that includes it
      if (source.path == "DetectionEngine/EngineResults.h") continue;  // hands the rules' own records out
      EXPECT_TRUE(fs::exists(kRoot / own)) << source.path << " includes " << own << ", not named from the root";
      EXPECT_LE(FloorOf(own, floors), std::max(0, FloorOf(source.path, floors)))
          << source.path << " includes " << own << ", which stands above";
    }
  }
}

TEST(Layers, OnlyTheGroundFloorKnowsTheSystem) {
  // What the headers that C reads too include, and what the processor and the C library know of characters.
  const std::set<std::string> cHeaders = {"stddef.h", "stdint.h", "uchar.h"};
  const std::set<std::string> ofText = {"emmintrin.h", "locale.h", "wctype.h"};
  for (const Source& source : ReadSources()) {
    if (!source.path.starts_with("DetectionEngine/") || source.room == "platform") continue;
    for (const std::string& foreign : source.foreign) {
      const bool isStandard = foreign.find_first_of("/.") == std::string::npos;
      const bool isZlib = source.room == "configuration" && foreign == "zlib.h";
      const bool isOfText = source.room == "text" && ofText.contains(foreign);
      EXPECT_TRUE(isStandard || isZlib || isOfText || cHeaders.contains(foreign)) << source.path << " includes " << foreign;
    }
  }
}

}  // namespace
