// SPDX-License-Identifier: Apache-2.0
#include "judging/Letter.h"

#include <algorithm>
#include <array>
#include <memory>
#include <mutex>
#include <unordered_set>
#include <utility>

#include <gmime/gmime.h>

#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/url/BrowserUrl.h"
#include "DetectionEngine/url/UrlCracker.h"
#include "documents/MailHeaders.h"
#include "documents/html/Decoder.h"
#include "documents/html/HtmlDocument.h"
#include "judging/Answers.h"
#include "judging/ShownText.h"
#include "judging/TypedAddress.h"

namespace zeph {

namespace {

constexpr char Lower(char c) noexcept { return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c; }
constexpr char16_t LowerWide(char16_t c) noexcept {
  return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c | 0x20) : c;
}

std::string Lowered(std::string_view text) {
  std::string lower(text);
  std::ranges::transform(lower, lower.begin(), Lower);
  return lower;
}

struct Unref {
  template <class Object>
  void operator()(Object* object) const noexcept {
    g_object_unref(object);
  }
};
template <class Object>
using Owned = std::unique_ptr<Object, Unref>;

std::string TextOf(const char* text) { return text != nullptr ? text : ""; }

enum class LeafKind { kNone, kText, kHtml, kMhtml, kLetter };

struct NamedKind {
  std::string_view name;
  LeafKind kind;
};
constexpr std::array kTypes = {
    NamedKind{"text/html", LeafKind::kHtml},
    NamedKind{"application/xhtml+xml", LeafKind::kHtml},
    NamedKind{"multipart/related", LeafKind::kMhtml},
    NamedKind{"application/x-mimearchive", LeafKind::kMhtml},
    NamedKind{"message/rfc822", LeafKind::kLetter},
    NamedKind{"message/global", LeafKind::kLetter},
};
constexpr std::array kEndings = {
    NamedKind{".html", LeafKind::kHtml},  NamedKind{".htm", LeafKind::kHtml},    NamedKind{".xhtml", LeafKind::kHtml},
    NamedKind{".xht", LeafKind::kHtml},   NamedKind{".shtml", LeafKind::kHtml},  NamedKind{".mht", LeafKind::kMhtml},
    NamedKind{".mhtml", LeafKind::kMhtml}, NamedKind{".eml", LeafKind::kLetter},
};

LeafKind KindOfType(std::string_view lowerType) {
  const auto* const row = std::ranges::find(kTypes, lowerType, &NamedKind::name);
  return row != kTypes.end() ? row->kind : LeafKind::kNone;
}

/// Who opens an attachment opens it by its name, whatever type the sender gives it.
LeafKind KindOfName(std::string_view name) {
  const std::string lower = Lowered(name);
  const auto* const row =
      std::ranges::find_if(kEndings, [&](const NamedKind& ending) { return lower.ends_with(ending.name); });
  return row != kEndings.end() ? row->kind : LeafKind::kNone;
}

bool EndsAddress(char16_t c) noexcept {
  return c <= u' ' || c == u'<' || c == u'>' || c == u'"' || c == 0xA0 || c == 0x3000 || (c >= 0x2000 && c <= 0x200A) ||
         c == 0x2028 || c == 0x2029;
}

/// Calls take with each http or https address in prose, with what follows it up to a blank.
template <class Take>
void ForEachAddress(std::u16string_view text, Take take) {
  constexpr std::u16string_view kScheme = u"http";
  for (std::size_t at = 0; at < text.size();) {
    const std::u16string_view rest = text.substr(at);
    const auto found = std::search(rest.begin(), rest.end(), kScheme.begin(), kScheme.end(), [](auto a, auto b) { return LowerWide(a) == b; });
    if (found == rest.end()) return;
    const std::size_t start = at + static_cast<std::size_t>(found - rest.begin());
    std::size_t colon = start + kScheme.size();
    if (colon < text.size() && LowerWide(text[colon]) == u's') ++colon;
    at = colon;
    if (text.substr(colon, 3) != u"://") continue;
    std::size_t end = colon + 3;
    while (end < text.size() && !EndsAddress(text[end])) ++end;
    take(text.substr(start, end - start));
    at = end;
  }
}

/// The address that a link's text shows when it is one of another site than the target's; empty else.
std::string OtherAddressShown(std::u16string_view text, std::u16string_view target) {
  constexpr std::size_t kMostText = 1000;
  text = text.substr(0, kMostText);
  const auto isOther = [&](std::u16string_view word) {
    const TypedAddress shown = ReadTypedAddress(word);
    return shown.refusal.empty() && SiteOf(shown.url) != SiteOf(target);
  };
  const std::u16string_view all = TrimUrl(text);
  if (all.empty()) return {};
  const bool isOneWord = std::ranges::none_of(all, EndsAddress);
  if (isOneWord && isOther(all)) return ShownInShort(all, 100);
  // A word among others is an address only where it is plainly meant as one.
  for (std::size_t at = 0; !isOneWord && at < all.size();) {
    std::size_t end = at;
    while (end < all.size() && !EndsAddress(all[end])) ++end;
    std::u16string word(all.substr(at, end - at));
    std::u16string lower = word;
    std::ranges::transform(lower, lower.begin(), LowerWide);
    const bool isMeant = lower.find(u"://") != std::u16string::npos || lower.starts_with(u"www.");
    if (isMeant && isOther(word)) return ShownInShort(word, 100);
    at = end + 1;
  }
  return {};
}

/// "0; url=http://..." of a page that sends its reader on.
std::u16string_view RefreshTarget(std::u16string_view content) {
  constexpr std::u16string_view kUrl = u"url=";
  const auto found = std::search(content.begin(), content.end(), kUrl.begin(), kUrl.end(), [](auto a, auto b) { return LowerWide(a) == b; });
  if (found == content.end()) return {};
  std::u16string_view target = TrimUrl(content.substr(static_cast<std::size_t>(found - content.begin()) + kUrl.size()));
  if (!target.empty() && (target.front() == u'"' || target.front() == u'\'')) {
    const char16_t quote = target.front();
    target.remove_prefix(1);
    target = target.substr(0, target.find(quote));
  }
  return target;
}

class LetterReader {
 public:
  explicit LetterReader(std::size_t size) : budget_(PageBudget::ForPage(size)) {}

