// SPDX-License-Identifier: Apache-2.0
#include "documents/SavedPage.h"

#include <algorithm>
#include <deque>
#include <filesystem>
#include <initializer_list>
#include <map>
#include <mutex>
#include <system_error>
#include <utility>

#include <gmime/gmime.h>

#include "DetectionEngine/Document.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/platform/Files.h"
#include "DetectionEngine/url/UrlParser.h"
#include "documents/ImageSize.h"
#include "documents/MailHeaders.h"

namespace zeph {
namespace {

/// More parts than a page has; those behind them aren't looked at.
constexpr int kMaxParts = 10'000;
/// Files beside a page that are longer aren't read, nor more of them than this together.
constexpr std::size_t kMaxFile = std::size_t{16} << 20;
constexpr std::size_t kMaxFiles = std::size_t{64} << 20;

struct Unref {
  template <class Object>
  void operator()(Object* object) const noexcept {
    g_object_unref(object);
  }
};
template <class Object>
using Owned = std::unique_ptr<Object, Unref>;
struct FreeIterator {
  void operator()(GMimePartIter* iterator) const noexcept { g_mime_part_iter_free(iterator); }
};

std::string TextOf(const char* text) { return text != nullptr ? text : ""; }

/// A header's text without the line breaks and blanks that folding puts into a long URL.
std::string UrlHeader(GMimeObject* object, const char* name) {
  std::string text = TextOf(g_mime_object_get_header(object, name));
  std::erase_if(text, [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; });
  return text;
}

std::string ContentOf(GMimePart* part) {
  GMimeDataWrapper* const content = g_mime_part_get_content(part);
  if (content == nullptr) return {};
  const Owned<GMimeStream> stream(g_mime_stream_mem_new());
  if (g_mime_data_wrapper_write_to_stream(content, stream.get()) < 0) return {};
  const GByteArray* const bytes = g_mime_stream_mem_get_byte_array(GMIME_STREAM_MEM(stream.get()));
  return {reinterpret_cast<const char*>(bytes->data), bytes->len};
}

class PartResources final : public PageResources {
 public:
  /// A part under the URLs that name it; an empty one names none, and the first part of a URL stays.
  void Add(std::string content, std::initializer_list<std::string> urls) {
    const std::string_view kept = contents_.emplace_back(std::move(content));
    for (const std::string& url : urls) {
      if (url.empty() || !parts_.try_emplace(url, kept).second) continue;
      std::u16string canonical;
      if (!CanonicalizeUrl(Widen(url), canonical)) continue;
      if (std::string narrow = Narrow(canonical); narrow != url) canonical_.try_emplace(std::move(narrow), kept);
    }
  }
  [[nodiscard]] std::optional<std::string_view> Find(std::string_view url) const override {
    if (const auto found = parts_.find(url); found != parts_.end()) return found->second;
    if (const auto found = canonical_.find(url); found != canonical_.end()) return found->second;
    return std::nullopt;
  }

 private:
  std::deque<std::string> contents_;  ///< a deque, so that none of them moves
  std::map<std::string, std::string_view, std::less<>> parts_;
  std::map<std::string, std::string_view, std::less<>> canonical_;
};

class FileResources final : public PageResources {
 public:
  FileResources(const std::string& pagePath, const std::vector<std::u16string>& urls)
      : page_(std::filesystem::path(pagePath).lexically_normal()) {
    for (const std::u16string& url : urls) {
      const std::string narrow = Narrow(StripFragment(url));
      const std::string_view path = std::string_view(narrow).substr(0, narrow.find('?'));
      std::string base(path.substr(0, path.rfind('/') + 1));  // all but the last segment; empty without a slash
      if (!base.empty()) bases_.push_back(std::move(base));
    }
  }

  [[nodiscard]] std::optional<std::string_view> Find(std::string_view url) const override {
    url = url.substr(0, url.find_first_of("?#"));
    const auto base = std::ranges::find_if(bases_, [&](const std::string& one) { return url.starts_with(one); });
    if (base != bases_.end()) url.remove_prefix(base->size());
    if (url.find(':') != std::string_view::npos || url.empty() || url.front() == '/') return std::nullopt;
    const auto [entry, isNew] = files_.try_emplace(std::string(url));
    if (isNew) entry->second = Read(url);
    if (!entry->second) return std::nullopt;
    return *entry->second;
  }

