// Several searches that go down together: while the next node of one is on its way from memory, the others take
// their step. Each takes exactly the steps it takes alone.
#ifndef CACHET_CPP_ACCELERATE_LOCKSTEP_H
#define CACHET_CPP_ACCELERATE_LOCKSTEP_H

#include <array>
#include <optional>

#include "accelerate/prefetch.h"

namespace cachet {

// At most this many: as many as a core keeps loads under way.
inline constexpr std::size_t lockstep_width = 16;

// Runs the first `count` descents to their ends.
template <class Descent>
void go_down_together(std::array<std::optional<Descent>, lockstep_width>& descents,
                      std::size_t count) noexcept {
  std::array<Descent*, lockstep_width> active;
  std::size_t left = 0;
  for (std::size_t index = 0; index < count; ++index) {
    if (descents[index]->begin()) active[left++] = &*descents[index];
  }
  while (left != 0) {
    std::size_t kept = 0;
    for (std::size_t index = 0; index < left; ++index) {
      const bool goes_on = active[index]->step();
      prefetch(active[index]->node());
      if (goes_on) active[kept++] = active[index];
    }
    left = kept;
  }
}

}  // namespace cachet

#endif
