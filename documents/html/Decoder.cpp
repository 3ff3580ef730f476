// SPDX-License-Identifier: Apache-2.0
#include "documents/html/Decoder.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string>

#include <iconv.h>

#include "documents/html/Scan.h"

namespace zeph::html {
namespace {

constexpr char16_t kReplacementCharacter = 0xFFFD;

/// How bytes beyond ASCII are read.
enum class Bytes : std::uint8_t {
  kOwn,     ///< by rules of this file
  kSingle,  ///< each by itself
  kPairs,   ///< in twos, some in more; one that is no character takes a byte beyond ASCII with it
  kShifts,  ///< as escapes before them say
};

struct Encoding {
  std::string_view name;
  const char* iconvName;  ///< null: decoded here
  Bytes bytes;
  std::string_view labels;  ///< between blanks
};

/// The standard's encodings with their labels.
constexpr Encoding kEncodings[] = {
    {"UTF-8", nullptr, Bytes::kOwn, " unicode-1-1-utf-8 unicode11utf8 unicode20utf8 utf-8 utf8 x-unicode20utf8 "},
    {"windows-1252", nullptr, Bytes::kOwn,
     " ansi_x3.4-1968 ascii cp1252 cp819 csisolatin1 ibm819 iso-8859-1 iso-ir-100 iso8859-1 iso88591 iso_8859-1 "
     "iso_8859-1:1987 l1 latin1 us-ascii windows-1252 x-cp1252 "},
    {"UTF-16LE", nullptr, Bytes::kOwn, " csunicode iso-10646-ucs-2 ucs-2 unicode unicodefeff utf-16 utf-16le "},
    {"UTF-16BE", nullptr, Bytes::kOwn, " unicodefffe utf-16be "},
    {"x-user-defined", nullptr, Bytes::kOwn, " x-user-defined "},
    {"replacement", nullptr, Bytes::kOwn,
     " csiso2022kr hz-gb-2312 iso-2022-cn iso-2022-cn-ext iso-2022-kr replacement "},
    {"IBM866", "IBM866", Bytes::kSingle, " 866 cp866 csibm866 ibm866 "},
    {"ISO-8859-2", "ISO-8859-2", Bytes::kSingle,
     " csisolatin2 iso-8859-2 iso-ir-101 iso8859-2 iso88592 iso_8859-2 iso_8859-2:1987 l2 latin2 "},
    {"ISO-8859-3", "ISO-8859-3", Bytes::kSingle,
     " csisolatin3 iso-8859-3 iso-ir-109 iso8859-3 iso88593 iso_8859-3 iso_8859-3:1988 l3 latin3 "},
    {"ISO-8859-4", "ISO-8859-4", Bytes::kSingle,
     " csisolatin4 iso-8859-4 iso-ir-110 iso8859-4 iso88594 iso_8859-4 iso_8859-4:1988 l4 latin4 "},
    {"ISO-8859-5", "ISO-8859-5", Bytes::kSingle,
     " csisolatincyrillic cyrillic iso-8859-5 iso-ir-144 iso8859-5 iso88595 iso_8859-5 iso_8859-5:1988 "},
    {"ISO-8859-6", "ISO-8859-6", Bytes::kSingle,
     " arabic asmo-708 csiso88596e csiso88596i csisolatinarabic ecma-114 iso-8859-6 iso-8859-6-e iso-8859-6-i "
     "iso-ir-127 iso8859-6 iso88596 iso_8859-6 iso_8859-6:1987 "},
    {"ISO-8859-7", "ISO-8859-7", Bytes::kSingle,
     " csisolatingreek ecma-118 elot_928 greek greek8 iso-8859-7 iso-ir-126 iso8859-7 iso88597 iso_8859-7 "
     "iso_8859-7:1987 sun_eu_greek "},
    {"ISO-8859-8", "ISO-8859-8", Bytes::kSingle,
     " csiso88598e csisolatinhebrew hebrew iso-8859-8 iso-8859-8-e iso-ir-138 iso8859-8 iso88598 iso_8859-8 "
     "iso_8859-8:1988 visual "},
    {"ISO-8859-8-I", "ISO-8859-8", Bytes::kSingle, " csiso88598i iso-8859-8-i logical "},
    {"ISO-8859-10", "ISO-8859-10", Bytes::kSingle,
     " csisolatin6 iso-8859-10 iso-ir-157 iso8859-10 iso885910 l6 latin6 "},
    {"ISO-8859-13", "ISO-8859-13", Bytes::kSingle, " iso-8859-13 iso8859-13 iso885913 "},
    {"ISO-8859-14", "ISO-8859-14", Bytes::kSingle, " iso-8859-14 iso8859-14 iso885914 "},
    {"ISO-8859-15", "ISO-8859-15", Bytes::kSingle, " csisolatin9 iso-8859-15 iso8859-15 iso885915 iso_8859-15 l9 "},
    {"ISO-8859-16", "ISO-8859-16", Bytes::kSingle, " iso-8859-16 "},
    {"KOI8-R", "KOI8-R", Bytes::kSingle, " cskoi8r koi koi8 koi8-r koi8_r "},
    {"KOI8-U", "KOI8-U", Bytes::kSingle, " koi8-ru koi8-u "},
    {"macintosh", "MACINTOSH", Bytes::kSingle, " csmacintosh mac macintosh x-mac-roman "},
    {"windows-874", "CP874", Bytes::kSingle, " dos-874 iso-8859-11 iso8859-11 iso885911 tis-620 windows-874 "},
    {"windows-1250", "CP1250", Bytes::kSingle, " cp1250 windows-1250 x-cp1250 "},
    {"windows-1251", "CP1251", Bytes::kSingle, " cp1251 windows-1251 x-cp1251 "},
    {"windows-1253", "CP1253", Bytes::kSingle, " cp1253 windows-1253 x-cp1253 "},
    {"windows-1254", "CP1254", Bytes::kSingle,
     " cp1254 csisolatin5 iso-8859-9 iso-ir-148 iso8859-9 iso88599 iso_8859-9 iso_8859-9:1989 l5 latin5 windows-1254 "
     "x-cp1254 "},
    {"windows-1255", "CP1255", Bytes::kSingle, " cp1255 windows-1255 x-cp1255 "},
    {"windows-1256", "CP1256", Bytes::kSingle, " cp1256 windows-1256 x-cp1256 "},
    {"windows-1257", "CP1257", Bytes::kSingle, " cp1257 windows-1257 x-cp1257 "},
    {"windows-1258", "CP1258", Bytes::kSingle, " cp1258 windows-1258 x-cp1258 "},
    {"x-mac-cyrillic", "MAC-UK", Bytes::kSingle, " x-mac-cyrillic x-mac-ukrainian "},
    {"GBK", "GB18030", Bytes::kPairs,
     " chinese csgb2312 csiso58gb231280 gb2312 gb_2312 gb_2312-80 gbk iso-ir-58 x-gbk "},
    {"gb18030", "GB18030", Bytes::kPairs, " gb18030 "},
    {"Big5", "BIG5-HKSCS", Bytes::kPairs, " big5 big5-hkscs cn-big5 csbig5 x-x-big5 "},
    {"EUC-JP", "EUC-JP-MS", Bytes::kPairs, " cseucpkdfmtjapanese euc-jp x-euc-jp "},
    {"ISO-2022-JP", "ISO-2022-JP", Bytes::kShifts, " csiso2022jp iso-2022-jp "},
    {"Shift_JIS", "CP932", Bytes::kPairs, " csshiftjis ms932 ms_kanji shift-jis shift_jis sjis windows-31j x-sjis "},
    {"EUC-KR", "CP949", Bytes::kPairs,
     " cseuckr csksc56011987 euc-kr iso-ir-149 korean ks_c_5601-1987 ks_c_5601-1989 ksc5601 ksc_5601 windows-949 "}};
constexpr const Encoding* kUtf8 = &kEncodings[0];
constexpr const Encoding* kWindows1252 = &kEncodings[1];
constexpr const Encoding* kUtf16Le = &kEncodings[2];
constexpr const Encoding* kUtf16Be = &kEncodings[3];
constexpr const Encoding* kUserDefined = &kEncodings[4];
constexpr const Encoding* kReplacement = &kEncodings[5];

constexpr std::array<char16_t, 32> kWindows1252High = {0x20AC, 0x81,   0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                                       0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x8D,   0x017D, 0x8F,
                                                       0x90,   0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                                       0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x9D,   0x017E, 0x0178};

bool IsBlank(char c) noexcept { return c == ' ' || c == '\t' || c == '\n' || c == '\f' || c == '\r'; }
char Lower(char c) noexcept { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }

const Encoding* FindEncoding(std::string_view label) {
  while (!label.empty() && IsBlank(label.front())) label.remove_prefix(1);
  while (!label.empty() && IsBlank(label.back())) label.remove_suffix(1);
  if (label.empty() || label.size() > 40 || label.find(' ') != std::string_view::npos) return nullptr;
  std::string wanted = " ";
  for (const char c : label) wanted += Lower(c);
  wanted += ' ';
  for (const Encoding& encoding : kEncodings) {
    if (encoding.labels.find(wanted) != std::string_view::npos) return &encoding;
  }
  return nullptr;
}

/// Looks for a META that names the encoding, as browsers do before they parse: comments and the attributes of other
/// tags passed over.
class Prescan {
 public:
  /// skipText: also what isn't read as markup is passed over, as the parser will.
  explicit Prescan(std::string_view bytes, bool skipText) : bytes_(bytes), skipText_(skipText) {}

