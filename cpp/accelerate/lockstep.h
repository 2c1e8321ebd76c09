// Several searches that go down together: while the next node of one is on its way from memory, the others take
// their step. Each takes exactly the steps it takes alone.
#ifndef CACHET_CPP_ACCELERATE_LOCKSTEP_H
#define CACHET_CPP_ACCELERATE_LOCKSTEP_H

#include <array>
#include <memory>
#include <type_traits>
#include <utility>

#include "accelerate/prefetch.h"

namespace cachet {

// At most this many: as many as a core keeps loads under way.
inline constexpr std::size_t lockstep_width = 16;

// Room for something that is made later: std::optional would write all of it at once.
template <class T>
union Later {
  static_assert(std::is_trivially_destructible_v<T>);

  Later() noexcept : nothing() {}
  template <class... Args>
  T& make(Args&&... args) noexcept {
    return *std::construct_at(&value, std::forward<Args>(args)...);
  }

  char nothing;
  T value;
};

// Runs the first `count` descents to their ends.
template <class Descent, std::size_t width>
void go_down_together(std::array<Later<Descent>, width>& descents, std::size_t count) noexcept {
  std::array<Descent*, width> active;
  std::size_t left = 0;
  for (std::size_t index = 0; index < count; ++index) {
    Descent& descent = descents[index].value;
    if (descent.begin()) active[left++] = &descent;
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