 private:
  std::optional<std::string> Read(std::string_view url) const {
    const std::filesystem::path relative = std::filesystem::path(Narrow(UnescapeUrl(Widen(url)))).lexically_normal();
    if (relative.is_absolute() || relative.native().find('\0') != std::string::npos) return std::nullopt;
    if (std::ranges::any_of(relative, [](const auto& name) { return name.native().starts_with('.'); })) {
      return std::nullopt;
    }
    const std::string stem = page_.stem().string();
    const bool isCompanion = std::ranges::any_of(kCompanionEndings, [&](std::string_view ending) {
      return relative.begin() != relative.end() && relative.begin()->string() == std::string(stem).append(ending);
    });
    if (!isCompanion) return std::nullopt;
    // A link may lead out of the folder, where a page has no business, and the folder be a link itself.
    std::error_code error;
    const std::filesystem::path here = page_.has_parent_path() ? page_.parent_path() : ".";
    const std::filesystem::path companion = here / *relative.begin();
    if (std::filesystem::is_symlink(std::filesystem::symlink_status(companion, error))) return std::nullopt;
    const auto root = std::filesystem::canonical(companion, error);
    if (error) return std::nullopt;
    const auto file = std::filesystem::canonical(here / relative, error);
    if (error || std::ranges::mismatch(root, file).in1 != root.end()) return std::nullopt;
    const bool isHidden = std::any_of(std::next(file.begin(), std::distance(root.begin(), root.end())), file.end(),
                                      [](const auto& name) { return name.native().starts_with('.'); });
    if (isHidden) return std::nullopt;
    std::optional<std::string> bytes = ReadWholeFile(file.string(), std::min(kMaxFile, room_));
    if (bytes && !HasScriptName(file) && !ReadImageSize(*bytes)) bytes.reset();
    if (bytes) room_ -= bytes->size();
    return bytes;
  }

  /// "a.js", and "a.js.download" as some browsers have it.
  static bool HasScriptName(const std::filesystem::path& file) {
    std::string name = file.filename().string();
    std::ranges::transform(name, name.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c; });
    if (name.ends_with(".download")) name.resize(name.size() - 9);
    return name.ends_with(".js") || name.ends_with(".mjs");
  }

  std::filesystem::path page_;
  std::vector<std::string> bases_;
  mutable std::map<std::string, std::optional<std::string>, std::less<>> files_;
  mutable std::size_t room_ = kMaxFiles;
};

bool IsHtmlPart(GMimeObject* object) {
  GMimeContentType* const type = g_mime_object_get_content_type(object);
  return type != nullptr && (g_mime_content_type_is_type(type, "text", "html") ||
                             g_mime_content_type_is_type(type, "application", "xhtml+xml"));
}

}  // namespace

std::optional<SavedPage> ReadMhtml(std::string_view bytes, std::string& error) {
  if (!PageBudget::ForPage(bytes.size()).Take(CostOfMessage(bytes))) {
    error = "too costly: more parts and headers than a message of its size may have";
    return std::nullopt;
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
    error = "no MIME message";
    return std::nullopt;
  }

  std::string start = TextOf(g_mime_object_get_content_type_parameter(top, "start"));
  std::erase_if(start, [](char c) { return c == '<' || c == '>' || c == ' '; });
  GMimePart* root = nullptr;
  bool rootIsStart = false;
  auto resources = std::make_shared<PartResources>();
  const std::unique_ptr<GMimePartIter, FreeIterator> parts(g_mime_part_iter_new(GMIME_OBJECT(message.get())));
  for (int count = 0; count < kMaxParts && g_mime_part_iter_is_valid(parts.get()); ++count) {
    GMimeObject* const object = g_mime_part_iter_get_current(parts.get());
    if (GMIME_IS_PART(object)) {
      const std::string id = TextOf(g_mime_object_get_content_id(object));
      const bool isStart = !start.empty() && id == start;
      GMimePart* const part = GMIME_PART(object);
      if (IsHtmlPart(object) && (root == nullptr || (isStart && !rootIsStart))) {
        root = part;
        rootIsStart = isStart;
      } else if (!IsHtmlPart(object)) {
        std::string location = UrlHeader(object, "Content-Location");
        if (!location.empty() || !id.empty()) {
          resources->Add(ContentOf(part), {std::move(location), id.empty() ? "" : "cid:" + id});
        }
      }
    }
    if (!g_mime_part_iter_next(parts.get())) break;
  }
  if (root == nullptr) {
    error = "no HTML part";
    return std::nullopt;
  }

  SavedPage page;
  page.html = ContentOf(root);
  page.charset = TextOf(g_mime_object_get_content_type_parameter(GMIME_OBJECT(root), "charset"));
  std::string url = UrlHeader(GMIME_OBJECT(root), "Content-Location");
  if (url.empty() || url.starts_with("cid:")) url = UrlHeader(GMIME_OBJECT(message.get()), "Snapshot-Content-Location");
  if (url.empty()) url = UrlHeader(GMIME_OBJECT(message.get()), "Content-Location");
  page.url = Widen(url);
  page.resources = std::move(resources);
  return page;
}

std::shared_ptr<const PageResources> FilesBeside(const std::string& pagePath, const std::vector<std::u16string>& urls) {
  return std::make_shared<FileResources>(pagePath, urls);
}

}  // namespace zeph