  /// False, and why in error, when the letter can't be read. level: of its top part, from 1.
  bool Read(std::string_view bytes, int level, const std::string& place, std::string& error) {
    if (bytes.size() > html::kMaxMarkup || !budget_.Take(CostOfMessage(bytes))) {
      error = "too costly: more parts and headers than a letter of its size may have";
      return false;
    }
    static std::once_flag initialized;
    std::call_once(initialized, g_mime_init);
    std::string room;
    bytes = WithoutDeepAddresses(bytes, room);
    const Owned<GMimeStream> stream(g_mime_stream_mem_new_with_buffer(bytes.data(), bytes.size()));
    const Owned<GMimeParser> parser(g_mime_parser_new_with_stream(stream.get()));
    const Owned<GMimeMessage> message(g_mime_parser_construct_message(parser.get(), nullptr));
    GMimeObject* const top = message != nullptr ? g_mime_message_get_mime_part(message.get()) : nullptr;
    if (top == nullptr) {
      error = "no letter";
      return false;
    }
    Walk(top, level, place);
    return true;
  }

  Letter Take() {
    std::vector<std::string> cuts;
    if (cutLevels_) cuts.push_back("what is nested deeper than " + std::to_string(kMaxLetterLevels) + " levels");
    if (cutParts_) cuts.push_back("parts behind the first " + std::to_string(kMaxLetterParts));
    if (linksLeftOut_ > 0) {
      cuts.push_back(std::to_string(linksLeftOut_) + " links behind the first " + std::to_string(kMaxLetterLinks) +
                     " addresses");
    }
    if (cutBytes_) cuts.push_back("contents beyond " + std::to_string(html::kMaxMarkup >> 20) + " MiB together");
    for (const std::string& cut : cuts) letter_.leftOut.append(letter_.leftOut.empty() ? "" : ", ").append(cut);
    return std::move(letter_);
  }