  const Encoding* Find() {
    for (;;) {
      at_ = bytes_.find('<', at_);
      if (at_ == std::string_view::npos) return nullptr;
      if (StartsWith("<!--")) {
        if (!PassOver("-->", 2)) return nullptr;
      } else if (StartsWith("<meta") && at_ + 5 < bytes_.size() &&
                 (IsBlank(bytes_[at_ + 5]) || bytes_[at_ + 5] == '/')) {
        at_ += 6;
        if (const Encoding* const found = Meta()) return found;
      } else if (at_ + 1 < bytes_.size() && IsLetter(bytes_[at_ + 1])) {
        if (!Tag()) return nullptr;
      } else if (StartsWith("</") && at_ + 2 < bytes_.size() && IsLetter(bytes_[at_ + 2])) {
        at_ += 2;
        SkipTag();
      } else if (StartsWith("<!") || StartsWith("</") || StartsWith("<?")) {
        if (!PassOver(">", 0)) return nullptr;
      } else {
        ++at_;
      }
    }
  }

 private:
  struct Item {
    std::string_view name;
    std::string_view value;
  };
  /// More attributes of one META aren't looked at.
  static constexpr std::size_t kMaxAttributes = 32;

  static bool IsLetter(char c) noexcept { return Lower(c) >= 'a' && Lower(c) <= 'z'; }
  static bool Equals(std::string_view text, std::string_view lower) {
    return std::ranges::equal(text, lower, {}, [](char c) { return Lower(c); });
  }
  [[nodiscard]] bool StartsWith(std::string_view lower) const {
    return Equals(bytes_.substr(at_, lower.size()), lower);
  }
  bool PassOver(std::string_view mark, std::size_t from) {
    const std::size_t found = bytes_.find(mark, at_ + from);
    if (found == std::string_view::npos) return false;
    at_ = found + mark.size();
    return true;
  }
  void SkipTag() {
    while (at_ < bytes_.size() && !IsBlank(bytes_[at_]) && bytes_[at_] != '>') ++at_;
    while (Attribute()) {
    }
  }

