// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace zeph {

/// A shared library that is loaded at run time and unloaded with the object. Not loaded: no function is found.
class DynamicLibrary {
 public:
  /// A path, or a file name for the system to look for. Loaded or not can be asked afterwards.
  explicit DynamicLibrary(const std::string& name) noexcept;
  ~DynamicLibrary();
  DynamicLibrary(const DynamicLibrary&) = delete;
  DynamicLibrary& operator=(const DynamicLibrary&) = delete;

  [[nodiscard]] bool IsLoaded() const noexcept { return handle_ != nullptr; }

  /// The function of that name, taken on trust to be of this type; null when there is none. Valid while the object
  /// lives.
  template <class Function>
  [[nodiscard]] Function* Find(const char* name) const noexcept {
    return reinterpret_cast<Function*>(FindAddress(name));
  }

 private:
  using AnyFunction = void (*)();
  [[nodiscard]] AnyFunction FindAddress(const char* name) const noexcept;

  void* handle_;
};

}  // namespace zeph
