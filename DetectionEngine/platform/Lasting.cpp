// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/platform/Lasting.h"

#include <mutex>

#include <cxxabi.h>
#include <semaphore.h>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

#if defined(__SANITIZE_THREAD__)
extern "C" {
extern void* __dso_handle __attribute__((__visibility__("hidden")));
}
#endif

namespace zeph {

namespace {

#if defined(__SANITIZE_THREAD__)
// The thread sanitizer calls what belongs to no module without its argument.
void* const kOwner = &__dso_handle;
#else
// With no module to belong to a function is called at the end of the process only.
constexpr void* kOwner = nullptr;
#endif

struct Entry {
  void (*remove)(void*);
  void* object;
  Entry* next;
};

constinit std::mutex guard;
constinit Entry* newest = nullptr;

/// Above 0 once the process is ending. It lies on the heap, and a function of the C library writes it, since the module
/// may be gone by then.
constinit sem_t* ending = nullptr;

/// Has the end of the process told before any module's destructors run: what is registered last is called first, and the
/// destructors are registered when the program starts. Objects that are made before that, while libraries come up, are not
/// yet in use by threads; so each new one asks again. Under the guard.
void WatchForTheEnd() {
  if (ending == nullptr) {
    ending = new sem_t;
    sem_init(ending, 0, 0);
#if defined(__SANITIZE_ADDRESS__)
    __lsan_ignore_object(ending);  // it outlives the module by intent: 32 bytes a load
#endif
  }
  const auto post = reinterpret_cast<void (*)(void*)>(reinterpret_cast<void (*)()>(&sem_post));
  if (abi::__cxa_atexit(post, ending, kOwner) != 0) sem_post(ending);
}

// The last of this module's destructors, by its priority.
[[gnu::destructor(101)]] void RemoveAll() {
  int value = 0;
  if (ending == nullptr || sem_getvalue(ending, &value) != 0 || value > 0) return;
  while (Entry* const entry = newest) {
    newest = entry->next;
    entry->remove(entry->object);
    delete entry;
  }
}

}  // namespace

void RemoveAtUnload(void (*remove)(void*), void* object) {
  const std::lock_guard lock(guard);
  newest = new Entry{remove, object, newest};
  WatchForTheEnd();
}

}  // namespace zeph