  /// A start tag and, if asked, the text that it begins; false at the end.
  bool Tag() {
    const std::size_t begin = at_ + 1;
    while (at_ < bytes_.size() && !IsBlank(bytes_[at_]) && bytes_[at_] != '/' && bytes_[at_] != '>') ++at_;
    const std::string_view name = bytes_.substr(begin, at_ - begin);
    while (Attribute()) {
    }
    if (!skipText_) return true;
    constexpr std::string_view kTexts[] = {"script", "style",    "title",   "textarea", "xmp",
                                           "iframe", "noframes", "noembed", "noscript"};
    const auto* const text = std::ranges::find_if(kTexts, [&](std::string_view item) { return Equals(name, item); });
    if (text == std::end(kTexts)) return true;
    for (;;) {
      at_ = bytes_.find("</", at_);
      if (at_ == std::string_view::npos) return false;
      at_ += 2;
      if (StartsWith(*text)) return true;
    }
  }

  std::optional<Item> Attribute() {
    while (at_ < bytes_.size() && (IsBlank(bytes_[at_]) || bytes_[at_] == '/')) ++at_;
    if (at_ >= bytes_.size() || bytes_[at_] == '>') return std::nullopt;
    Item item;
    std::size_t begin = at_;
    while (at_ < bytes_.size()) {
      const char c = bytes_[at_];
      if ((c == '=' && at_ != begin) || IsBlank(c) || c == '/' || c == '>') break;
      ++at_;
    }
    item.name = bytes_.substr(begin, at_ - begin);
    while (at_ < bytes_.size() && IsBlank(bytes_[at_])) ++at_;
    if (at_ >= bytes_.size() || bytes_[at_] != '=') return item;
    ++at_;
    while (at_ < bytes_.size() && IsBlank(bytes_[at_])) ++at_;
    if (at_ >= bytes_.size()) return std::nullopt;
    if (const char quote = bytes_[at_]; quote == '"' || quote == '\'') {
      begin = ++at_;
      at_ = bytes_.find(quote, at_);
      if (at_ == std::string_view::npos) {
        at_ = bytes_.size();
        return std::nullopt;
      }
      item.value = bytes_.substr(begin, at_++ - begin);
    } else {
      begin = at_;
      while (at_ < bytes_.size() && !IsBlank(bytes_[at_]) && bytes_[at_] != '>') ++at_;
      item.value = bytes_.substr(begin, at_ - begin);
    }
    return item;
  }

