// SPDX-License-Identifier: Apache-2.0
#include "judging/Judge.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <memory>
#include <utility>

#include "DetectionEngine/DetectionEngine.h"
#include "DetectionEngine/EngineResults.h"
#include "DetectionEngine/engine/ProcessState.h"
#include "DetectionEngine/platform/CodePage.h"
#include "judging/Letter.h"
#include "judging/TypedAddress.h"

namespace zeph {

namespace {

/// Out-parameters that show whether they were written.
class Outputs {
 public:
  explicit Outputs(std::size_t nameRoom) : siteName_(nameRoom, kUnwritten) {}
  std::int32_t* Classification() { return &classification_; }
  char16_t* SiteName() { return siteName_.data(); }
  float* Spooficity() { return &spooficity_; }

  void MoveInto(Judgement& judgement) const {
    if (classification_ != 0) judgement.classification = classification_;
    if (!std::isnan(spooficity_)) judgement.spooficity = spooficity_;
    if (siteName_.front() != kUnwritten) judgement.siteName = siteName_.c_str();
  }

 private:
  static constexpr char16_t kUnwritten = u'\uFFFF';
  std::int32_t classification_ = 0;
  float spooficity_ = std::numeric_limits<float>::quiet_NaN();
  std::u16string siteName_;
};

/// Room for the longest name that a call can write.
std::size_t NameRoom() {
  std::size_t longest = kZephNameRoom;
  for (const auto& [domain, info] : Process().configurationMgr.Active()->configuration.TrustedDomainInfos) {
    longest = std::max(longest, info.CN.size());
  }
  return longest + 1;
}

struct ReleaseReport {
  void operator()(EngineResults* report) const { ReleaseEngineResults(report); }
};

Verdict VerdictOf(std::int32_t classification, bool isPage) noexcept {
  switch (classification) {
    case kZephTrustworthy:
      return Verdict::kTrustworthy;
    case kZephSpoofing:
      return Verdict::kSpoofing;
    case kZephSpoofingConfirmed:
      return isPage ? Verdict::kSpoofingConfirmed : Verdict::kSpoofing;
    case kZephScriptAttack:
      return Verdict::kScriptAttack;
    default:
      return Verdict::kUnclassified;
  }
}

Judgement NotJudged(std::string input, std::string reason) {
  Judgement judgement;
  judgement.input = std::move(input);
  judgement.reason = std::move(reason);
  return judgement;
}

/// An input's name, which what it carries inside itself has too.
Judgement Named(Judgement judgement, const std::string& name) {
  judgement.input = name;
  for (Judgement& part : judgement.parts) part.input = name;
  return judgement;
}

std::string Joined(const std::vector<std::string_view>& texts) {
  std::string joined;
  for (const std::string_view text : texts) joined.append(joined.empty() ? "" : ", ").append(text);
  return joined;
}

}  // namespace

Judge::Judge(JudgeOptions options) : options_(std::move(options)), nameRoom_(NameRoom()) {}

Judgement Judge::Of(const Input& input) const {
  if (!input.refusal.empty()) return NotJudged(input.text, input.refusal);
  if (input.content || !input.address.empty()) {
    Judgement judgement = input.content ? OfContent(*input.content) : OfAddress(input.address);
    judgement.input = input.text;
    return judgement;
  }
  std::error_code error;
  // A name with a zero byte in it would be taken for what stands in front of the zero.
  const bool mayBeFile = input.text.find('\0') == std::string::npos;
  const auto status = mayBeFile ? std::filesystem::status(input.text, error) : std::filesystem::file_status();
  if (status.type() == std::filesystem::file_type::directory) {
    return NotJudged(input.text, "a folder; name it as an argument, or the pages in it");
  }
  // A link that leads in a circle has a name, but nothing behind it.
  const bool isFile = std::filesystem::exists(status) || error == std::errc::too_many_symbolic_link_levels ||
                      error == std::errc::permission_denied;
  if (!isFile) return OfAddress(input.text);
  std::string reason;
  std::optional<std::string> bytes = ReadPageBytes(input.text, reason);
  if (!bytes) return NotJudged(input.text, std::move(reason));
  if (IsLetter(*bytes, {}, input.text)) {
    return Named(OfLetter(*bytes), input.text);
  }
  std::optional<PageSource> source = ReadPageContent(*std::move(bytes), {}, input.text, reason);
  if (!source) return NotJudged(input.text, std::move(reason));
  if (source->kind != PageKind::kMhtml) source->path = input.text;
  if (!options_.exact && source->recording == nullptr && source->bytes.empty()) return NotJudged(input.text, "empty");
  return Named(OfPage(*std::move(source), input.pageUrl), input.text);
}

Judgement Judge::OfContent(Content content) const {
  const std::string name = content.name.empty() ? content.url : content.name;
  if (content.bytes.empty()) return NotJudged(name, "empty");
  if (IsLetter(content.bytes, content.mediaType, content.name)) {
    Judgement judgement = OfLetter(content.bytes);
    judgement.input = name;
    return judgement;
  }
  std::string reason;
  std::optional<PageSource> source = ReadPageContent(std::move(content.bytes), content.mediaType, content.name, reason);
  if (!source) return NotJudged(name, std::move(reason));
  const bool isSaved = content.urlIsRecorded && source->recording == nullptr;
  if (isSaved) source->savedUrl = Widen(content.url);
  return Named(OfPage(*std::move(source), isSaved ? "" : content.url), name);
}

Judgement Judge::OfLetter(std::string_view bytes) const {
  if (bytes.empty()) return NotJudged({}, "empty");
  Judgement judgement;
  std::optional<Letter> letter = ReadLetter(bytes, judgement.reason);
  if (!letter) return judgement;
  Judge stranger(*this);
  stranger.options_.exact = false;
  stranger.options_.trustsClaims = false;
  stranger.options_.url.clear();
  stranger.options_.pageUrl.clear();
  for (const LetterLink& link : letter->links) {
    judgement.parts.push_back(stranger.OfAddress(link.url));
    judgement.parts.back().where = link.where;
  }
  for (LetterPage& page : letter->pages) {
    Judgement part = page.refusal.empty() ? stranger.OfPage(std::move(page.source), {}) : NotJudged({}, page.refusal);
    part.input = std::move(page.name);
    part.where = std::move(page.where);
    judgement.parts.push_back(std::move(part));
  }
  if (!letter->leftOut.empty()) {
    judgement.parts.push_back(NotJudged("the rest of the letter", "left out: " + letter->leftOut));
    judgement.parts.back().where = "what the bounds cut";
  }
  if (judgement.parts.empty()) judgement.reason = "no link and no page in it";
  TakeWorstPart(judgement);
  return judgement;
}

Judgement Judge::OfAddress(const std::string& text) const {
  Judgement judgement;
  judgement.input = text;
  if (options_.exact) {
    judgement.url = Widen(text);
  } else {
    TypedAddress address = ReadTypedAddress(Widen(text));
    if (!address.refusal.empty()) return NotJudged(text, std::move(address.refusal));
    judgement.url = std::move(address.url);
    judgement.intake = Joined(address.changes);
  }
  judgement.urlSource = UrlSource::kGiven;
  ClassifyUrl(judgement.url, judgement);
  Conclude(false, judgement);
  return judgement;
}

Judgement Judge::OfPage(PageSource source, const std::string& mapUrl) const {
  Judgement judgement;
  if (source.charset.empty()) source.charset = options_.charset;
  if (options_.exact) {
    std::optional<std::u16string> url;
    if (source.recording == nullptr) url = options_.url.empty() ? source.savedUrl : Widen(options_.url);
    judgement.url = options_.pageUrl.empty() ? url.value_or(source.savedUrl) : Widen(options_.pageUrl);
    judgement.urlSource = !options_.pageUrl.empty() || (url && !options_.url.empty()) ? UrlSource::kGiven
                          : judgement.url.empty()                                     ? UrlSource::kNone
                                                                                      : UrlSource::kDocument;
    const auto page = OpenPage(std::move(source), url, url.value_or(u""));
    ClassifyPage(page->Document(), Widen(options_.pageUrl), judgement);
    Conclude(true, judgement);
    return judgement;
  }

  // Who knows the address best: who asks, then who keeps the page, then who saved it, then the page.
  TypedAddress address;
  const auto take = [&](const std::string& text, UrlSource from) {
    address = ReadTypedAddress(Widen(text));
    judgement.urlSource = from;
  };
  const TypedAddress saved = ReadWrittenAddress(source.savedUrl);
  if (!options_.pageUrl.empty()) {
    take(options_.pageUrl, UrlSource::kGiven);
  } else if (!mapUrl.empty()) {
    take(mapUrl, UrlSource::kMap);
  } else if (!options_.url.empty() && (source.recording == nullptr || saved.url.empty())) {
    take(options_.url, UrlSource::kGiven);
  } else if (!saved.url.empty()) {
    address = saved;
    judgement.urlSource = UrlSource::kDocument;
  } else if (!source.claimedUrl.empty()) {
    address.url = source.claimedUrl;
    judgement.urlSource = UrlSource::kClaimed;
  }
  if (!address.refusal.empty()) {
    judgement.reason = "its address can't be used: " + address.refusal;
    return judgement;
  }
  judgement.intake = Joined(address.changes);
  judgement.url = address.url;
  judgement.byContentAlone = judgement.urlSource == UrlSource::kNone ||
                             (judgement.urlSource == UrlSource::kClaimed && !options_.trustsClaims);
  const std::u16string judgedBy = judgement.byContentAlone ? std::u16string(kUnknownAddress) : judgement.url;
  auto page = OpenPage(std::move(source), judgedBy, judgement.url.empty() ? judgedBy : judgement.url);
  ClassifyPage(page->Document(), {}, judgement);
  Conclude(true, judgement);
  InnerRoom room(page->Markup().size());
  JudgeInnerPages(std::move(page), {}, 1, room, judgement);
  TakeWorstPart(judgement);
  return judgement;
}

void Judge::JudgeInnerPages(std::unique_ptr<LoadedPage> page, const std::string& within, std::size_t depth,
                            InnerRoom& room, Judgement& whole) const {
  if (page->Html() == nullptr || IsUnjudged(page->Html()->Budget()->Failure())) return;
  const std::u16string base = page->Html()->View().BaseUrl();
  std::vector<InnerPage> found = FindInnerPages(*page->Html(), page->Markup(), room);
  page.reset();  // one document at a time
  const std::u16string judgedBy = whole.byContentAlone ? std::u16string(kUnknownAddress) : whole.url;
  const auto partAt = [&](std::string where) -> Judgement& {
    Judgement& part = whole.parts.emplace_back();
    part.where = std::move(where);
    part.url = whole.url;
    part.urlSource = whole.urlSource;
    part.byContentAlone = whole.byContentAlone;
    return part;
  };
  for (InnerPage& inner : found) {
    const std::string where = within + inner.where;
    if (!inner.refusal.empty()) {
      partAt(where).reason = std::move(inner.refusal);
      continue;
    }
    if (depth > InnerRoom::kMostDepth) {
      partAt(where).reason = "stands in pages within pages, more than " + std::to_string(InnerRoom::kMostDepth) + " deep";
      return;
    }
    PageSource source;
    source.bytes = std::move(inner.bytes);
    source.charset = std::move(inner.charset);
    auto document = OpenPage(std::move(source), judgedBy, base.empty() ? judgedBy : base);
    if (SaysAnything(*document->Html())) {
      if (room.pages == 0) {
        partAt(where).reason = "more than " + std::to_string(InnerRoom::kMostPages) + " pages stand in one";
        return;
      }
      --room.pages;
      Judgement& part = partAt(where);
      ClassifyPage(document->Document(), {}, part);
      Conclude(true, part);
    }
    JudgeInnerPages(std::move(document), where + " > ", depth + 1, room, whole);
  }
}

void Judge::ClassifyUrl(const std::u16string& url, Judgement& judgement) const {
  Outputs outputs(nameRoom_);
  judgement.trace.wantsResults = options_.explains;
  judgement.trace.nameRoom = nameRoom_;
  judgement.result = ClassifyUrlTraced(url.c_str(), outputs.Classification(), outputs.SiteName(), outputs.Spooficity(),
                                       &judgement.trace);
  outputs.MoveInto(judgement);
}

void Judge::ClassifyPage(IHTMLDocument2& document, const std::u16string& pageUrl, Judgement& judgement) const {
  Outputs outputs(nameRoom_);
  judgement.trace.wantsResults = options_.explains;
  judgement.trace.nameRoom = nameRoom_;
  EngineResults* report = nullptr;
  judgement.result = ClassifySiteTraced(&document, outputs.Classification(), outputs.SiteName(),
                                        pageUrl.empty() ? nullptr : pageUrl.c_str(),
                                        options_.explains ? &report : nullptr, outputs.Spooficity(), &judgement.trace);
  const std::unique_ptr<EngineResults, ReleaseReport> releasing(report);
  outputs.MoveInto(judgement);
}

void Judge::Conclude(bool isPage, Judgement& judgement) const {
  if (judgement.result == kZephTooCostly) {
    judgement.reason = "too costly";
  } else if (judgement.result == kZephOutOfMemory) {
    judgement.reason = "too costly: memory ran out";
  } else if (judgement.result == -1) {
    judgement.reason = "the engine can't take its address apart";
  } else if (judgement.result == 1 && judgement.trace.pair == nullptr) {
    judgement.reason = "no configuration could be loaded";
  } else if (judgement.result != 0 && !isPage) {
    judgement.reason = "the call gave " + std::to_string(*judgement.result);
  } else if (!judgement.classification) {
    judgement.reason = "the call gave no classification";
  } else if (judgement.result != 0 && judgement.classification == kZephUnclassified && !judgement.spooficity) {
    judgement.reason = "reading the page ended with status " + std::to_string(*judgement.result);
  }
  if (!judgement.reason.empty()) return;
  judgement.verdict = VerdictOf(*judgement.classification, isPage);
  // What a page says of itself is no ground for trust, and neither is an address that nobody knows.
  if (judgement.byContentAlone && judgement.verdict == Verdict::kTrustworthy) {
    judgement.verdict = Verdict::kUnclassified;
  }
  const ClassificationTrace& trace = judgement.trace;
  if (options_.explains && trace.pair != nullptr) {
    judgement.reasons = ReasonsFor(*trace.pair, trace.results, options_.ruleTexts);
  }
}

}  // namespace zeph
