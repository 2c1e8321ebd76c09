// Access to words that other processes read and write, and to values that lie unaligned in packed records.
//
// This is the only place that knows how a shared word is touched:
//   - an aligned word (header fronts, catalog counters, tree links, the words of the lock page) is a C++ atomic
//     with a stated order;
//   - a word that may lie unaligned (record headers, index items, node keys: the data area starts at whatever
//     size the database has) is copied with one machine instruction and ordered with fences. x86-64 never
//     reorders loads with loads or stores with stores, so the fences only hold the compiler. A word that
//     crosses a cache line may tear; readers check every link before they follow it and validate afterwards.
//
// A loaded value is laundered, so the compiler never reads the shared word a second time behind a check.
#ifndef CACHET_SHARED_WORD_H
#define CACHET_SHARED_WORD_H

#include <atomic>
#include <cstring>
#include <type_traits>

namespace cachet {

// In a build for crash tests every store to a shared word can be the process's last; otherwise nothing.
#ifdef CACHET_CRASH_POINTS
void crash_point() noexcept;
#else
inline void crash_point() noexcept {}
#endif

template <class T>
inline T load_unaligned(const void* address) noexcept {
  static_assert(std::is_trivially_copyable_v<T>);
  T value;
  std::memcpy(&value, address, sizeof value);
  if constexpr (std::is_integral_v<T> || std::is_pointer_v<T>) asm("" : "+r"(value));
  return value;
}

template <class T>
inline void store_unaligned(void* address, std::type_identity_t<T> value) noexcept {
  static_assert(std::is_trivially_copyable_v<T>);
  crash_point();
  std::memcpy(address, &value, sizeof value);
}

// For shared words that may lie unaligned.
template <class T>
inline T load_acquire_unaligned(const void* address) noexcept {
  const T value = load_unaligned<T>(address);
  std::atomic_thread_fence(std::memory_order_acquire);
  return value;
}

template <class T>
inline void store_release_unaligned(void* address, std::type_identity_t<T> value) noexcept {
  std::atomic_thread_fence(std::memory_order_release);
  store_unaligned<T>(address, value);
}

// For aligned shared words. The word is named by address, since a reference into a packed record is not
// allowed.
template <class T>
inline std::atomic_ref<T> shared_word(void* address) noexcept {
  crash_point();
  return std::atomic_ref<T>(*static_cast<T*>(address));
}

template <class T>
inline T load_acquire(const void* address) noexcept {
  return std::atomic_ref<T>(*static_cast<T*>(const_cast<void*>(address))).load(std::memory_order_acquire);
}

template <class T>
inline T load_relaxed(const void* address) noexcept {
  return std::atomic_ref<T>(*static_cast<T*>(const_cast<void*>(address))).load(std::memory_order_relaxed);
}

template <class T>
inline void store_release(void* address, std::type_identity_t<T> value) noexcept {
  shared_word<T>(address).store(value, std::memory_order_release);
}

template <class T>
inline void store_relaxed(void* address, std::type_identity_t<T> value) noexcept {
  shared_word<T>(address).store(value, std::memory_order_relaxed);
}

}  // namespace cachet

#endif