  /// The encoding that a content attribute names.
  static const Encoding* FromContent(std::string_view written) {
    std::string content(written.substr(0, 1024));
    std::ranges::transform(content, content.begin(), [](char c) { return Lower(c); });
    for (std::size_t at = content.find("charset"); at != std::string::npos; at = content.find("charset", at)) {
      at += 7;
      while (at < content.size() && IsBlank(content[at])) ++at;
      if (at >= content.size() || content[at] != '=') continue;
      ++at;
      while (at < content.size() && IsBlank(content[at])) ++at;
      if (at >= content.size()) return nullptr;
      std::size_t end = 0;
      if (content[at] == '"' || content[at] == '\'') {
        end = content.find(content[at], at + 1);
        if (end == std::string::npos) return nullptr;
        ++at;
      } else {
        end = std::min(content.find_first_of(" \t\n\f\r;", at), content.size());
      }
      return FindEncoding(std::string_view(content).substr(at, end - at));
    }
    return nullptr;
  }

  const Encoding* Meta() {
    bool gotPragma = false;
    std::optional<bool> needPragma;
    const Encoding* found = nullptr;
    std::array<std::string_view, kMaxAttributes> seen;
    std::size_t count = 0;
    while (const std::optional<Item> item = Attribute()) {
      const auto same = [&](std::string_view name) {
        return std::ranges::equal(
            name, item->name, {}, [](char c) { return Lower(c); }, [](char c) { return Lower(c); });
      };
      if (count == seen.size() || std::any_of(seen.begin(), seen.begin() + count, same)) continue;
      seen[count++] = item->name;
      if (Equals(item->name, "http-equiv")) {
        gotPragma = gotPragma || Equals(item->value, "content-type");
      } else if (Equals(item->name, "content")) {
        if (const Encoding* const named = FromContent(item->value); named != nullptr && found == nullptr) {
          found = named;
          needPragma = true;
        }
      } else if (Equals(item->name, "charset")) {
        found = FindEncoding(item->value);
        needPragma = false;
      }
    }
    if (!needPragma || (*needPragma && !gotPragma) || found == nullptr) return nullptr;
    if (found == kUtf16Le || found == kUtf16Be) return kUtf8;  // whoever can read this META reads no 16-bit text
    return found == kUserDefined ? kWindows1252 : found;
  }

