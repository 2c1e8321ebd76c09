// What ThreadSanitizer cannot see by itself: it knows a lock by its address, and the handles of one process map the same
// lock at different ones. In any other build nothing.
#ifndef CACHET_CPP_BASE_THREAD_SANITIZER_H
#define CACHET_CPP_BASE_THREAD_SANITIZER_H

#include <cstddef>

#ifdef __SANITIZE_THREAD__
#define CACHET_THREAD_SANITIZER
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define CACHET_THREAD_SANITIZER
#endif
#endif

#ifdef CACHET_THREAD_SANITIZER
#include <sanitizer/tsan_interface.h>
#endif

namespace cachet {

#ifdef CACHET_THREAD_SANITIZER

// Stands for the slot of a lock whose page is this segment, in every thread of the process.
inline void* stand_in_for(int segment_id, int slot) noexcept {
  static char stand_ins[4096];
  return &stand_ins[(static_cast<std::size_t>(segment_id) * 8 + static_cast<std::size_t>(slot)) %
                    sizeof stand_ins];
}
inline void tell_taken(int segment_id, int slot) noexcept {
  __tsan_acquire(stand_in_for(segment_id, slot));
}
inline void tell_given_back(int segment_id, int slot) noexcept {
  __tsan_release(stand_in_for(segment_id, slot));
}

#else

inline void tell_taken(int, int) noexcept {}
inline void tell_given_back(int, int) noexcept {}

#endif

}  // namespace cachet

#endif
