// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "DetectionEngine/platform/DosFile.h"

namespace zeph {

/// One file of a cabinet, as its maker says. None of it can be trusted.
struct CabinetMember {
  std::string name;          ///< as stored: at least one byte, no zero byte, anything else
  std::uint32_t length = 0;  ///< in bytes, when it is extracted
  std::uint64_t work = 0;    ///< bytes that must be decompressed to extract it behind the member before it
  DosTraits traits;          ///< attributes masked with kCabinetAttributes
};

/// The attributes that a cabinet stores and gives back; others aren't looked at.
inline constexpr std::uint16_t kCabinetAttributes = kDosReadOnly | kDosHidden | kDosSystem | kDosArchive;

/// Reads a cabinet that lies in memory: stored and MSZIP data, any number of folders, one cabinet (no set of several).
/// The bytes must outlive the reader. One thread at a time.
class CabinetReader {
 public:
  /// False when the reader itself can't be started; then nothing else works.
  [[nodiscard]] bool IsReady() const noexcept;

  /// True when the bytes begin as a cabinet of the known version does.
  [[nodiscard]] static bool IsCabinet(std::string_view bytes) noexcept;

  explicit CabinetReader(std::string_view bytes);
  ~CabinetReader();
  CabinetReader(const CabinetReader&) = delete;
  CabinetReader& operator=(const CabinetReader&) = delete;

  /// Reads the directory. False, with the reason in Error, when it is broken, uses another compression, or is a part of
  /// a set of cabinets.
  bool Open();
  [[nodiscard]] const std::vector<CabinetMember>& Members() const noexcept { return members_; }

  /// Writes a member to a new file, in the place of what was there, with permissions for this user alone, and gives it
  /// the member's traits. Cheapest in the order of Members. False, with the reason in Error and no file left, on
  /// failure.
  bool Extract(std::size_t member, const std::string& path);

  /// Why the last call failed.
  [[nodiscard]] const std::string& Error() const noexcept { return error_; }

 private:
  struct Library;
  std::unique_ptr<Library> library_;
  std::vector<CabinetMember> members_;
  std::string error_;
};

}  // namespace zeph