  std::string_view bytes_;
  std::size_t at_ = 0;
  bool skipText_;
};

/// The META's encoding. Browsers look for it in the first bytes; a later one makes them begin anew.
const Encoding* FindMeta(std::string_view bytes) {
  constexpr std::size_t kFirst = 1024;
  const Encoding* const early = Prescan(bytes.substr(0, kFirst), false).Find();
  if (early != nullptr || bytes.size() <= kFirst) return early;
  // Few pages have a META so late: the long look is for these.
  for (std::size_t at = kFirst - 5; (at = bytes.find('<', at)) != std::string_view::npos; ++at) {
    const std::string_view tag = bytes.substr(at + 1, 4);
    if (std::ranges::equal(tag, std::string_view("meta"), {}, [](char c) { return Lower(c); })) {
      return Prescan(bytes, true).Find();
    }
  }
  return nullptr;
}

/// 16-bit text without a mark: markup is mostly ASCII, of which every second byte is zero there. Null for other text.
const Encoding* FindUtf16(std::string_view bytes) {
  constexpr std::size_t kLooked = 256;
  constexpr std::size_t kLeast = 8;
  const std::size_t length = std::min(bytes.size(), kLooked) & ~std::size_t{1};
  if (length < kLeast) return nullptr;
  std::size_t little = 0;
  std::size_t big = 0;
  for (std::size_t i = 0; i < length; i += 2) {
    little += bytes[i] != 0 && bytes[i + 1] == 0 ? 1U : 0U;
    big += bytes[i] == 0 && bytes[i + 1] != 0 ? 1U : 0U;
  }
  // Three of four pairs, and hardly any the other way round.
  const auto rules = [length](std::size_t these, std::size_t others) {
    return 8 * these >= 3 * length && 16 * others <= length;
  };
  return rules(little, big) ? kUtf16Le : rules(big, little) ? kUtf16Be : nullptr;
}

/// Copies ASCII text wide until a byte that isn't, a line end of old, or the end.
inline void WidenRun(const char*& source, const char* end, char16_t*& target) noexcept {
#if defined(__SSE2__)
  const __m128i zero = _mm_setzero_si128();
  while (end - source >= 16) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(source));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(target), _mm_unpacklo_epi8(block, zero));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(target + 8), _mm_unpackhi_epi8(block, zero));
    const auto mask = static_cast<unsigned>(_mm_movemask_epi8(block)) |
                      static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(block, _mm_set1_epi8('\r'))));
    const auto count = mask == 0 ? std::ptrdiff_t{16} : std::ptrdiff_t{__builtin_ctz(mask)};
    source += count;
    target += count;
    if (mask != 0) return;
  }
#endif
  while (source != end && static_cast<unsigned char>(*source) < 0x80 && *source != '\r') {
    *target++ = static_cast<unsigned char>(*source++);
  }
}

/// At a byte that is no ASCII: the bytes of one character of UTF-8, or of the longest beginning of one.
struct Sequence {
  std::size_t length;
  char32_t codePoint;  ///< 0: not valid
  bool cutOff;         ///< the text ends within it
};
Sequence ReadSequence(const char* at, const char* end) noexcept {
  const auto byte = [at](std::size_t i) { return static_cast<unsigned char>(at[i]); };
  const unsigned lead = byte(0);
  const std::size_t need = lead >= 0xC2 && lead < 0xE0   ? 2
                           : lead >= 0xE0 && lead < 0xF0 ? 3
                           : lead >= 0xF0 && lead < 0xF5 ? 4
                                                         : 0;
  if (need == 0) return {1, 0, false};
  const auto have = static_cast<std::size_t>(end - at);
  char32_t codePoint = lead & (0x7FU >> need);
  for (std::size_t i = 1; i < need; ++i) {
    if (i >= have) return {i, 0, true};
    unsigned low = 0x80;
    unsigned high = 0xBF;
    if (i == 1) {
      low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
      high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    }
    if (byte(i) < low || byte(i) > high) return {i, 0, false};
    codePoint = codePoint << 6 | (byte(i) & 0x3F);
  }
  return {need, codePoint, false};
}

