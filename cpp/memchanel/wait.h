// Waiting for a box to be filled without the kernel: pauses first, then yields, as long as that pays.
//
// A frame that comes while its getter is awake costs no system call on either side. A getter that waits awake in vain
// has lost microseconds, unless another program wants the processor: then a yield may last that program's whole time
// slice, and sleeping at once is better. So a getter remembers how it fared (Habit).
#ifndef CACHET_CPP_MEMCHANEL_WAIT_H
#define CACHET_CPP_MEMCHANEL_WAIT_H

#include <cstdint>

#include "memchanel.h"

namespace cachet::mailbox {

// Returns as soon as the word `state` is `value`, and otherwise after some 60 microseconds, or at once after it was in
// vain lately.
void wait_awake(std::int32_t* state, std::int32_t value, Habit& habit) noexcept;

// A limit of `ms` milliseconds, which run from the first question on; none for -1.
class Deadline {
 public:
  explicit Deadline(int ms) noexcept : limit_ms_(ms) {}

  // What is left, rounded up; -1 without limit.
  int rest_ms() noexcept;
  bool has_passed() noexcept { return rest_ms() == 0; }

 private:
  int limit_ms_;
  std::int64_t end_ns_ = 0;
};

}  // namespace cachet::mailbox

#endif