 private:
  void Walk(GMimeObject* object, int level, const std::string& place) {
    if (object == nullptr) return;
    if (level > kMaxLetterLevels) {
      cutLevels_ = true;
      return;
    }
    if (parts_ == kMaxLetterParts) {
      cutParts_ = true;
      return;
    }
    ++parts_;
    if (GMIME_IS_MULTIPART(object)) {
      GMimeMultipart* const multipart = GMIME_MULTIPART(object);
      const int count = g_mime_multipart_get_count(multipart);
      for (int i = 0; i < count && !cutParts_; ++i) Walk(g_mime_multipart_get_part(multipart, i), level + 1, place);
    } else if (GMIME_IS_MESSAGE_PART(object)) {
      GMimeMessage* const message = g_mime_message_part_get_message(GMIME_MESSAGE_PART(object));
      if (message != nullptr) Walk(g_mime_message_get_mime_part(message), level + 1, place + "attached letter, ");
    } else if (GMIME_IS_PART(object)) {
      TakeLeaf(GMIME_PART(object), level, place);
    }
  }

  void TakeLeaf(GMimePart* part, int level, const std::string& place) {
    GMimeObject* const object = GMIME_OBJECT(part);
    GMimeContentType* const type = g_mime_object_get_content_type(object);
    const std::string typeName = Lowered(TextOf(g_mime_content_type_get_media_type(type)) + "/" +
                                         TextOf(g_mime_content_type_get_media_subtype(type)));
    const std::string name = TextOf(g_mime_part_get_filename(part));
    LeafKind kind = KindOfType(typeName);
    if (kind == LeafKind::kNone) kind = KindOfName(name);
    if (kind == LeafKind::kNone && typeName.starts_with("text/")) kind = LeafKind::kText;
    if (kind == LeafKind::kNone) return;
    std::optional<std::string> content = ContentOf(part);
    if (!content || content->empty()) return;
    const std::string charset = TextOf(g_mime_object_get_content_type_parameter(object, "charset"));
    if (kind == LeafKind::kText) return TakeText(*content, charset, place);
    if (kind == LeafKind::kLetter) {
      std::string error;
      if (level >= kMaxLetterLevels) {
        cutLevels_ = true;
      } else if (!Read(*content, level + 1, place + "attached letter, ", error)) {
        TakeRefused(name.empty() ? "attached letter" : name, place + "attached letter", std::move(error));
      }
      return;
    }
    const bool isAttachment = kind == LeafKind::kMhtml || !name.empty() || g_mime_part_is_attachment(part) != 0;
    TakePage(*std::move(content), kind, charset, name, place, isAttachment);
  }

  /// The part's bytes without their transfer encoding; nothing when no room is left for them.
  std::optional<std::string> ContentOf(GMimePart* part) {
    GMimeDataWrapper* const content = g_mime_part_get_content(part);
    if (content == nullptr) return std::nullopt;
    GMimeStream* const encoded = g_mime_data_wrapper_get_stream(content);
    const gint64 length = encoded != nullptr ? g_mime_stream_length(encoded) : 0;
    // No transfer encoding is shorter than what it stands for.
    if (length < 0 || static_cast<std::size_t>(length) > bytesLeft_) {
      cutBytes_ = true;
      return std::nullopt;
    }
    bytesLeft_ -= static_cast<std::size_t>(length);
    const Owned<GMimeStream> stream(g_mime_stream_mem_new());
    if (g_mime_data_wrapper_write_to_stream(content, stream.get()) < 0) return std::nullopt;
    const GByteArray* const bytes = g_mime_stream_mem_get_byte_array(GMIME_STREAM_MEM(stream.get()));
    return std::string(reinterpret_cast<const char*>(bytes->data), bytes->len);
  }

  void TakeText(std::string_view bytes, const std::string& charset, const std::string& place) {
    const html::DecodedMarkup decoded = html::DecodeMarkup(bytes, charset);
    const std::u16string_view text(decoded.text.data(), decoded.text.size());
    ForEachAddress(text, [&](std::u16string_view address) { AddTyped(address, place + "text"); });
  }

