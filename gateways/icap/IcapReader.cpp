// SPDX-License-Identifier: Apache-2.0
#include "gateways/icap/IcapReader.h"

#include <algorithm>
#include <charconv>
#include <utility>

namespace zeph::icap {

namespace {

constexpr std::string_view kEmptyLine = "\r\n\r\n";

/// A number of digits alone.
template <class Number>
bool ReadNumber(std::string_view text, Number& number, int base = 10) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  return error == std::errc{} && end == text.data() + text.size() && !text.empty() && text.front() != '-';
}

/// The path of an address, without the slashes around it.
std::string ServiceOf(std::string_view address) {
  const std::size_t scheme = address.find("://");
  if (scheme != std::string_view::npos) {
    address.remove_prefix(scheme + 3);
    address.remove_prefix(std::min(address.find_first_of("/?"), address.size()));
  }
  address = address.substr(0, address.find('?'));
  while (address.starts_with('/')) address.remove_prefix(1);
  while (address.ends_with('/')) address.remove_suffix(1);
  return std::string(address);
}

}  // namespace

IcapReader::Event IcapReader::Bad(const char* why) {
  state_ = State::kBad;
  fault_ = why;
  kept_ = {};
  return Event::kBad;
}

bool IcapReader::TakeLine(std::string_view& bytes) {
  const std::size_t end = bytes.find('\n');
  const std::size_t count = end == std::string_view::npos ? bytes.size() : end + 1;
  // One byte more than any line may have is enough to see that it is too long.
  kept_.append(bytes.substr(0, std::min(count, kMaxTrailer + 1 - std::min(kept_.size(), kMaxTrailer + 1))));
  bytes.remove_prefix(count);
  return end != std::string_view::npos;
}

IcapReader::Event IcapReader::Next(std::string_view& bytes) {
  while (true) {
    switch (state_) {
      case State::kHead: {
        if (bytes.empty()) return Event::kNeedMore;
        const Event event = TakeHead(bytes);
        if (event != Event::kNeedMore || state_ == State::kHead) return event;
        break;
      }
      case State::kEncapsulated: {
        const std::size_t count = std::min(headsSize_ - kept_.size(), bytes.size());
        kept_.append(bytes.substr(0, count));
        bytes.remove_prefix(count);
        if (kept_.size() < headsSize_) return Event::kNeedMore;
        return HeadsEnd();
      }
      case State::kChunkLine:
        if (bytes.empty()) return Event::kNeedMore;
        if (!TakeLine(bytes)) {
          if (kept_.size() > kMaxChunkLine) return Bad("the line of a chunk is too long");
          return Event::kNeedMore;
        }
        if (const char* const fault = ReadChunkLine()) return Bad(fault);
        kept_.clear();
        state_ = chunkRest_ == 0 ? State::kTrailer : State::kChunk;
        break;
      case State::kChunk: {
        if (bytes.empty()) return Event::kNeedMore;
        data_ = bytes.substr(0, std::min<std::uint64_t>(chunkRest_, bytes.size()));
        bytes.remove_prefix(data_.size());
        chunkRest_ -= data_.size();
        if (chunkRest_ == 0) state_ = State::kChunkEnd;
        return Event::kData;
      }
      case State::kChunkEnd:
        if (bytes.empty()) return Event::kNeedMore;
        if (!TakeLine(bytes)) {
          if (kept_ != "\r") return Bad("a chunk is longer than it says");
          return Event::kNeedMore;
        }
        if (kept_ != "\r\n") return Bad("a chunk is longer than it says");
        kept_.clear();
        state_ = State::kChunkLine;
        break;
      case State::kTrailer: {
        if (bytes.empty()) return Event::kNeedMore;
        const bool isWhole = TakeLine(bytes);
        if (trailerSize_ + kept_.size() > kMaxTrailer) return Bad("what follows the last chunk is too long");
        if (!isWhole) return Event::kNeedMore;
        trailerSize_ += kept_.size();
        const bool isLast = kept_ == "\r\n";
        if (!isLast && !kept_.ends_with("\r\n")) return Bad("a line without its carriage return");
        kept_.clear();
        if (!isLast) break;
        state_ = inPreview_ && !isEndOfFile_ ? State::kPreviewEnd : State::kEnd;
        break;
      }
      case State::kPreviewEnd:
        return Event::kPreviewEnd;
      case State::kEnd:
        return Event::kEnd;
      case State::kBad:
        return Event::kBad;
    }
  }
}

IcapReader::Event IcapReader::TakeHead(std::string_view& bytes) {
  // Clients end a request with one line feed too many.
  if (kept_.empty()) {
    bytes.remove_prefix(std::min(bytes.find_first_not_of("\r\n"), bytes.size()));
    if (bytes.empty()) return Event::kNeedMore;
  }
  const std::size_t searched = kept_.size() - std::min(kept_.size(), kEmptyLine.size() - 1);
  const std::size_t before = kept_.size();
  kept_.append(bytes.substr(0, kMaxHead + 1 - std::min(kept_.size(), kMaxHead + 1)));
  const std::size_t end = kept_.find(kEmptyLine, searched);
  if (end == std::string::npos) {
    if (kept_.size() > kMaxHead) return Bad("the head of the request is too long");
    bytes.remove_prefix(kept_.size() - before);
    return Event::kNeedMore;
  }
  kept_.resize(end + kEmptyLine.size());
  bytes.remove_prefix(kept_.size() - before);
  return ReadHead();
}

