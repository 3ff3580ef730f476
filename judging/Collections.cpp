// SPDX-License-Identifier: Apache-2.0
#include "judging/Collections.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <string_view>
#include <utility>
#include <vector>

#include <glib.h>
#include <zlib.h>

#include "DetectionEngine/platform/CodePage.h"
#include "documents/JsonReader.h"
#include "judging/ByteSource.h"
#include "judging/Letter.h"
#include "judging/Pages.h"
#include "judging/TypedAddress.h"

namespace zeph {

namespace {

constexpr std::size_t kLongestLine = 64 * 1024;
constexpr std::size_t kMaxHeaders = 64 * 1024;
/// Enough to see what a file is.
constexpr std::size_t kFront = 4096;

constexpr char Lower(char c) noexcept { return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c; }
constexpr bool IsDigit(char c) noexcept { return c >= '0' && c <= '9'; }

std::string Lowered(std::string_view text) {
  std::string lower(text);
  std::ranges::transform(lower, lower.begin(), Lower);
  return lower;
}

std::string_view Trimmed(std::string_view text) {
  constexpr std::string_view kBlank = " \t\r\n";
  const std::size_t begin = text.find_first_not_of(kBlank);
  return begin == std::string_view::npos ? "" : text.substr(begin, text.find_last_not_of(kBlank) - begin + 1);
}

std::string TooLong() { return "longer than the " + std::to_string(kMaxEntry >> 20) + " MiB that are read of one"; }

/// What the readers of all kinds have in common: their source, and what is said at its end.
class Reader : public Collection {
 public:
  Reader(std::unique_ptr<ByteSource> source, std::string name, std::string_view nothing)
      : source_(std::move(source)), name_(std::move(name)), nothing_(nothing) {}

  std::optional<Input> Next() final {
    if (ended_) return std::nullopt;
    if (fault_.empty()) {
      if (std::optional<Input> entry = Read()) {
        isEmpty_ = false;
        return entry;
      }
    }
    ended_ = true;
    if (!source_->Failure().empty()) {
      fault_ = "what follows can't be read: " + source_->Failure();
    } else if (fault_.empty() && isEmpty_) {
      fault_ = nothing_;
    }
    return fault_.empty() ? std::nullopt : std::optional(Input{name_, "", fault_});
  }

 protected:
  /// Nothing at the end.
  virtual std::optional<Input> Read() = 0;

  [[nodiscard]] Input Refused(std::string_view label, std::string why) const {
    return {name_ + ": " + std::string(label), "", std::move(why)};
  }
  [[nodiscard]] Input Entry(std::string_view label, Content content) const {
    Input input{name_ + ": " + std::string(label), "", ""};
    input.content = std::move(content);
    return input;
  }
  /// Nothing behind this place can be understood.
  void Break(std::string_view why) {
    fault_ = std::string(why) + " at byte " + std::to_string(source_->Position()) + "; what follows is left out";
  }
  [[nodiscard]] ByteSource& Source() noexcept { return *source_; }
  [[nodiscard]] const std::string& Name() const noexcept { return name_; }

 private:
  std::unique_ptr<ByteSource> source_;
  std::string name_;
  std::string nothing_;
  std::string fault_;
  bool isEmpty_ = true;
  bool ended_ = false;
};

// --- mbox

/// "From somebody Mon Jan  1 12:00:00 2024": what stands in front of each letter.
bool IsSeparator(std::string_view line) {
  if (!line.starts_with("From ")) return false;
  for (std::size_t colon = line.find(':'); colon != std::string_view::npos; colon = line.find(':', colon + 1)) {
    if (colon > 0 && colon + 1 < line.size() && IsDigit(line[colon - 1]) && IsDigit(line[colon + 1])) return true;
  }
  return false;
}

class MboxReader final : public Reader {
 public:
  MboxReader(std::unique_ptr<ByteSource> source, std::string name)
      : Reader(std::move(source), std::move(name), "no letter in it") {}

