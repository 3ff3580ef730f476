// SPDX-License-Identifier: Apache-2.0
// Objects that last as long as any thread may use them. Any thread.
#pragma once

#include <memory>
#include <type_traits>

namespace zeph {

/// Calls remove(object) when this module is unloaded, the last object first, behind its other destructors; not when the
/// process ends, since other threads may then be at work in it until the very last.
void RemoveAtUnload(void (*remove)(void*), void* object);

/// Keeps an object for a static reference, in the place of a static object: those are destroyed when the program returns
/// from main, whatever its other threads are doing.
template <class T>
[[nodiscard]] T& Lasting(std::unique_ptr<T> object) {
  using Plain = std::remove_const_t<T>;
  RemoveAtUnload([](void* removed) { delete static_cast<Plain*>(removed); }, const_cast<Plain*>(object.get()));
  return *object.release();
}

}  // namespace zeph