IcapReader::Event IcapReader::ReadHead() {
  std::optional<Headers> headers = ReadHeaders(kept_, true);
  if (!headers) return Bad("a line of the head is no field");
  const std::string_view first = headers->first;
  const std::size_t address = first.find(' ');
  const std::size_t version = first.rfind(' ');
  if (address == std::string_view::npos || version == address || first.substr(version + 1) != "ICAP/1.0") {
    return Bad("no line of ICAP/1.0");
  }
  request_ = {};
  request_.method = first.substr(0, address);
  request_.service = ServiceOf(first.substr(address + 1, version - address - 1));
  request_.headers = *std::move(headers);
  for (const std::string& word : WordsOf(request_.headers.FindAll("allow"))) {
    request_.allows204 = request_.allows204 || word == "204";
  }
  for (const std::string& word : WordsOf(request_.headers.FindAll("connection"))) {
    request_.isClosing = request_.isClosing || word == "close";
  }
  if (const char* const fault = ReadEncapsulated()) return Bad(fault);
  kept_.clear();
  if (headsSize_ == 0) return HeadsEnd();
  state_ = State::kEncapsulated;
  return Event::kNeedMore;
}

const char* IcapReader::ReadEncapsulated() {
  requestHeadSize_ = 0;
  headsSize_ = 0;
  inPreview_ = false;
  isEndOfFile_ = false;
  trailerSize_ = 0;
  if (const std::size_t count = request_.headers.Count("preview"); count != 0) {
    std::uint32_t size = 0;
    if (count > 1 || !ReadNumber(*request_.headers.Find("preview"), size)) return "its Preview is no number";
    request_.hasPreview = true;
  }
  const bool isModification = request_.method == "REQMOD" || request_.method == "RESPMOD";
  const std::size_t count = request_.headers.Count("encapsulated");
  if (count == 0) return isModification ? "no Encapsulated" : nullptr;
  if (count > 1) return "more than one Encapsulated";
  std::string_view last;
  std::size_t offset = 0;
  const std::vector<std::string> words = WordsOf(*request_.headers.Find("encapsulated"));
  for (const std::string& word : words) {
    const std::string_view name = std::string_view(word).substr(0, word.find('='));
    std::size_t here = 0;
    if (name.size() == word.size() || !ReadNumber(std::string_view(word).substr(name.size() + 1), here)) {
      return "its Encapsulated can't be read";
    }
    if (last.empty() ? here != 0 : here < offset) return "the offsets of its Encapsulated don't rise from 0";
    const bool isInOrder = last.empty() || (last == "req-hdr" && name != "req-hdr") ||
                           (last == "res-hdr" && name != "req-hdr" && name != "res-hdr");
    const bool isKnown = name == "req-hdr" || (name == "res-hdr" && request_.method != "REQMOD") ||
                         name == "null-body" || name == "opt-body" ||
                         name == (request_.method == "REQMOD" ? "req-body" : "res-body");
    if (!isKnown || !isInOrder) return "its Encapsulated names what can't stand there";
    if (last == "req-hdr") requestHeadSize_ = here;
    last = name;
    offset = here;
  }
  if (!last.ends_with("-body")) return "its Encapsulated ends with no body";
  if (offset > kMaxEncapsulated) return "the encapsulated heads are too long";
  headsSize_ = offset;
  request_.hasBody = last != "null-body";
  request_.hasPreview = request_.hasPreview && request_.hasBody;
  inPreview_ = request_.hasPreview;
  return nullptr;
}

IcapReader::Event IcapReader::HeadsEnd() {
  request_.requestHead = kept_.substr(0, requestHeadSize_);
  request_.responseHead = kept_.substr(requestHeadSize_);
  kept_.clear();
  state_ = request_.hasBody ? State::kChunkLine : State::kEnd;
  return Event::kHead;
}

const char* IcapReader::ReadChunkLine() {
  if (kept_.size() > kMaxChunkLine) return "the line of a chunk is too long";
  if (!kept_.ends_with("\r\n")) return "the line of a chunk can't be read";
  const std::string_view line = std::string_view(kept_).substr(0, kept_.size() - 2);
  const std::string_view size = Trimmed(line.substr(0, line.find(';')));
  constexpr std::size_t kMaxDigits = 15;
  if (size.size() > kMaxDigits || !ReadNumber(size, chunkRest_, 16)) return "the size of a chunk can't be read";
  std::string_view extensions = line.substr(std::min(line.find(';'), line.size()));
  while (!extensions.empty()) {
    extensions.remove_prefix(1);
    const std::string_view one = extensions.substr(0, extensions.find(';'));
    isEndOfFile_ = isEndOfFile_ || (chunkRest_ == 0 && Trimmed(one) == "ieof");
    extensions.remove_prefix(one.size());
  }
  trailerSize_ = 0;
  return nullptr;
}

void IcapReader::Continue() {
  inPreview_ = false;
  state_ = State::kChunkLine;
}

void IcapReader::Reset() {
  if (state_ == State::kBad) return;
  state_ = State::kHead;
  kept_.clear();
  request_ = {};
  data_ = {};
}

}  // namespace zeph::icap