 private:
  std::optional<Input> Read() override {
    std::string letter;
    std::string line;
    bool isLong = false;
    bool isAfterEmpty = true;
    bool isStart = true;  // of a line
    while (Source().ReadLine(kLongestLine, line)) {
      const bool isSeparator = isStart && isAfterEmpty && IsSeparator(line);
      const bool wasStart = isStart;
      isStart = line.back() == '\n';
      isAfterEmpty = wasStart && (line == "\n" || line == "\r\n");
      if (isSeparator && !std::exchange(isOpen_, true)) continue;
      if (isSeparator) return Done(std::move(letter), isLong);
      // Lines that would look like a separator were written with ">" in front.
      std::string_view kept = line;
      if (wasStart && kept.front() == '>') {
        const std::size_t text = kept.find_first_not_of('>');
        if (text != std::string_view::npos && kept.substr(text).starts_with("From ")) kept.remove_prefix(1);
      }
      isLong = isLong || letter.size() + kept.size() > kMaxEntry;
      if (isLong) {
        std::string().swap(letter);
      } else {
        letter += kept;
      }
    }
    if (!std::exchange(isOpen_, false)) return std::nullopt;
    return Done(std::move(letter), isLong);
  }

  Input Done(std::string letter, bool isLong) {
    const std::string label = "letter " + std::to_string(++number_);
    if (isLong) return Refused(label, TooLong());
    return Entry(label, {.bytes = std::move(letter), .mediaType = "message/rfc822", .name = {}, .url = {}});
  }

  std::size_t number_ = 0;
  bool isOpen_ = false;  ///< a letter's separator has been read
};

// --- What servers answered

/// The value of a header in lines "Name: value"; empty when there is none.
std::string_view HeaderIn(std::string_view head, std::string_view lowerName) {
  while (!head.empty()) {
    const std::size_t end = std::min(head.find('\n'), head.size() - 1) + 1;
    const std::string_view line = head.substr(0, end);
    head.remove_prefix(end);
    const std::size_t colon = line.find(':');
    if (colon != std::string_view::npos && std::ranges::equal(Trimmed(line.substr(0, colon)), lowerName, {}, Lower)) {
      return Trimmed(line.substr(colon + 1));
    }
  }
  return {};
}

bool IsHtml(std::string_view mediaType, std::string_view body) {
  const std::string name = Lowered(Trimmed(mediaType.substr(0, mediaType.find(';'))));
  if (name.empty() || name == "x-unknown") return Trimmed(body.substr(0, kFront)).starts_with('<');
  return name == "text/html" || name == "application/xhtml+xml";
}

/// The body without the marks of its chunks; as it stands where it has none, as some recorders take them out.
std::string WithoutChunks(std::string body) {
  std::string whole;
  std::string_view rest = body;
  while (!rest.empty()) {
    std::size_t length = 0;
    const auto [end, fault] = std::from_chars(rest.data(), rest.data() + rest.size(), length, 16);
    const std::size_t feed = rest.find('\n');
    if (fault != std::errc() || feed == std::string_view::npos) return whole.empty() ? body : whole;
    if (length == 0) return whole;
    rest.remove_prefix(feed + 1);
    whole.append(rest.substr(0, length));
    rest.remove_prefix(std::min(length, rest.size()));
    if (rest.starts_with("\r")) rest.remove_prefix(1);
    if (rest.starts_with("\n")) rest.remove_prefix(1);
  }
  return whole;
}

/// Of "deflate", which servers write with and without zlib's own head.
std::string Inflated(std::string_view bytes) {
  std::string out;
  for (const int windowBits : {MAX_WBITS, -MAX_WBITS}) {
    z_stream stream{};
    if (inflateInit2(&stream, windowBits) != Z_OK) return {};
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    stream.avail_in = static_cast<uInt>(bytes.size());
    out.clear();
    std::string piece(1 << 16, '\0');
    int result = Z_OK;
    while (result == Z_OK && out.size() <= kMaxEntry) {
      stream.next_out = reinterpret_cast<Bytef*>(piece.data());
      stream.avail_out = static_cast<uInt>(piece.size());
      result = inflate(&stream, Z_NO_FLUSH);
      out.append(piece, 0, piece.size() - stream.avail_out);
    }
    inflateEnd(&stream);
    if (!out.empty()) return out;
  }
  return out;
}

/// Undoes a Content-Encoding. False, and why in error, when it can't be.
bool Unpack(std::string_view encodings, std::string& body, std::string& error) {
  constexpr int kMostLayers = 4;
  for (int layer = 0; !encodings.empty(); ++layer) {
    const std::size_t comma = encodings.rfind(',');
    const std::string name = Lowered(Trimmed(comma == std::string_view::npos ? encodings : encodings.substr(comma + 1)));
    encodings = comma == std::string_view::npos ? "" : encodings.substr(0, comma);
    if (name.empty() || name == "identity" || name == "none") continue;
    if (layer == kMostLayers || (name != "gzip" && name != "x-gzip" && name != "zstd" && name != "deflate")) {
      error = "its content encoding can't be undone: " + name;
      return false;
    }
    std::string out;
    if (name == "deflate") {
      out = Inflated(body);
    } else {
      // Bytes that aren't packed come as they stand: some recorders unpack them and keep the header.
      ByteSource source(ByteSource::InMemory{body});
      source.Read(kMaxEntry + 1, out);
      error = source.Failure();
    }
    if (out.empty() && !body.empty()) {
      error = "its content can't be unpacked" + (error.empty() ? "" : ": " + error);
      return false;
    }
    error.clear();
    body = std::move(out);
    if (body.size() > kMaxEntry) {
      error = "unpacked, it is " + TooLong();
      return false;
    }
  }
  return true;
}

// --- WARC

class WarcReader final : public Reader {
 public:
  WarcReader(std::unique_ptr<ByteSource> source, std::string name)
      : Reader(std::move(source), std::move(name), "no HTML page in it") {}

