// SPDX-License-Identifier: Apache-2.0
#include "tests/costs/HeapMeter.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>

#include <malloc.h>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ZEPH_SANITIZER_HEAP 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define ZEPH_SANITIZER_HEAP 1
#endif
#endif

namespace {

std::atomic<std::ptrdiff_t> held{0};
std::atomic<std::ptrdiff_t> highest{0};

void Add(std::size_t size) noexcept {
  const std::ptrdiff_t now = held.fetch_add(static_cast<std::ptrdiff_t>(size)) + static_cast<std::ptrdiff_t>(size);
  std::ptrdiff_t seen = highest.load(std::memory_order_relaxed);
  while (now > seen && !highest.compare_exchange_weak(seen, now)) {
  }
}
void Subtract(std::size_t size) noexcept { held.fetch_sub(static_cast<std::ptrdiff_t>(size)); }

}  // namespace

#if defined(ZEPH_SANITIZER_HEAP)

// The sanitizer has the heap; it tells what it gives and takes.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*malloc_hook)(const volatile void*, std::size_t),
                                                         void (*free_hook)(const volatile void*));
extern "C" std::size_t __sanitizer_get_allocated_size(const volatile void* pointer);

namespace {

[[maybe_unused]] const int installed =
    __sanitizer_install_malloc_and_free_hooks([](const volatile void*, std::size_t size) { Add(size); },
                                              [](const volatile void* pointer) {
                                                if (pointer != nullptr)
                                                  Subtract(__sanitizer_get_allocated_size(pointer));
                                              });

}  // namespace

#else

// The C library's own functions, behind those of the same names here, which all libraries of the process then call.
extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* pointer, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* pointer);

void* malloc(std::size_t size) {
  void* const pointer = __libc_malloc(size);
  Add(malloc_usable_size(pointer));
  return pointer;
}
void* calloc(std::size_t count, std::size_t size) {
  void* const pointer = __libc_calloc(count, size);
  Add(malloc_usable_size(pointer));
  return pointer;
}
void* realloc(void* pointer, std::size_t size) {
  const std::size_t before = malloc_usable_size(pointer);
  void* const moved = __libc_realloc(pointer, size);
  if (moved == nullptr && size != 0) return nullptr;
  Subtract(before);
  Add(malloc_usable_size(moved));
  return moved;
}
void* memalign(std::size_t alignment, std::size_t size) {
  void* const pointer = __libc_memalign(alignment, size);
  Add(malloc_usable_size(pointer));
  return pointer;
}
void* aligned_alloc(std::size_t alignment, std::size_t size) { return memalign(alignment, size); }
int posix_memalign(void** pointer, std::size_t alignment, std::size_t size) {
  void* const made = memalign(alignment, size);
  if (made == nullptr) return ENOMEM;
  *pointer = made;
  return 0;
}
void free(void* pointer) {
  Subtract(malloc_usable_size(pointer));
  __libc_free(pointer);
}

}  // extern "C"

#endif

namespace zeph {

HeapMeter::HeapMeter() noexcept : before_(held.load()) { highest = before_; }

std::size_t HeapMeter::Peak() const noexcept { return static_cast<std::size_t>(highest.load() - before_); }

}  // namespace zeph
