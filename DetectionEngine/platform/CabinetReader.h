// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace zeph {

/// Reads single files out of a cabinet that lies in memory, into memory: stored and MSZIP data, one cabinet (no set of
/// several). What a file costs is what lies in its folder up to its end, however many others the cabinet names. The
/// bytes must outlive the reader. One thread at a time.
class CabinetReader {
 public:
  /// More folders than any package of kPackageCeiling bytes has; each file's is looked for from the first one on.
  static constexpr std::size_t kMostFolders = 1200;

  /// False when the reader itself can't be started; then nothing else works.
  [[nodiscard]] bool IsReady() const noexcept;

  /// True when the bytes begin as a cabinet of the known version does.
  [[nodiscard]] static bool IsCabinet(std::string_view bytes) noexcept;

  explicit CabinetReader(std::string_view bytes);
  ~CabinetReader();
  CabinetReader(const CabinetReader&) = delete;
  CabinetReader& operator=(const CabinetReader&) = delete;

  /// Reads the directory. False, with the reason in Error, when it is broken or a part of a set of cabinets.
  bool Open();

  /// Whether a file has exactly this name.
  [[nodiscard]] bool Has(std::string_view name) const noexcept;

  /// The content of a file; of several with this name the last, which would have taken the place of the others. Nothing,
  /// with the reason in Error, when there is none, it can't be read, or the bytes to decompress up to its end come to
  /// more than ceiling.
  std::optional<std::string> Extract(std::string_view name, std::size_t ceiling);

  /// Why the last call failed.
  [[nodiscard]] const std::string& Error() const noexcept { return error_; }

 private:
  struct Library;
  std::unique_ptr<Library> library_;
  std::string error_;
};

}  // namespace zeph