 private:
  std::optional<Input> Read() override {
    std::string head;
    while (ReadHead(head)) {
      std::uint64_t length = 0;
      const std::string_view lengthText = HeaderIn(head, "content-length");
      const auto [end, fault] = std::from_chars(lengthText.data(), lengthText.data() + lengthText.size(), length);
      if (lengthText.empty() || fault != std::errc() || end != lengthText.data() + lengthText.size()) {
        Break("a record without a length");
        return std::nullopt;
      }
      const std::uint64_t next = Source().Position() + length;
      std::optional<Input> entry = ReadBlock(head, length);
      if (Source().Position() < next && !Source().Skip(next - Source().Position())) Break("the file ends in a record");
      if (entry) return entry;
    }
    return std::nullopt;
  }

  /// False at the end, and where no record begins.
  bool ReadHead(std::string& head) {
    head.clear();
    std::string line;
    while (Source().ReadLine(kLongestLine, line)) {
      const bool isEmpty = Trimmed(line).empty();
      if (head.empty()) {
        if (isEmpty) continue;
        if (!line.starts_with("WARC/")) {
          Break("no record begins");
          return false;
        }
      } else if (isEmpty) {
        return true;
      }
      head += line;
      if (head.size() > kMaxHeaders) break;
    }
    if (!head.empty()) Break("a record's headers don't end");
    return false;
  }