  void TakePage(std::string bytes, LeafKind kind, const std::string& charset, const std::string& name,
                const std::string& place, bool isAttachment) {
    const std::string what = place + (!isAttachment  ? "its HTML text"
                                      : name.empty() ? "attached page"
                                                     : "attached page \"" + ShownInShort(Widen(name), 100) + "\"");
    std::string error;
    const std::string type = kind == LeafKind::kMhtml ? "multipart/related" : "text/html; charset=" + charset;
    std::optional<PageSource> source = ReadPageContent(std::move(bytes), type, {}, error);
    if (!source) return TakeRefused(name.empty() ? what : name, what, std::move(error));
    // Whoever wrote the letter wrote this too.
    std::u16string saved = ReadWrittenAddress(source->savedUrl).url;
    source->savedUrl.clear();
    TakeLinks(*source, saved.empty() ? std::u16string(kUnknownAddress) : saved, isAttachment ? what + ", " : place);
    if (source->claimedUrl.empty()) source->claimedUrl = std::move(saved);
    letter_.pages.push_back({*std::move(source), {}, name.empty() ? what : name, what});
  }

  void TakeRefused(std::string name, std::string where, std::string refusal) {
    letter_.pages.push_back({{}, std::move(refusal), std::move(name), std::move(where)});
  }

  /// address: what relative ones are taken against, where the page names no base of its own.
  void TakeLinks(const PageSource& page, const std::u16string& address, const std::string& place) {
    const std::optional<BrowserUrl> base = ReadBrowserUrl(address);
    HtmlDocumentOptions options;
    options.charset = page.charset;
    options.url = address;
    HtmlDocument document(page.bytes, std::move(options));
    std::unordered_set<std::u16string> shown;
    ForEachObject(document.get_links().value, [&](DocumentObject& object) {
      TextAnswer href;
      if (IHTMLAnchorElement* const anchor = object.QueryAnchor()) {
        href = anchor->get_href();
      } else if (IHTMLAreaElement* const area = object.QueryArea()) {
        href = area->get_href();
      }
      if (!href.HasValue()) return;
      IHTMLElement* const element = object.QueryElement();
      AddLink(*href.value, [&](std::u16string_view target) {
        const TextAnswer text = element != nullptr ? element->get_innerText() : TextAnswer{};
        if (!text.HasValue()) return place + "link";
        ForEachAddress(*text.value, [&](std::u16string_view address) { shown.emplace(address); });
        const std::string other = OtherAddressShown(*text.value, target);
        return place + (other.empty() ? "link" : "link that shows \"" + other + "\"");
      });
    });
    ForEachObject(document.get_forms().value, [&](DocumentObject& object) {
      IHTMLFormElement* const form = object.QueryForm();
      const TextAnswer action = form != nullptr ? form->get_action() : TextAnswer{};
      if (!action.HasValue()) return;
      // The document leaves those as they are that stay on its own site.
      const std::u16string target = BrowserUrlText(*action.value, base ? &*base : nullptr).value_or(std::u16string());
      AddLink(target, [&](std::u16string_view) { return place + "target of a form"; });
    });
    IHTMLElementCollection* const all = document.get_all().value;
    ForEachObject(all != nullptr ? all->tags(u"META").value : nullptr, [&](DocumentObject& object) {
      IHTMLMetaElement* const meta = object.QueryMeta();
      const TextAnswer equivalent = meta != nullptr ? meta->get_httpEquiv() : TextAnswer{};
      if (!equivalent.HasValue() || !std::ranges::equal(*equivalent.value, std::u16string_view(u"refresh"), {}, LowerWide)) {
        return;
      }
      const TextAnswer content = meta->get_content();
      if (!content.HasValue()) return;
      AddLink(RefreshTarget(*content.value), [&](std::u16string_view) { return place + "where it sends its reader on to"; });
    });
    // Mail programs make links of addresses that are plain text, but not of what a link shows.
    DocumentObject* const body = document.get_body().value;
    IHTMLElement* const element = body != nullptr ? body->QueryElement() : nullptr;
    const TextAnswer text = element != nullptr ? element->get_innerText() : TextAnswer{};
    if (!text.HasValue()) return;
    ForEachAddress(*text.value, [&](std::u16string_view address) {
      if (!shown.contains(std::u16string(address))) AddTyped(address, place + "text");
    });
  }

