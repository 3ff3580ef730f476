// SPDX-License-Identifier: Apache-2.0
#include "tools/classification-server/VerdictList.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <optional>
#include <stdexcept>
#include <utility>

#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/url/UrlParser.h"
#include "tools/classification-server/Log.h"

namespace zeph::server {

namespace {

constexpr std::size_t kFileLimit = std::size_t{1} << 28;
constexpr std::size_t kFaultLimit = 100;
constexpr std::chrono::seconds kLookEvery{1};

std::string Lower(std::string_view text) {
  std::string lower(text);
  std::ranges::transform(lower, lower.begin(),
                         [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
  return lower;
}

std::optional<std::int32_t> ReadVerdict(std::string_view word) {
  constexpr std::array<std::pair<std::string_view, std::int32_t>, 10> kVerdicts = {{{"trustworthy", 1},
                                                                                    {"spoofing", 2},
                                                                                    {"unclassified", 3},
                                                                                    {"report", 4},
                                                                                    {"confirmed", 5},
                                                                                    {"1", 1},
                                                                                    {"2", 2},
                                                                                    {"3", 3},
                                                                                    {"4", 4},
                                                                                    {"5", 5}}};
  const auto found = std::ranges::find(kVerdicts, word, [](const auto& row) { return row.first; });
  return found != kVerdicts.end() ? std::optional(found->second) : std::nullopt;
}

/// A word of the file for a line of the log.
std::string Quoted(std::string_view word) {
  constexpr std::size_t kShown = 100;
  return "\"" + std::string(word.substr(0, kShown)) + (word.size() > kShown ? "..." : "") + "\"";
}

/// Whether a host of a URL can look like this.
bool IsHost(std::string_view text) {
  return text.find_first_of("/\\:@?#%") == std::string_view::npos && !text.starts_with('.') && !text.ends_with('.');
}

/// The next word of a line, which loses it and the blanks before it.
std::string_view TakeWord(std::string_view& line) {
  constexpr std::string_view kBlanks = " \t";
  line.remove_prefix(std::min(line.find_first_not_of(kBlanks), line.size()));
  const std::string_view word = line.substr(0, line.find_first_of(kBlanks));
  line.remove_prefix(word.size());
  return word;
}

}  // namespace

VerdictList VerdictList::Parse(std::string_view text, std::vector<Fault>& faults) {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
  VerdictList list;
  std::size_t number = 0;
  while (!text.empty()) {
    ++number;
    std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    if (line.ends_with('\r')) line.remove_suffix(1);
    const std::string_view verdictWord = TakeWord(line);
    if (verdictWord.empty() || verdictWord.starts_with('#')) continue;
    ++list.lines_;
    const std::string_view kind = TakeWord(line);
    const std::string_view pattern = TakeWord(line);
    const auto verdict = ReadVerdict(verdictWord);
    Verdicts* const target = kind == "url"      ? &list.urls_
                             : kind == "host"   ? &list.hosts_
                             : kind == "suffix" ? &list.suffixes_
                                                : nullptr;
    std::string_view rest = TakeWord(line);
    std::string what;
    if (!verdict) {
      what = Quoted(verdictWord) + " is no verdict";
    } else if (target == nullptr) {
      what = Quoted(kind) + " is neither url, host nor suffix";
    } else if (pattern.empty()) {
      what = "nothing to match";
    } else if (kind != "url" && !IsHost(pattern)) {
      what = Quoted(pattern) + " is no host";
    } else if (!rest.empty() && !rest.starts_with('#')) {
      what = Quoted(rest) + " is more than a line holds";
    }
    if (what.empty()) {
      target->insert_or_assign(kind == "url" ? std::string(pattern) : Lower(pattern), *verdict);
    } else {
      ++list.faultyLines_;
      if (faults.size() < kFaultLimit) faults.push_back({number, std::move(what)});
    }
  }
  return list;
}

std::int32_t VerdictList::Find(std::string_view url) const {
  if (const auto found = urls_.find(std::string(url)); found != urls_.end()) return found->second;
  UrlParser parser;
  if (parser.DecodeUrl(Widen(url)) != 0) return kUnknown;
  const std::string host = Lower(Narrow(parser.Record().HostName));
  if (const auto found = hosts_.find(host); found != hosts_.end()) return found->second;
  for (std::size_t start = 0;;) {
    if (const auto found = suffixes_.find(host.substr(start)); found != suffixes_.end()) return found->second;
    const std::size_t dot = host.find('.', start);
    if (dot == std::string::npos) return kUnknown;
    start = dot + 1;
  }
}

VerdictFile::VerdictFile(std::string path) : path_(std::move(path)) {
  if (const std::string why = Reload(); !why.empty()) throw std::runtime_error(path_ + ": " + why);
  watcher_ = std::jthread([this](const std::stop_token& stop) { Watch(stop); });
}

std::shared_ptr<const VerdictList> VerdictFile::Current() const {
  const std::lock_guard lock(mutex_);
  return list_;
}

VerdictFile::ListState VerdictFile::State() const {
  const std::lock_guard lock(mutex_);
  return {path_, list_->size(), list_->FaultyLines(), lastWrite_, trouble_};
}

void VerdictFile::Reread() {
  {
    const std::lock_guard lock(mutex_);
    reread_ = true;
  }
  wake_.notify_all();
}

void VerdictFile::Watch(const std::stop_token& stop) {
  while (!stop.stop_requested()) {
    bool reread = false;
    {
      std::unique_lock lock(mutex_);
      wake_.wait_for(lock, stop, kLookEvery, [this] { return reread_; });
      reread = std::exchange(reread_, false);
    }
    if (!reread && StampOf(path_) == stamp_) continue;
    if (const std::string why = Reload(); !why.empty()) {
      Log("VerdictFile", path_ + ": " + why + "; the list stays as it is", kLogError);
      const std::lock_guard lock(mutex_);
      trouble_ = why;
    }
  }
}

std::string VerdictFile::Reload() {
  // The stamp is taken first: a file that changes while it is read is read again.
  stamp_ = StampOf(path_);
  const auto text = ReadWholeFile(path_, kFileLimit);
  if (!text) return "can't be read";
  if (text->find('\0') != std::string::npos) return "holds a zero byte and is no list";
  std::vector<VerdictList::Fault> faults;
  auto list = std::make_shared<const VerdictList>(VerdictList::Parse(*text, faults));
  for (const VerdictList::Fault& fault : faults) {
    Log("VerdictFile", path_ + ":" + std::to_string(fault.line) + ": " + fault.what, kLogWarning);
  }
  if (list->FaultyLines() > list->Lines() / 2) {
    return std::to_string(list->FaultyLines()) + " of " + std::to_string(list->Lines()) + " lines can't be read";
  }
  const std::shared_ptr<const VerdictList> before = Current();
  if (list->size() == 0 && before != nullptr && before->size() != 0) return "holds no verdict any more";
  Log("VerdictFile", path_ + ": " + std::to_string(list->size()) + " verdicts", kLogInformation);
  // What was in force goes outside the lock: a long list takes its time.
  std::shared_ptr<const VerdictList> current = std::move(list);
  const std::lock_guard lock(mutex_);
  list_.swap(current);
  lastWrite_ = stamp_.lastWrite;
  trouble_.clear();
  return {};
}

}  // namespace zeph::server