  /// The page in a record; nothing when there is none.
  std::optional<Input> ReadBlock(std::string_view head, std::uint64_t length) {
    const std::string type = Lowered(HeaderIn(head, "warc-type"));
    const std::string blockType = Lowered(HeaderIn(head, "content-type"));
    std::string_view url = HeaderIn(head, "warc-target-uri");
    if (url.starts_with('<') && url.ends_with('>')) url = url.substr(1, url.size() - 2);
    std::string answer;
    std::string mediaType = blockType;
    if (type == "response" && blockType.starts_with("application/http")) {
      const std::string_view front =
          Source().Ahead(static_cast<std::size_t>(std::min<std::uint64_t>(length, kMaxHeaders)));
      const std::size_t windows = front.find("\r\n\r\n");
      const std::size_t plain = front.find("\n\n");
      const std::size_t end = std::min(windows == std::string_view::npos ? windows : windows + 4,
                                       plain == std::string_view::npos ? plain : plain + 2);
      if (end == std::string_view::npos) return std::nullopt;
      answer = front.substr(0, end);
      mediaType = HeaderIn(answer, "content-type");
      if (!IsHtml(mediaType, front.substr(end))) return std::nullopt;
      Source().Drop(end);
      length -= end;
    } else if (type != "resource" || mediaType.empty() || !IsHtml(mediaType, {})) {
      return std::nullopt;
    }
    if (length == 0) return std::nullopt;  // what sends on elsewhere seldom has a page
    if (length > kMaxEntry) return Refused(url, TooLong());
    std::string body;
    Source().Read(static_cast<std::size_t>(length), body);
    if (Lowered(HeaderIn(answer, "transfer-encoding")).find("chunked") != std::string::npos) {
      body = WithoutChunks(std::move(body));
    }
    std::string error;
    if (!Unpack(HeaderIn(answer, "content-encoding"), body, error)) return Refused(url, std::move(error));
    if (mediaType.empty()) mediaType = "text/html";
    return Entry(url, {.bytes = std::move(body), .mediaType = std::move(mediaType), .name = {},
                       .url = std::string(url), .urlIsRecorded = true});
  }
};

// --- HAR

class HarReader final : public Reader {
 public:
  HarReader(std::unique_ptr<ByteSource> source, std::string name)
      : Reader(std::move(source), std::move(name), "no HTML page in it") {}

 private:
  /// A text in the file may take twice the bytes that it stands for.
  static constexpr std::size_t kMostBytes = 2 * kMaxEntry;

  std::optional<Input> Read() override {
    if (!inEntries_ && !FindEntries()) return std::nullopt;
    std::string text;
    bool isLong = false;
    while (NextElement(text, isLong)) {
      ++number_;
      if (isLong) return Refused("entry " + std::to_string(number_), TooLong());
      if (std::optional<Input> entry = PageOf(text)) return entry;
      text.clear();
    }
    return std::nullopt;
  }

  /// The next byte; 0 at the end.
  char NextByte() {
    if (next_ == piece_.size()) {
      Source().Drop(piece_.size());
      next_ = 0;
      piece_ = Source().Ahead(1 << 16);
      if (piece_.empty()) return '\0';
    }
    return piece_[next_++];
  }

  /// Goes on to the first entry of the array that is log's "entries".
  bool FindEntries() {
    std::string name;
    int depth = 0;
    bool isValue = false;
    bool inLog = false;
    for (char c = NextByte(); c != '\0'; c = NextByte()) {
      if (c == '"') {
        std::string text;
        for (c = NextByte(); c != '"' && c != '\0'; c = NextByte()) {
          if (text.size() < 16) text += c;
          if (c == '\\') (void)NextByte();
        }
        if (!isValue) name = std::move(text);
      } else if (c == ':' || c == ',') {
        isValue = c == ':';
      } else if (c == '{' || c == '[') {
        if (depth == 2 && inLog && c == '[' && isValue && name == "entries") return inEntries_ = true;
        if (depth == 1 && c == '{' && isValue && name == "log") inLog = true;
        isValue = false;
        ++depth;
      } else if (c == '}' || c == ']') {
        isValue = false;
        if (--depth < 2) inLog = false;
      }
    }
    Break("no entries of a HAR file");
    return false;
  }

