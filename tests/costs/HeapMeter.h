// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

namespace zeph {

/// Counts the bytes that the whole process has from the heap, whoever asks for them: this program's code, C and C++
/// libraries. One at a time.
class HeapMeter {
 public:
  HeapMeter() noexcept;
  HeapMeter(const HeapMeter&) = delete;
  HeapMeter& operator=(const HeapMeter&) = delete;

  /// The most bytes that were held at one time since this was made, beyond those that were held then.
  [[nodiscard]] std::size_t Peak() const noexcept;

 private:
  std::ptrdiff_t before_;
};

}  // namespace zeph