/// False, if asked to be strict, at the first byte that is no UTF-8.
bool DecodeUtf8(std::string_view bytes, GrowArray<char16_t>& out, bool strict) {
  const char* source = bytes.data();
  const char* const end = source + bytes.size();
  out.Reserve(bytes.size() + kScanPadding);
  char16_t* const begin = out.Extend(bytes.size() + kScanPadding);
  char16_t* target = begin;
  bool beyondAscii = false;
  for (;;) {
    WidenRun(source, end, target);
    if (source == end) break;
    if (*source == '\r') {
      *target++ = u'\n';
      ++source;
      if (source != end && *source == '\n') ++source;
      continue;
    }
    while (source != end && static_cast<unsigned char>(*source) >= 0x80) {
      const Sequence sequence = ReadSequence(source, end);
      // A page that was cut off within its last character is still UTF-8.
      if (sequence.codePoint == 0 && strict && !(sequence.cutOff && beyondAscii)) return false;
      beyondAscii = true;
      source += sequence.length;
      const char32_t c = sequence.codePoint == 0 ? kReplacementCharacter : sequence.codePoint;
      if (c < 0x10000) {
        *target++ = static_cast<char16_t>(c);
      } else {
        *target++ = static_cast<char16_t>(0xD7C0 + (c >> 10));
        *target++ = static_cast<char16_t>(0xDC00 + (c & 0x3FF));
      }
    }
  }
  out.Truncate(static_cast<std::size_t>(target - begin));
  return true;
}

template <class High>
void DecodeBytes(std::string_view bytes, GrowArray<char16_t>& out, High high) {
  const char* source = bytes.data();
  const char* const end = source + bytes.size();
  out.Reserve(bytes.size() + kScanPadding);
  char16_t* const begin = out.Extend(bytes.size() + kScanPadding);
  char16_t* target = begin;
  for (;;) {
    WidenRun(source, end, target);
    if (source == end) break;
    if (*source == '\r') {
      *target++ = u'\n';
      ++source;
      if (source != end && *source == '\n') ++source;
    } else {
      *target++ = high(static_cast<unsigned char>(*source++));
    }
  }
  out.Truncate(static_cast<std::size_t>(target - begin));
}

/// What the other decoders leave to be done: one kind of line end, no half of a pair.
void Normalize(GrowArray<char16_t>& text) {
  std::size_t kept = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    char16_t c = text[i];
    if (c == u'\r') {
      c = u'\n';
      if (i + 1 < text.size() && text[i + 1] == u'\n') ++i;
    } else if (c >= 0xD800 && c < 0xE000) {
      if (c < 0xDC00 && i + 1 < text.size() && (text[i + 1] & 0xFC00) == 0xDC00) {
        text[kept++] = c;
        c = text[++i];
      } else {
        c = kReplacementCharacter;
      }
    }
    text[kept++] = c;
  }
  text.Truncate(kept);
}

void DecodeUtf16(std::string_view bytes, GrowArray<char16_t>& out, bool bigEndian) {
  const std::size_t units = bytes.size() / 2;
  char16_t* const target = out.Extend(units + bytes.size() % 2);
  for (std::size_t i = 0; i < units; ++i) {
    const auto first = static_cast<unsigned char>(bytes[2 * i]);
    const auto second = static_cast<unsigned char>(bytes[2 * i + 1]);
    target[i] = static_cast<char16_t>(bigEndian ? first << 8 | second : second << 8 | first);
  }
  if (bytes.size() % 2 != 0) target[units] = kReplacementCharacter;
  Normalize(out);
}