  /// The text of the next element of the array. False at its end.
  bool NextElement(std::string& text, bool& isLong) {
    char c = NextByte();
    while (c == ',' || c == ' ' || c == '\t' || c == '\r' || c == '\n') c = NextByte();
    if (c == ']') return false;
    std::size_t depth = 0;
    bool inText = false;
    for (; c != '\0'; c = NextByte()) {
      isLong = isLong || text.size() >= kMostBytes;
      if (!isLong) text += c;
      if (inText) {
        if (c == '\\') {
          c = NextByte();
          if (!isLong) text += c;
        } else {
          inText = c != '"';
        }
      } else if (c == '"') {
        inText = true;
      } else if (c == '{' || c == '[') {
        ++depth;
      } else if ((c == '}' || c == ']') && depth > 0) {
        --depth;
      }
      if (depth == 0 && !inText) {
        if (c == '}') return true;
        Break("an entry that is no object");
        return false;
      }
    }
    Break("the file ends in an entry");
    return false;
  }

  std::optional<Input> PageOf(const std::string& text) {
    std::u16string url;
    std::u16string mediaType;
    std::u16string encoding;
    std::optional<std::u16string> content;
    JsonReader json(text);
    std::u16string name;
    const auto forEach = [&json](auto take) {
      std::u16string member;
      json.BeginObject();
      while (json.NextMember(member)) {
        if (!take(member)) json.Skip();
      }
    };
    const auto read = [&json](std::u16string& into) {
      if (json.Next() != JsonReader::Kind::kText) return false;
      return json.ReadText(into);
    };
    forEach([&](const std::u16string& member) {
      if (json.Next() != JsonReader::Kind::kObject) return false;
      if (member == u"request") {
        forEach([&](const std::u16string& one) { return one == u"url" && read(url); });
        return true;
      }
      if (member != u"response") return false;
      forEach([&](const std::u16string& one) {
        if (one != u"content" || json.Next() != JsonReader::Kind::kObject) return false;
        forEach([&](const std::u16string& what) {
          if (what == u"mimeType") return read(mediaType);
          if (what == u"encoding") return read(encoding);
          if (what != u"text" || json.Next() != JsonReader::Kind::kText) return false;
          return json.ReadText(content.emplace());
        });
        return true;
      });
      return true;
    });
    const std::string label = Narrow(url);
    if (json.Failed()) return Refused(label.empty() ? "entry " + std::to_string(number_) : label, json.Error());
    std::string body = content ? Narrow(*content) : "";
    std::string type = Narrow(mediaType);
    if (encoding == u"base64") {
      gsize length = 0;
      if (!body.empty()) g_base64_decode_inplace(body.data(), &length);
      body.resize(length);
    } else if (!type.empty()) {
      type = type.substr(0, type.find(';')) + "; charset=utf-8";  // the text was decoded already
    }
    if (!IsHtml(type, body)) return std::nullopt;
    if (!content) return Refused(label, "its content wasn't recorded");
    if (body.empty()) return std::nullopt;
    if (body.size() > kMaxEntry) return Refused(label, TooLong());
    if (type.empty() || Lowered(type).starts_with("x-unknown")) type = "text/html; charset=utf-8";
    return Entry(label, {.bytes = std::move(body), .mediaType = std::move(type), .name = {}, .url = label,
                         .urlIsRecorded = true});
  }

  std::string_view piece_;
  std::size_t next_ = 0;
  std::size_t number_ = 0;
  bool inEntries_ = false;
};

// --- Addresses, and single things in a wrapping

class ListReader final : public Reader {
 public:
  ListReader(std::unique_ptr<ByteSource> source, std::string name)
      : Reader(std::move(source), std::move(name), "no address in it") {}

