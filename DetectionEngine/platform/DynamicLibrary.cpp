// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/platform/DynamicLibrary.h"

#include <dlfcn.h>

namespace zeph {

DynamicLibrary::DynamicLibrary(const std::string& name) noexcept
    // An empty name would give the program itself.
    : handle_(name.empty() ? nullptr : dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL)) {}

DynamicLibrary::~DynamicLibrary() {
  if (handle_ != nullptr) dlclose(handle_);
}

DynamicLibrary::AnyFunction DynamicLibrary::FindAddress(const char* name) const noexcept {
  return handle_ == nullptr ? nullptr : reinterpret_cast<AnyFunction>(dlsym(handle_, name));
}

}  // namespace zeph