  template <class Take>
  static void ForEachObject(IHTMLElementCollection* list, Take take) {
    const std::int32_t length = list != nullptr ? list->get_length().value : 0;
    for (std::int32_t i = 0; i < length; ++i) {
      if (DocumentObject* const object = list->item(i).value) take(*object);
    }
  }

  /// where: tells the place of an address that is new; not asked else.
  template <class Where>
  void AddLink(std::u16string_view address, Where where) {
    const TypedAddress read = ReadWrittenAddress(address);
    // What leads nowhere else than to the letter itself is nothing to judge.
    if (!read.refusal.empty() || read.url.starts_with(kUnknownAddress)) return;
    if (known_.contains(read.url)) return;
    if (letter_.links.size() == kMaxLetterLinks) {
      ++linksLeftOut_;
      return;
    }
    letter_.links.push_back({Narrow(read.url), where(read.url)});
    known_.insert(read.url);
  }

  void AddTyped(std::u16string_view address, const std::string& where) {
    if (address.size() > kMaxUrlLength) return;
    AddLink(ReadTypedAddress(address).url, [&](std::u16string_view) { return where; });
  }

  PageBudget budget_;  ///< of what the mail library makes
  Letter letter_;
  std::unordered_set<std::u16string> known_;  ///< addresses of the letter's links
  std::size_t parts_ = 0;
  std::size_t bytesLeft_ = html::kMaxMarkup;
  std::size_t linksLeftOut_ = 0;
  bool cutLevels_ = false;
  bool cutParts_ = false;
  bool cutBytes_ = false;
};

/// The headers at the start are a letter's.
bool LooksLikeLetter(std::string_view bytes) {
  constexpr std::size_t kFront = 16 * 1024;
  constexpr std::array<std::string_view, 4> kOfTransport = {"from", "received", "return-path", "delivered-to"};
  constexpr std::array<std::string_view, 6> kOthers = {"to", "subject", "date", "message-id", "reply-to", "mime-version"};
  if (bytes.starts_with("\xEF\xBB\xBF")) bytes.remove_prefix(3);
  bytes = bytes.substr(0, kFront);
  bool isSent = false;
  int names = 0;
  while (!bytes.empty()) {
    const std::size_t feed = std::min(bytes.find('\n'), bytes.size() - 1);
    const std::string_view line = bytes.substr(0, feed);
    bytes.remove_prefix(feed + 1);
    if (line.empty() || line == "\r") break;
    if (line.front() == ' ' || line.front() == '\t') continue;
    const std::size_t colon = line.find(':');
    const std::string name = Lowered(line.substr(0, std::min(colon, line.size())));
    if (colon == std::string_view::npos || name.empty() || name.find_first_of(" \t<") != std::string::npos) return false;
    if (name == "snapshot-content-location") return false;
    if (name == "from" && Lowered(line).find("<saved by ") != std::string::npos) return false;
    if (std::ranges::find(kOfTransport, name) != kOfTransport.end()) {
      isSent = true;
      ++names;
    } else if (std::ranges::find(kOthers, name) != kOthers.end()) {
      ++names;
    }
  }
  return isSent && names >= 2;
}

}  // namespace

bool IsLetter(std::string_view bytes, std::string_view mediaType, std::string_view name) {
  std::string type = Lowered(mediaType.substr(0, mediaType.find(';')));
  while (type.ends_with(' ') || type.ends_with('\t')) type.pop_back();
  if (const LeafKind kind = KindOfType(type); kind != LeafKind::kNone) return kind == LeafKind::kLetter;
  if (const LeafKind kind = KindOfName(name); kind != LeafKind::kNone) return kind == LeafKind::kLetter;
  return !PageKindOfName(name) && LooksLikeLetter(bytes);
}

std::optional<Letter> ReadLetter(std::string_view bytes, std::string& error) {
  LetterReader reader(bytes.size());
  if (!reader.Read(bytes, 1, {}, error)) return std::nullopt;
  return reader.Take();
}

}  // namespace zeph