 private:
  std::optional<Input> Read() override {
    std::string line;
    while (Source().ReadLine(kLongestLine, line)) {
      const bool isWhole = line.back() == '\n' || line.size() < kLongestLine;
      std::string rest;
      while (!isWhole && Source().ReadLine(kLongestLine, rest) && rest.back() != '\n') {
      }
      std::string_view text = Trimmed(line);
      text = text.substr(0, text.find('\t'));
      if (text.empty() || text.front() == '#') continue;
      if (!isWhole) return Refused(text.substr(0, 100), "a line too long for an address");
      Input input{Name() + ": " + std::string(text), "", ""};
      input.address = text;
      return input;
    }
    return std::nullopt;
  }
};

class SingleReader final : public Reader {
 public:
  SingleReader(std::unique_ptr<ByteSource> source, std::string name, std::string innerName, std::string url)
      : Reader(std::move(source), std::move(name), ""), innerName_(std::move(innerName)), url_(std::move(url)) {}

 private:
  std::optional<Input> Read() override {
    if (std::exchange(isRead_, true)) return std::nullopt;
    Content content{.bytes = {}, .mediaType = {}, .name = innerName_, .url = url_};
    Source().Read(kMaxEntry + 1, content.bytes);
    Input input{Name(), "", ""};
    if (content.bytes.size() > kMaxEntry) {
      input.refusal = "unpacked, it is " + TooLong();
    } else if (!Source().Failure().empty()) {
      return std::nullopt;
    } else {
      input.content = std::move(content);
    }
    return input;
  }

  std::string innerName_;
  std::string url_;
  bool isRead_ = false;
};

bool IsHar(std::string_view lowerName, std::string_view front) {
  if (lowerName.ends_with(".har")) return true;
  front = Trimmed(front);
  const std::size_t name = front.find("\"log\"");
  return front.starts_with('{') && name != std::string_view::npos && Trimmed(front.substr(1, name - 1)).empty();
}

bool IsAddressList(std::string_view lowerName, std::string_view front) {
  if (!lowerName.ends_with(".txt") && !lowerName.ends_with(".urls")) return false;
  while (!front.empty()) {
    const std::size_t end = std::min(front.find('\n'), front.size() - 1) + 1;
    const std::string_view line = Trimmed(front.substr(0, end));
    front.remove_prefix(end);
    if (line.empty() || line.front() == '#') continue;
    return ReadTypedAddress(Widen(line.substr(0, line.find('\t')))).refusal.empty();
  }
  return false;
}

}  // namespace

std::unique_ptr<Collection> OpenCollection(const std::string& path, const std::string& pageUrl) {
  std::error_code error;
  // What is plainly one page or letter isn't opened twice.
  std::string name = Lowered(path);
  if (PageKindOfName(name) || name.ends_with(".eml") || path.find('\0') != std::string::npos) return nullptr;
  if (!std::filesystem::is_regular_file(path, error)) return nullptr;
  auto source = std::make_unique<ByteSource>(path);
  const bool isCompressed = source->IsCompressed();
  if (!isCompressed && !source->Failure().empty()) return nullptr;
  std::string innerName = path;
  for (const std::string_view ending : {".gz", ".zst"}) {
    if (isCompressed && name.ends_with(ending)) innerName.resize(innerName.size() - ending.size());
  }
  name = Lowered(innerName);
  const std::string front(source->Ahead(kFront));
  if (front.starts_with("WARC/")) return std::make_unique<WarcReader>(std::move(source), path);
  if (IsSeparator(std::string_view(front).substr(0, front.find('\n')))) {
    return std::make_unique<MboxReader>(std::move(source), path);
  }
  if (IsHar(name, front)) return std::make_unique<HarReader>(std::move(source), path);
  if (IsAddressList(name, front)) return std::make_unique<ListReader>(std::move(source), path);
  if (!isCompressed) return nullptr;
  if (PageKindOfName(name) || IsLetter(front, {}, name) || PageKindOfContent(front)) {
    return std::make_unique<SingleReader>(std::move(source), path, std::move(innerName), pageUrl);
  }
  return std::make_unique<ListReader>(std::move(source), path);
}

}  // namespace zeph
