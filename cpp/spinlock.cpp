#include "spinlock.h"

#include <immintrin.h>
#include <sys/select.h>

#include "shared_word.h"

namespace {

// Long enough for a holder on another processor to finish its few stores, short against a yield.
constexpr int pauses_before_yield = 64;

}  // namespace

Cspinlock::Cspinlock() : m_p(nullptr) {}
Cspinlock::~Cspinlock() = default;

void Cspinlock::Set(char* p) {
  m_p = reinterpret_cast<std::int32_t*>(p);
}

bool Cspinlock::Lock() {
  if (m_p == nullptr) return false;
  while (!TryLock()) Snap();
  return true;
}

bool Cspinlock::TryLock() {
  if (m_p == nullptr) return false;
  const auto word = cachet::shared_word<std::int32_t>(m_p);
  for (int i = 0; i < pauses_before_yield; ++i) {
    std::int32_t free = 0;
    if (word.load(std::memory_order_relaxed) == 0 &&
        word.compare_exchange_strong(free, 1, std::memory_order_acquire, std::memory_order_relaxed)) {
      return true;
    }
    _mm_pause();
  }
  return false;
}

void Cspinlock::Unlock() {
  if (m_p != nullptr) cachet::shared_word<std::int32_t>(m_p).fetch_sub(1, std::memory_order_release);
}

void Cspinlock::Snap() {
  timeval no_time{0, 0};
  select(0, nullptr, nullptr, nullptr, &no_time);
}
