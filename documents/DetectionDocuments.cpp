// SPDX-License-Identifier: Apache-2.0
#include "documents/DetectionDocuments.h"

#include <exception>
#include <memory>
#include <string_view>
#include <utility>

#include "documents/html/HtmlDocument.h"

ZephDocument* CreateHtmlDocument(const void* bytes, size_t length, const char16_t* url, const char16_t* referrer) {
  if (bytes == nullptr && length != 0) return nullptr;
  try {
    zeph::HtmlDocumentOptions options;
    if (url != nullptr) options.url = url;
    if (referrer != nullptr) options.referrer = referrer;
    const std::string_view page =
        length == 0 ? std::string_view() : std::string_view(static_cast<const char*>(bytes), length);
    return std::make_unique<zeph::HtmlDocument>(page, std::move(options)).release();
  } catch (const std::exception&) {
    return nullptr;
  }
}

void ReleaseHtmlDocument(ZephDocument* document) {
  const std::unique_ptr<zeph::HtmlDocument> owned(static_cast<zeph::HtmlDocument*>(document));
}
