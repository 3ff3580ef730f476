// SPDX-License-Identifier: Apache-2.0
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "DetectionEngine/base/Cipher.h"
#include "DetectionEngine/base/Md5Hex.h"
#include "DetectionEngine/base/StringTable.h"
#include "DetectionEngine/platform/CodePage.h"

namespace zeph {
namespace {

std::string Crypt(CI4& cipher, std::string_view key, std::string text) {
  cipher.Crypt(text.data(), text.data(), text.size(), key.data(), key.size());
  return text;
}

std::string FromHex(std::string_view hex) {
  std::string bytes;
  for (std::size_t i = 0; i < hex.size(); i += 2) {
    bytes += static_cast<char>(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16));
  }
  return bytes;
}

TEST(CI4, GivesTheKnownAnswers) {
  const struct {
    std::string key;
    std::string plain;
    std::string cipher;
  } cases[] = {
      {"Key", "Plaintext", "BBF316E8D940AF0AD3"},
      {"Wiki", "pedia", "1021BF0420"},
      {"Secret", "Attack at dawn", "45A01F645FC35B383552544B9BF5"},
      // RFC 6229: 40-bit, 128-bit and 256-bit key, first 16 bytes of the stream
      {FromHex("0102030405"), std::string(16, '\0'), "B2396305F03DC027CCC3524A0A1118A8"},
      {FromHex("0102030405060708090A0B0C0D0E0F10"), std::string(16, '\0'), "9AC7CC9A609D1EF7B2932899CDE41B97"},
      {FromHex("0102030405060708090A0B0C0D0E0F101112131415161718191A1B1C1D1E1F20"), std::string(16, '\0'),
       "EAA6BD25880BF93D3F5D1E4CA2611D91"},
  };
  for (const auto& [key, plain, cipher] : cases) {
    CI4 rc4;
    EXPECT_EQ(Crypt(rc4, key, plain), FromHex(cipher)) << key;
    EXPECT_EQ(Crypt(rc4, key, FromHex(cipher)), plain) << key << ", the same object again";
  }
}

TEST(CI4, KeyRepeatsAndItsFirst256BytesCount) {
  CI4 cipher;
  const std::string text(300, 'x');
  EXPECT_EQ(Crypt(cipher, "k", text), Crypt(cipher, std::string(256, 'k'), text));
  EXPECT_EQ(Crypt(cipher, std::string(256, 'k') + "tail", text), Crypt(cipher, "k", text));
  EXPECT_NE(Crypt(cipher, "kk" + std::string(254, 'l'), text), Crypt(cipher, "k", text));
}

TEST(CI4, WithoutAKeyThePermutationGoesOnFromItsBeginning) {
  CI4 whole, parts, fresh;
  const std::string text(64, '\0');
  Crypt(whole, "key", text);
  const std::string next = Crypt(whole, {}, text);
  Crypt(parts, "key", text);
  EXPECT_EQ(Crypt(parts, {}, text), next);
  EXPECT_NE(next, Crypt(fresh, "key", text));
  EXPECT_EQ(Crypt(fresh, "key", ""), "");
}

TEST(CI4, ConfigurationKeyIsTheTableEntryLowBytesFirst) {
  std::string key;
  for (const char16_t unit : StringEntry(0xAC)) {
    key += static_cast<char>(unit & 0xFF);
    key += static_cast<char>(unit >> 8);
  }
  ASSERT_FALSE(key.empty());
  std::string text = "packed";
  CI4 cipher;
  const std::string expected = Crypt(cipher, key, text);
  void* output = nullptr;
  EXPECT_TRUE(EncryptData(text.data(), text.size(), &output));
  EXPECT_EQ(output, text.data());
  EXPECT_EQ(text, expected);
  EXPECT_TRUE(DecryptData(text.data(), text.size()));
  EXPECT_EQ(text, "packed");
  EXPECT_TRUE(DecryptData(nullptr, 0));
}

TEST(Md5Hex, DigestsTheNarrowForm) {
  const std::pair<std::u16string, std::u16string> cases[] = {
      {u"", u"d41d8cd98f00b204e9800998ecf8427e"},
      {u"abc", u"900150983cd24fb0d6963f7d28e17f72"},
      {u"message digest", u"f96b697d7cb7938d525a2f31aaf161d0"},
      {std::u16string(u"a\0b", 3), u"70350f6027bce3713f6b76473084309b"},
      {u"\u00FC", u"c03410a5204b21cd8229ff754688d743"},
      {u"\xD800", u"d1457b72c3fb323a2671125aef3eab5d"},  // as "?"
  };
  for (const auto& [text, digest] : cases) EXPECT_EQ(Narrow(Md5Hex(text)), Narrow(digest)) << Narrow(text);
}

}  // namespace
}  // namespace zeph
