// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstdlib>
#include <map>
#include <random>

#include <time.h>
#include <zlib.h>

#include "DetectionEngine/platform/CabinetReader.h"
#include "DetectionEngine/platform/Files.h"
#include "tests/configuration/Packages.h"

namespace zeph {
namespace {

namespace fs = std::filesystem;

std::string RandomBytes(std::size_t size, unsigned seed) {
  std::mt19937 random(seed);
  std::string bytes(size, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

/// A second reader, straight from the format's description: of a cabinet of our own, whose fields it lays open.
class PlainReader {
 public:
  struct File {
    std::string name;
    std::string data;
    std::size_t folder;
    std::uint16_t attributes;

    friend bool operator==(const File&, const File&) = default;
  };

  explicit PlainReader(std::string cabinet) : bytes_(std::move(cabinet)) {
    std::vector<std::string> folders;
    for (std::size_t i = 0; i < Number(26, 2); ++i) {
      const std::size_t record = 36 + 8 * i;
      EXPECT_EQ(Number(record + 6, 2), 1U) << "MSZIP";
      folders.push_back(Inflated(Number(record, 4), Number(record + 4, 2)));
    }
    std::size_t at = Number(16, 4);
    for (std::size_t i = 0; i < Number(28, 2); ++i) {
      File file;
      file.folder = Number(at + 8, 2);
      file.data = folders.at(file.folder).substr(Number(at + 4, 4), Number(at, 4));
      file.attributes = static_cast<std::uint16_t>(Number(at + 14, 2));
      dates.push_back(Number(at + 10, 2) << 16 | Number(at + 12, 2));
      file.name = bytes_.c_str() + at + 16;
      at += 16 + file.name.size() + 1;
      files.push_back(std::move(file));
    }
  }

  [[nodiscard]] std::size_t Number(std::size_t at, std::size_t size) const {
    std::size_t number = 0;
    for (std::size_t i = size; i-- > 0;) number = number << 8 | static_cast<std::uint8_t>(bytes_.at(at + i));
    return number;
  }

  std::vector<File> files;
  std::vector<std::size_t> dates;

 private:
  /// The blocks of a folder, each a deflate stream whose window is the block before it.
  std::string Inflated(std::size_t at, std::size_t blocks) const {
    std::string all;
    std::string previous;
    for (; blocks > 0; --blocks) {
      const std::size_t packed = Number(at + 4, 2);
      std::string block(Number(at + 6, 2), '\0');
      EXPECT_EQ(bytes_.substr(at + 8, 2), "CK");
      EXPECT_LE(packed, 32768U + 12) << "the most that a block may grow to";
      std::uint32_t sum = 0;
      for (std::size_t i = 0; i < packed + 4; i += 4) {  // lengths first, then data; the order doesn't matter
        const std::size_t left = std::min<std::size_t>(4, packed + 4 - i);
        for (std::size_t k = 0; k < left; ++k) {
          const auto byte = static_cast<std::uint8_t>(bytes_.at(at + 4 + i + k));
          sum ^= std::uint32_t{byte} << 8 * (left == 4 ? k : left - 1 - k);
        }
      }
      EXPECT_EQ(Number(at, 4), sum);
      z_stream stream{};
      EXPECT_EQ(inflateInit2(&stream, -MAX_WBITS), Z_OK);
      if (!previous.empty()) {
        inflateSetDictionary(&stream, reinterpret_cast<const Bytef*>(previous.data()),
                             static_cast<uInt>(previous.size()));
      }
      stream.next_in = const_cast<Bytef*>(reinterpret_cast<const Bytef*>(bytes_.data() + at + 10));
      stream.avail_in = static_cast<uInt>(packed - 2);
      stream.next_out = reinterpret_cast<Bytef*>(block.data());
      stream.avail_out = static_cast<uInt>(block.size());
      EXPECT_EQ(inflate(&stream, Z_FINISH), Z_STREAM_END);
      EXPECT_EQ(stream.avail_out, 0U);
      inflateEnd(&stream);
      all += block;
      previous = std::move(block);
      at += 8 + packed;
    }
    return all;
  }

  std::string bytes_;
};

class CabinetTest : public FoldersTest {
 protected:
  CabinetTest() { fs::create_directory(Path("in")); }

  /// Makes files of these names and contents and gives their paths.
  std::vector<std::string> Files(const std::vector<std::pair<std::string, std::string>>& files) {
    std::vector<std::string> paths;
    for (const auto& [name, content] : files) {
      paths.push_back(name == "+" ? name : Path("in/" + name));
      if (name != "+") Fill(paths.back(), content);
    }
    return paths;
  }
  bool Make(const std::vector<std::string>& paths) {
    const auto pointers = Pointers(paths);
    return MakeCabinet(pointers.data(), static_cast<int>(pointers.size()), "test.cab", Path("").c_str());
  }
  /// Every file of these names, as our own reader has it.
  static std::map<std::string, std::string> Read(const std::string& cabinet, const std::vector<std::string>& names) {
    CabinetReader reader(cabinet);
    EXPECT_TRUE(reader.Open()) << reader.Error();
    std::map<std::string, std::string> files;
    for (const std::string& name : names) files[name] = reader.Extract(name, kPackageCeiling).value_or(reader.Error());
    return files;
  }
};

Extraction Extract(const std::string& cabinet, std::size_t ceiling = kPackageCeiling) {
  return ExtractCabinet(cabinet, "test.cab", ceiling);
}

TEST_F(CabinetTest, IsReadBackByOtherReadersAndOurOwn) {
  std::string repeating;  // of a period that only the window of the block before can serve
  for (int i = 0; i < 8; ++i) repeating += RandomBytes(30000, 1);
  const std::vector<std::pair<std::string, std::string>> files = {{"text.txt", std::string(100000, 'a')},
                                                                  {"empty", ""},
                                                                  {"random", RandomBytes(70000, 2)},
                                                                  {"+", ""},
                                                                  {"repeating", repeating},
                                                                  {"one", "x"},
                                                                  {"block", RandomBytes(32768, 3)}};
  ASSERT_TRUE(Make(Files(files)));
  const std::string cabinet = Content(Path("test.cab"));
  std::vector<PlainReader::File> expected;
  std::map<std::string, std::string> contents;
  std::size_t folder = 0;
  for (const auto& [name, content] : files) {
    if (name == "+") {
      ++folder;
    } else {
      expected.push_back({name, content, folder, 0x20});
      contents[name] = content;
    }
  }
  EXPECT_EQ(PlainReader(cabinet).files, expected);
  EXPECT_LT(cabinet.size(), 180000U) << "the window isn't used";
  // Backwards, so that each means to begin anew.
  EXPECT_EQ(Read(cabinet, {"block", "one", "repeating", "random", "empty", "text.txt"}), contents);
  ASSERT_EQ(std::system(("cabextract -q -d " + Path("out") + " " + Path("test.cab") + " > /dev/null").c_str()), 0);
  for (const auto& [name, content] : contents) EXPECT_EQ(Content(Path("out/" + name)), content) << name;
}

TEST_F(CabinetTest, HasItsFixedProperties) {
  const auto paths = Files({{".hidden", "x"}, {"C:\\data\\locked", "y"}});
  ASSERT_TRUE(SetFileMode(paths[1], 0444));
  tm local{};  // 2021-12-31 23:58:59
  local.tm_year = 121;
  local.tm_mon = 11;
  local.tm_mday = 31;
  local.tm_hour = 23;
  local.tm_min = 58;
  local.tm_sec = 59;
  local.tm_isdst = -1;
  for (const std::string& path : paths) ASSERT_TRUE(SetLastWriteTime(path, std::int64_t{mktime(&local)} * 1000000000));
  ASSERT_TRUE(Make(paths));
  const PlainReader reader(Content(Path("test.cab")));
  const struct {
    const char* name;
    std::size_t at;
    std::size_t size;
    std::size_t value;
  } fields[] = {
      {"length", 8, 4, fs::file_size(Path("test.cab"))},
      {"version", 24, 2, 0x0103},
      {"flags", 30, 2, 0},
      {"set identifier", 32, 2, 0x3045},
      {"number", 34, 2, 1},
  };
  for (const auto& field : fields) EXPECT_EQ(reader.Number(field.at, field.size), field.value) << field.name;
  const std::vector<PlainReader::File> files = {{".hidden", "x", 0, 0x22}, {"locked", "y", 0, 0x21}};
  EXPECT_EQ(reader.files, files);
  const std::size_t date = 41 << 9 | 12 << 5 | 31;
  const std::size_t time = 23 << 11 | 58 << 5 | 29;
  EXPECT_EQ(reader.dates, std::vector<std::size_t>(2, date << 16 | time));
}

TEST_F(CabinetTest, FolderEndsAtItsThresholdAndAtAPlus) {
  const std::string large = RandomBytes(950000, 4);
  const struct {
    const char* name;
    std::vector<std::pair<std::string, std::string>> files;
    std::vector<std::size_t> folders;
  } cases[] = {
      {"a plus", {{"a", "1"}, {"+", ""}, {"b", "2"}}, {0, 1}},
      {"pluses that end nothing", {{"+", ""}, {"a", "1"}, {"+", ""}, {"+", ""}, {"b", "2"}, {"+", ""}}, {0, 1}},
      {"a folder that is full", {{"a", large}, {"b", "2"}, {"c", "3"}}, {0, 1, 1}},
      {"a folder that compresses well", {{"a", std::string(2000000, 'a')}, {"b", "2"}}, {0, 0}},
      {"full and a plus", {{"a", large}, {"+", ""}, {"b", "2"}}, {0, 1}},
  };
  for (const auto& row : cases) {
    ASSERT_TRUE(Make(Files(row.files))) << row.name;
    std::vector<std::size_t> folders;
    for (const auto& file : PlainReader(Content(Path("test.cab"))).files) folders.push_back(file.folder);
    EXPECT_EQ(folders, row.folders) << row.name;
  }
}

TEST_F(CabinetTest, ABadEntryMakesNone) {
  const std::string good = Files({{"good", "x"}})[0];
  const struct {
    const char* name;
    std::vector<const char*> files;
  } cases[] = {
      {"missing", {good.c_str(), "/no/such/file"}},
      {"null", {good.c_str(), nullptr}},
      {"a folder", {good.c_str(), "/tmp"}},
      {"pluses alone", {"+", "+"}},
  };
  for (const auto& row : cases) {
    EXPECT_FALSE(MakeCabinet(row.files.data(), static_cast<int>(row.files.size()), "test.cab", Path("").c_str()))
        << row.name;
  }
  const char* files[] = {good.c_str()};
  EXPECT_FALSE(MakeCabinet(nullptr, 1, "test.cab", Path("").c_str()));
  EXPECT_FALSE(MakeCabinet(files, 0, "test.cab", Path("").c_str()));
  EXPECT_FALSE(MakeCabinet(files, 1, nullptr, Path("").c_str()));
  EXPECT_FALSE(MakeCabinet(files, 1, "test.cab", Path("no/such/folder").c_str()));
  EXPECT_FALSE(fs::exists(Path("test.cab")));
}

TEST_F(CabinetTest, StoredDataInSeveralFoldersIsReadAndTheLastOfANameCounts) {
  const std::string large = RandomBytes(100000, 5);
  const std::string cabinet =
      StoredCabinet({{{"a", "first"}, {"b", large}}, {{"c", large}, {"empty", ""}}, {{"a", "last"}}});
  const std::map<std::string, std::string> expected = {{"a", "last"}, {"b", large}, {"c", large}, {"empty", ""}};
  EXPECT_EQ(Read(cabinet, {"a", "b", "c", "empty"}), expected);
  EXPECT_EQ(Read(cabinet, {"A"})["A"], "there is no such file");
}

TEST(Extraction, TakesThePackedFilesAloneWhateverElseTheCabinetHolds) {
  const Extraction both = Extract(StoredCabinet(
      {{{"../packed2.dat", "1"}, {"/etc/passwd", "2"}, {"packed3.dat", "m"}, {"a\\b", "3"}, {"packed2.dat", "p"}}}));
  EXPECT_EQ(both.refusal, "");
  EXPECT_EQ(both.pack, "p");
  EXPECT_EQ(both.memoryFile, "m");
  const Extraction none = Extract(StoredCabinet({{{"packed2.dat ", "1"}, {"PACKED2.DAT", "2"}}}));
  EXPECT_TRUE(none);
  EXPECT_FALSE(none.pack || none.memoryFile);
}

// What a file costs is what stands before its end in its folder. So many files as a cabinet can name, each of the whole
// folder, cost nothing; a packed file that comes to far more than the cabinet is a bomb.
TEST(Extraction, CostsWhatItsPackedFilesCost) {
  const std::string bytes(60000, 'x');
  EXPECT_TRUE(Extract(StoredCabinet({{{"a", bytes}, {"packed3.dat", "y"}}}), 60001));
  EXPECT_EQ(Extract(StoredCabinet({{{"a", bytes}, {"packed3.dat", "y"}}}), 60000).refusal,
            "packed3.dat is longer than any package's");

  const auto number = [](std::string& cabinet, std::size_t at, std::size_t value, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) cabinet[at + i] = static_cast<char>(value >> (8 * i) & 0xFF);
  };
  constexpr std::size_t kRecord = 16 + sizeof("packed3.dat");
  constexpr std::size_t kRecordsAt = 36 + 8;
  constexpr std::size_t kMost = 65535;
  std::string overlapping = StoredCabinet({{{"packed3.dat", std::string(std::size_t{1} << 20, 'x')}}});
  std::string records;
  for (std::size_t i = 1; i < kMost; ++i) records += overlapping.substr(kRecordsAt, kRecord);
  overlapping.insert(kRecordsAt, records);
  number(overlapping, 28, kMost, 2);
  number(overlapping, 36, kRecordsAt + kMost * kRecord, 4);
  const Extraction extraction = Extract(overlapping);
  EXPECT_EQ(extraction.refusal, "");
  EXPECT_EQ(extraction.memoryFile.value_or("").size(), std::size_t{1} << 20);

  std::string manyFolders = StoredCabinet({{{"packed3.dat", "x"}}});
  manyFolders.insert(kRecordsAt, std::string(8 * (kMost - 1), '\0'));
  number(manyFolders, 16, 36 + 8 * kMost, 4);
  number(manyFolders, 26, kMost, 2);
  EXPECT_EQ(Extract(manyFolders).refusal, "the cabinet has more folders than any package");
}

TEST_F(CabinetTest, EveryTruncationIsRefused) {
  ASSERT_TRUE(Make(Files({{"packed2.dat", std::string(40000, 'a')}, {"+", ""}, {"packed3.dat", "second"}})));
  const std::string cabinet = Content(Path("test.cab"));
  for (std::size_t length = 0; length < cabinet.size(); ++length) {
    const Extraction extraction = Extract(cabinet.substr(0, length));
    ASSERT_FALSE(extraction) << length;
    ASSERT_EQ(extraction.refusal == "it is no cabinet", length < 36) << length;
  }
}

TEST_F(CabinetTest, OtherFilesAreRefusedWithTheirReason) {
  std::string otherVersion = StoredCabinet({{{"packed2.dat", "1"}}});
  otherVersion[25] = 2;
  std::string ofASet = StoredCabinet({{{"packed2.dat", "1"}}});  // the next one's name and disk follow the header
  ofASet[30] = 2;
  ofASet.insert(36, std::string("n\0d\0", 4));
  ofASet[16] += 4;
  std::string lzx = StoredCabinet({{{"packed2.dat", "1"}}});
  lzx[42] = 3;
  lzx[43] = 15;
  const struct {
    const char* name;
    std::string bytes;
    const char* refusal;
  } cases[] = {
      {"a ZIP archive", "PK\3\4" + std::string(100, '\0'), "it is no cabinet"},
      {"another version", otherVersion, "it is no cabinet"},
      {"part of a set", ofASet, "the cabinet is a part of a set"},
      {"another compression", lzx, "the cabinet is compressed in a way that isn't read"},
  };
  for (const auto& row : cases) {
    const Extraction extraction = Extract(row.bytes);
    EXPECT_FALSE(extraction) << row.name;
    EXPECT_EQ(extraction.refusal, row.refusal) << row.name;
  }
  EXPECT_EQ(CabExtract("").refusal, "CAB file NULL or empty");
  EXPECT_EQ(CabExtract(Path("missing")).refusal, "it can't be read: No such file or directory");
  EXPECT_EQ(CabExtract(Path("machine")).refusal, "it can't be read: Is a directory");
}

}  // namespace
}  // namespace zeph
