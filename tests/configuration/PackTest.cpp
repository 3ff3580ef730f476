// SPDX-License-Identifier: Apache-2.0
#include <string>
#include <vector>

#include <zlib.h>

#include "tests/configuration/Packages.h"

namespace zeph {
namespace {

std::string Compressed(const std::string& plain) {
  std::string compressed(compressBound(plain.size()), '\0');
  uLongf length = compressed.size();
  EXPECT_EQ(compress(reinterpret_cast<Bytef*>(compressed.data()), &length, reinterpret_cast<const Bytef*>(plain.data()),
                     plain.size()),
            Z_OK);
  compressed.resize(length);
  return compressed;
}

TEST(Inflate, AnswersAsUncompressWithTheSameRoom) {
  std::string plain;
  for (int i = 0; i < 60000; ++i) plain += std::to_string(i);
  const std::string stored = Compressed(plain);
  std::string flipped = stored;
  flipped[stored.size() / 2] ^= 0x10;
  const struct {
    const char* name;
    std::string stored;
    std::size_t room;
  } cases[] = {
      {"just the room", stored, plain.size()},
      {"room to spare", stored, 20 * stored.size()},
      {"a byte too little", stored, plain.size() - 1},
      {"no room", stored, 0},
      {"cut off", stored.substr(0, stored.size() - 1), plain.size()},
      {"half", stored.substr(0, stored.size() / 2), plain.size()},
      {"bytes behind the stream", stored + "more", plain.size()},
      {"a flipped bit", flipped, plain.size()},
      {"nothing", "", 100},
      {"empty content", Compressed(""), 0},
      {"no stream", "not a stream at all", 1000},
  };
  for (const auto& row : cases) {
    std::string expected(row.room, '\0');
    uLongf length = row.room;
    const int result = uncompress(reinterpret_cast<Bytef*>(expected.data()), &length,
                                  reinterpret_cast<const Bytef*>(row.stored.data()), row.stored.size());
    expected.resize(length);
    const auto inflated = Inflate(row.stored, row.room);
    ASSERT_EQ(inflated.has_value(), result == Z_OK) << row.name;
    EXPECT_EQ(inflated.value_or(expected), expected) << row.name;
  }
}

TEST(Inflate, RoomIsTwentyTimesTheStoredSizeUpToTheCeiling) {
  EXPECT_EQ(InflateRoom(0), 0U);
  EXPECT_EQ(InflateRoom(1000), 20000U);
  EXPECT_EQ(InflateRoom(std::size_t{1} << 29), kPackageCeiling);
}

TEST(Pack, FilesComeOutInOrderWithoutTheEmptyOnes) {
  const std::string zeros("a\0b", 3);
  const struct {
    const char* name;
    std::string content;
    std::vector<PackedFile> files;
  } cases[] = {
      {"none", PackOf({}), {}},
      {"two", PackOf({{"SafeList", "x"}, {"Resources.xml", zeros}}), {{"SafeList", "x"}, {"Resources.xml", zeros}}},
      {"equal names", PackOf({{"a", "1"}, {"a", "2"}}), {{"a", "1"}, {"a", "2"}}},
      {"a file without data", PackOf({{"a", ""}, {"b", "2"}}), {{"b", "2"}}},
      {"a file without a name", PackOf({{"", "1"}, {"b", "2"}}), {{"b", "2"}}},
      {"bytes behind the last file", PackOf({{"a", "1"}}) + "more", {{"a", "1"}}},
      {"a negative length takes no bytes", std::string("\1\0\0\0\1\0\0\0a\0\0\0\x80", 13), {}},
  };
  for (const auto& row : cases) EXPECT_EQ(CreateVectorofFileData(row.content), row.files) << row.name;
}

TEST(Pack, ThatEndsEarlyOrClaimsMoreFilesThanItHoldsIsRefused) {
  const std::string content = PackOf({{"SafeList", "data"}, {"a", "more data"}});
  for (std::size_t length = 0; length < content.size(); ++length) {
    EXPECT_FALSE(CreateVectorofFileData(content.substr(0, length))) << length;
  }
  EXPECT_FALSE(CreateVectorofFileData("\xFF\xFF\xFF\xFF" + content.substr(4)));
}

class MakePackTest : public FoldersTest {
 protected:
  /// What is in the pack that is made of these entries; nothing when none is made.
  std::optional<std::vector<PackedFile>> Make(std::vector<const char*> files) {
    if (!MakePack(files.data(), static_cast<int>(files.size()), Path("packed2.dat").c_str())) return std::nullopt;
    return CreateVectorofFileData(OpenPacked(Content(Path("packed2.dat"))).value());
  }
};

TEST_F(MakePackTest, TakesWhatCanBeReadUnderItsNameAlone) {
  std::string text;  // shrinks, but not beyond a reader's room
  for (int i = 0; i < 500; ++i) text += std::to_string(i);
  const std::string list = Path("SafeList");
  const std::string windows = Path("C:\\data\\Resources.xml");
  const std::string empty = Path("empty");
  Fill(list, text);
  Fill(windows, "short");
  Fill(empty, "");
  const std::vector<PackedFile> expected = {{"SafeList", text}, {"Resources.xml", "short"}};
  EXPECT_EQ(Make({list.c_str(), nullptr, Path("missing").c_str(), windows.c_str(), Path("machine").c_str()}), expected);
  EXPECT_EQ(OpenPacked(Content(Path("packed2.dat"))), PackOf(expected));
  EXPECT_EQ(Make({list.c_str(), empty.c_str()}), std::vector<PackedFile>({expected[0]}));
  EXPECT_EQ(OpenPacked(Content(Path("packed2.dat"))), PackOf({expected[0], {"empty", ""}}));
}

TEST_F(MakePackTest, WritesNothingWhenItCannotDoItsWork) {
  const std::string small = Path("a");
  const std::string output = Path("out");
  Fill(small, "xyz");  // doesn't shrink
  const char* files[] = {small.c_str()};
  EXPECT_FALSE(MakePack(files, 1, output.c_str()));
  EXPECT_FALSE(MakePack(files, 0, output.c_str()));
  EXPECT_FALSE(MakePack(nullptr, 1, output.c_str()));
  EXPECT_FALSE(MakePack(files, 1, nullptr));
  EXPECT_FALSE(std::filesystem::exists(output));
  Fill(small, std::string(1000, 'x'));
  EXPECT_FALSE(MakePack(files, 1, Path("no/such/folder").c_str()));
}

TEST_F(MakePackTest, IsNothingUnderAnotherKey) {
  std::string sealed = Compressed(PackOf({{"SafeList", std::string(1000, 'x')}}));
  CI4().Crypt(sealed.data(), sealed.data(), sealed.size(), "another key", 11);
  EXPECT_FALSE(OpenPacked(sealed));
}

}  // namespace
}  // namespace zeph
