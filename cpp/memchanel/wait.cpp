#include "memchanel/wait.h"

#include <immintrin.h>
#include <sched.h>

#include <algorithm>
#include <ctime>

#include "shared_word.h"

namespace cachet::mailbox {

namespace {

// Together longer than the other side takes to be woken up. Otherwise, once one side has slept, each would wait in vain
// for the other one to wake, and sleep in its turn, for good.
constexpr int pauses = 256;
constexpr int yields = 150;

// What came only as this side gave its processor away may need that to come at all. So many waits pause less then, before
// one finds out whether that is still so.
constexpr int pauses_in_haste = 16;
constexpr int waits_in_haste = 64;

// A yield that took longer has let another program run, not just the other side.
constexpr std::int64_t long_yield_ns = 300'000;

// How long a disappointed getter does without: twice as long each time in a row.
struct RestLimits {
  std::int64_t shortest_ns;
  std::int64_t longest_ns;
};
constexpr RestLimits after_wait_in_vain = {250'000, 4'000'000};       // which costs tens of microseconds
constexpr RestLimits after_long_yield = {16'000'000, 1'000'000'000};  // which costs milliseconds

std::int64_t monotonic_ns() noexcept {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * std::int64_t{1'000'000'000} + now.tv_nsec;
}

bool has_come(std::int32_t* state, std::int32_t value) noexcept {
  return load_relaxed<std::int32_t>(state) == value;
}

bool comes_while_pausing(std::int32_t* state, std::int32_t value, Habit& habit) noexcept {
  for (int left = habit.hasty_waits > 0 ? pauses_in_haste : pauses; left > 0; --left) {
    if (has_come(state, value)) {
      habit.hasty_waits = 0;
      return true;
    }
    _mm_pause();
  }
  return false;
}

void begin_rest(Habit::Rest& rest, const RestLimits& limits) noexcept {
  rest.length_ns = std::clamp(2 * rest.length_ns, limits.shortest_ns, limits.longest_ns);
  rest.end_ns = monotonic_ns() + rest.length_ns;
}

bool comes_while_yielding(std::int32_t* state, std::int32_t value, Habit& habit) noexcept {
  std::int64_t before_ns = monotonic_ns();
  if (before_ns < habit.from_yields.end_ns) return false;
  for (int i = 0; i < yields; ++i) {
    sched_yield();
    const std::int64_t now_ns = monotonic_ns();
    if (now_ns - before_ns > long_yield_ns) {
      begin_rest(habit.from_yields, after_long_yield);
      habit.hasty_waits = 0;
      return has_come(state, value);
    }
    if (has_come(state, value)) {
      habit.from_yields = {};
      habit.hasty_waits = habit.hasty_waits > 0 ? habit.hasty_waits - 1 : waits_in_haste;
      return true;
    }
    before_ns = now_ns;
  }
  return false;
}

}  // namespace

void wait_awake(std::int32_t* state, std::int32_t value, Habit& habit) noexcept {
  Habit::Rest& rest = habit.from_waiting;
  if (rest.end_ns != 0 && monotonic_ns() < rest.end_ns) return;
  if (comes_while_pausing(state, value, habit) || comes_while_yielding(state, value, habit)) {
    rest = {};
  } else {
    begin_rest(rest, after_wait_in_vain);
  }
}

int Deadline::rest_ms() noexcept {
  if (limit_ms_ < 0) return -1;
  const std::int64_t now_ns = monotonic_ns();
  if (end_ns_ == 0) end_ns_ = now_ns + limit_ms_ * std::int64_t{1'000'000};
  const std::int64_t rest_ns = end_ns_ - now_ns;
  return rest_ns <= 0 ? 0 : static_cast<int>((rest_ns + 999'999) / 1'000'000);
}

}  // namespace cachet::mailbox