struct CloseConverter {
  void operator()(void* converter) const noexcept { iconv_close(converter); }
};

/// A byte that the encoding standard reads and iconv doesn't, or reads otherwise.
struct Reading {
  std::string_view encoding;
  unsigned char byte;
  char16_t character;
};
constexpr Reading kReadings[] = {
    {"macintosh", 0xC6, 0x2206}, {"macintosh", 0xF0, 0xF8FF}, {"x-mac-cyrillic", 0xFF, 0x20AC},
    {"KOI8-U", 0xAE, 0x045E},    {"KOI8-U", 0xBE, 0x040E},    {"windows-1255", 0xCA, 0x05BA},
    {"GBK", 0x80, 0x20AC},       {"gb18030", 0x80, 0x20AC},   {"Shift_JIS", 0x80, 0x0080}};
const Reading* FindReading(std::string_view encoding, unsigned char byte) {
  const auto* const found = std::ranges::find_if(
      kReadings, [&](const Reading& item) { return item.byte == byte && item.encoding == encoding; });
  return found == std::end(kReadings) ? nullptr : found;
}

/// The upper half of an encoding of single bytes; false when the system doesn't know it.
bool MakeTable(const Encoding& encoding, std::array<char16_t, 128>& table) {
  const iconv_t opened = iconv_open("UTF-16LE", encoding.iconvName);
  if (opened == reinterpret_cast<iconv_t>(-1)) return false;
  const std::unique_ptr<void, CloseConverter> converter(opened);
  // The Windows code pages keep control characters where they have nothing; other gaps are none.
  const bool keepsControls = encoding.name.starts_with("windows-");
  for (unsigned i = 0; i < 128; ++i) {
    char byte = static_cast<char>(i + 128);
    char* source = &byte;
    std::size_t left = 1;
    char16_t unit = 0;
    char* target = reinterpret_cast<char*>(&unit);
    std::size_t room = sizeof unit;
    iconv(opened, nullptr, nullptr, nullptr, nullptr);
    const bool read = iconv(opened, &source, &left, &target, &room) != static_cast<std::size_t>(-1) &&
                      (room == 0 || (iconv(opened, nullptr, nullptr, &target, &room), room == 0));
    const Reading* const own = FindReading(encoding.name, static_cast<unsigned char>(byte));
    table[i] = own != nullptr              ? own->character
               : read                      ? unit
               : keepsControls && i < 0x20 ? static_cast<char16_t>(i + 128)
                                           : kReplacementCharacter;
  }
  return true;
}

/// How many bytes stand for one U+FFFD where iconv finds no character. A byte of ASCII is never lost with what stands
/// before it.
std::size_t BytesOfError(const Encoding& encoding, const char* source, std::size_t left) {
  if (encoding.bytes != Bytes::kPairs) return 1;
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(source[i]); };
  const bool sjis = encoding.name == "Shift_JIS";
  const unsigned lead = byte(0);
  const bool leads = lead > 0x80 && lead < (sjis ? 0xFD : 0xFF) && !(sjis && lead >= 0xA0 && lead < 0xE0);
  if (!leads || left < 2 || byte(1) < 0x80) return 1;
  const bool three = encoding.name == "EUC-JP" && lead == 0x8F && byte(1) >= 0xA1 && left > 2 && byte(2) >= 0x80;
  return three ? 3 : 2;
}

