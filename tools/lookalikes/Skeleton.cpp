// SPDX-License-Identifier: Apache-2.0
#include "tools/lookalikes/Skeleton.h"

#include <algorithm>
#include <array>

#include <unicode/uidna.h>
#include <unicode/uspoof.h>

namespace zeph {

struct LatinReader::Handles {
  UErrorCode status = U_ZERO_ERROR;
  UIDNA* names = uidna_openUTS46(UIDNA_DEFAULT, &status);
  USpoofChecker* letters = uspoof_open(&status);

  ~Handles() {
    uidna_close(names);
    uspoof_close(letters);
  }
};

LatinReader::LatinReader() : handles_(std::make_unique<Handles>()) {}
LatinReader::~LatinReader() = default;

std::string LatinReader::Read(std::string_view label) const {
  constexpr std::size_t kLongestLabel = 63;
  if (!label.starts_with("xn--") || label.size() > kLongestLabel || U_FAILURE(handles_->status)) return {};
  std::array<char, 512> unicode{};
  std::array<char, 1024> skeleton{};
  UIDNAInfo info = UIDNA_INFO_INITIALIZER;
  UErrorCode status = U_ZERO_ERROR;
  const std::int32_t length =
      uidna_labelToUnicodeUTF8(handles_->names, label.data(), static_cast<std::int32_t>(label.size()), unicode.data(),
                               static_cast<std::int32_t>(unicode.size()), &info, &status);
  if (U_FAILURE(status) || (info.errors & UIDNA_ERROR_PUNYCODE) != 0) return {};
  const std::int32_t end = uspoof_getSkeletonUTF8(handles_->letters, 0, unicode.data(), length, skeleton.data(),
                                                  static_cast<std::int32_t>(skeleton.size()), &status);
  if (U_FAILURE(status)) return {};
  std::string latin;
  for (std::int32_t i = 0; i < end; ++i) {
    const char c = skeleton[static_cast<std::size_t>(i)];
    // Accents stand behind their letters; what stays of other scripts is left out with them.
    if (c >= 'A' && c <= 'Z') latin += static_cast<char>(c - 'A' + 'a');
    if ((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-') latin += c;
  }
  return latin;
}

std::string Skeleton(std::string_view name) {
  std::string skeleton;
  for (std::size_t i = 0; i < name.size(); ++i) {
    const std::string_view pair = name.substr(i, 2);
    if (pair == "rn" || pair == "vv") {
      skeleton += pair == "rn" ? 'm' : 'w';
      ++i;
      continue;
    }
    constexpr std::string_view kLooks = "01i34578q9";
    constexpr std::string_view kLike = "olleastbgg";
    const std::size_t at = kLooks.find(name[i]);
    skeleton += at == std::string_view::npos ? name[i] : kLike[at];
  }
  return skeleton;
}

}  // namespace zeph
