#include "memchanel/wait.h"

#include <immintrin.h>
#include <sched.h>

#include <ctime>

#include "shared_word.h"

namespace cachet::mailbox {

namespace {

constexpr int pauses = 256;
constexpr int yields = 50;

// A yield that took longer has let another program run, not just the other side.
constexpr std::int64_t long_yield_ns = 20'000;

// How long a disappointed getter does without. A wait in vain costs microseconds, a long yield milliseconds.
constexpr std::int64_t rest_from_waiting_ns = 2'000'000;
constexpr std::int64_t rest_from_yields_ns = 1'000'000'000;

std::int64_t monotonic_ns() noexcept {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * std::int64_t{1'000'000'000} + now.tv_nsec;
}

bool has_come(std::int32_t* state, std::int32_t value) noexcept {
  return load_relaxed<std::int32_t>(state) == value;
}

bool comes_while_pausing(std::int32_t* state, std::int32_t value) noexcept {
  for (int i = 0; i < pauses; ++i) {
    if (has_come(state, value)) return true;
    _mm_pause();
  }
  return false;
}

bool comes_while_yielding(std::int32_t* state, std::int32_t value, Habit& habit) noexcept {
  std::int64_t before_ns = monotonic_ns();
  if (before_ns < habit.yield_again_ns) return false;
  for (int i = 0; i < yields; ++i) {
    sched_yield();
    const std::int64_t now_ns = monotonic_ns();
    const bool was_long = now_ns - before_ns > long_yield_ns;
    if (was_long) habit.yield_again_ns = now_ns + rest_from_yields_ns;
    if (has_come(state, value)) return true;
    if (was_long) return false;
    before_ns = now_ns;
  }
  return false;
}

}  // namespace

void wait_awake(std::int32_t* state, std::int32_t value, Habit& habit) noexcept {
  if (habit.awake_again_ns != 0 && monotonic_ns() < habit.awake_again_ns) return;
  const bool paid = comes_while_pausing(state, value) || comes_while_yielding(state, value, habit);
  habit.awake_again_ns = paid ? 0 : monotonic_ns() + rest_from_waiting_ns;
}

int Deadline::rest_ms() noexcept {
  if (limit_ms_ < 0) return -1;
  const std::int64_t now_ns = monotonic_ns();
  if (end_ns_ == 0) end_ns_ = now_ns + limit_ms_ * std::int64_t{1'000'000};
  const std::int64_t rest_ns = end_ns_ - now_ns;
  return rest_ns <= 0 ? 0 : static_cast<int>((rest_ns + 999'999) / 1'000'000);
}

}  // namespace cachet::mailbox