bool DecodeByIconv(std::string_view bytes, GrowArray<char16_t>& out, const Encoding& encoding) {
  const iconv_t opened = iconv_open("UTF-16LE", encoding.iconvName);
  if (opened == reinterpret_cast<iconv_t>(-1)) return false;
  const std::unique_ptr<void, CloseConverter> converter(opened);
  char* source = const_cast<char*>(bytes.data());  // iconv doesn't write there
  std::size_t left = bytes.size();
  bool flushing = false;
  for (;;) {
    std::array<char16_t, 4096> buffer;
    char* target = reinterpret_cast<char*>(buffer.data());
    std::size_t room = sizeof buffer;
    const std::size_t result =
        flushing ? iconv(opened, nullptr, nullptr, &target, &room) : iconv(opened, &source, &left, &target, &room);
    const int error = errno;
    const std::size_t units = (sizeof buffer - room) / 2;
    if (units != 0) std::memcpy(out.Extend(units), buffer.data(), 2 * units);
    if (result != static_cast<std::size_t>(-1)) {
      if (flushing) break;
      flushing = true;
    } else if (error == E2BIG && units != 0) {
      continue;
    } else {
      if (flushing) break;
      const Reading* const own = left == 0 ? nullptr : FindReading(encoding.name, static_cast<unsigned char>(*source));
      out.Push(own != nullptr ? own->character : kReplacementCharacter);
      if (left != 0) {
        const std::size_t length = own != nullptr    ? 1
                                   : error == EINVAL ? left  // the text ends within a character
                                                     : BytesOfError(encoding, source, left);
        source += length;
        left -= length;
      }
      iconv(opened, nullptr, nullptr, nullptr, nullptr);
    }
  }
  Normalize(out);
  return true;
}

const Encoding* EncodingOf(std::string_view& bytes, std::string_view charset) {
  if (bytes.starts_with("\xEF\xBB\xBF")) {
    bytes.remove_prefix(3);
    return kUtf8;
  }
  if (bytes.starts_with("\xFE\xFF")) {
    bytes.remove_prefix(2);
    return kUtf16Be;
  }
  if (bytes.starts_with("\xFF\xFE")) {
    bytes.remove_prefix(2);
    return kUtf16Le;
  }
  if (const Encoding* const given = FindEncoding(charset)) return given;
  if (const Encoding* const wide = FindUtf16(bytes)) return wide;
  return FindMeta(bytes);
}

}  // namespace

DecodedMarkup DecodeMarkup(std::string_view bytes, std::string_view charset) {
  DecodedMarkup result;
  bytes = bytes.substr(0, kMaxMarkup);
  const Encoding* encoding = EncodingOf(bytes, charset);
  if (encoding == nullptr) {
    encoding = DecodeUtf8(bytes, result.text, true) ? kUtf8 : kWindows1252;
    if (encoding == kWindows1252) result.text.Truncate(0);
  } else if (encoding == kUtf8) {
    DecodeUtf8(bytes, result.text, false);
  } else if (encoding == kUtf16Le || encoding == kUtf16Be) {
    DecodeUtf16(bytes, result.text, encoding == kUtf16Be);
  } else if (encoding == kUserDefined) {
    DecodeBytes(bytes, result.text, [](unsigned char byte) { return static_cast<char16_t>(0xF780 + byte - 0x80); });
  } else if (encoding == kReplacement) {
    if (!bytes.empty()) result.text.Push(kReplacementCharacter);  // encodings that hide markup from filters
  } else if (encoding->bytes == Bytes::kSingle) {
    std::array<char16_t, 128> table;
    if (MakeTable(*encoding, table)) {
      DecodeBytes(bytes, result.text, [&table](unsigned char byte) { return table[byte - 0x80U]; });
    } else {
      encoding = kWindows1252;
    }
  } else if (encoding->iconvName != nullptr && !DecodeByIconv(bytes, result.text, *encoding)) {
    result.text.Truncate(0);
    encoding = kWindows1252;
  }
  if (encoding == kWindows1252) {
    DecodeBytes(bytes, result.text, [](unsigned char byte) {
      return byte < 0xA0 ? kWindows1252High[byte - 0x80U] : static_cast<char16_t>(byte);
    });
  }
  const std::size_t length = result.text.size();
  char16_t* const padding = result.text.Extend(kScanPadding);
  std::fill_n(padding, kScanPadding, u'\0');
  result.text.Truncate(length);
  result.encoding = encoding->name;
  return result;
}

bool IsEncoding(std::string_view label) { return FindEncoding(label) != nullptr; }

}  // namespace zeph::html
