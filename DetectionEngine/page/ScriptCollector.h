// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "DetectionEngine/Document.h"
#include "DetectionEngine/page/PageData.h"

namespace zeph {

/// Reads text, language and source of every script; the text of an external script comes from the document's URL cache
/// or not at all. Gives the status of the last operation.
Status CollectScriptData(IHTMLDocument2* document, ScriptData& data);

/// Reads one entry of a URL cache. Made for one URL.
class UrlCacheReader {
 public:
  /// cache may be null: nothing is then found.
  explicit UrlCacheReader(IUrlCache* cache) noexcept : cache_(cache) {}
  /// 0, or -1 when the cache has no entry for exactly this URL.
  int Open(std::u16string_view url);
  /// Length of the entry in bytes; 0 before Open.
  [[nodiscard]] std::size_t Length() const noexcept { return bytes_ ? bytes_->size() : 0; }
  /// The entry up to its first zero byte, whatever its encoding taken for the narrow code page. 0, or -1 when none is
  /// open.
  int ReadText(std::u16string& out) const;

 private:
  IUrlCache* cache_;
  std::optional<std::string_view> bytes_;
};

}  // namespace zeph
