// The leaves that a walk comes to next. The list of leaves names only the next one, one cache miss after the other;
// the tree above them names many at once.
//
// What must stay true: the list is the authority. This decides nothing, it only tells what to fetch early, and it may
// be out of date. So every link is checked before it is followed, on every handle.
#ifndef CACHET_CPP_ACCELERATE_LEAVES_AHEAD_H
#define CACHET_CPP_ACCELERATE_LEAVES_AHEAD_H

#include <array>

#include "rb.h"

namespace cachet {

// One walk at a time, in steps; another walk, or a turn, starts it anew. A walk is looked ahead from its second step
// on: 8 leaves at first, 32 when it goes on.
class LeavesAhead {
 public:
  // The walk has gone from one leaf to its neighbour: the left one (`leftward`, against the list) or the right one.
  void follow(const Rb_base* base, Rb_node from, Rb_node to, bool leftward) noexcept;

  // The leaf that the walk comes to in `steps` steps, 1 = the next one; null when it is not known. Its cache line
  // has been asked for.
  Rb_node at(unsigned steps) const noexcept {
    const unsigned index = next_ + steps - 1;
    return index < count_ ? leaves_[index] : nullptr;
  }

 private:
  static constexpr unsigned least_window = 8;
  static constexpr unsigned largest_window = 32;

  void restart(Rb_node at, bool leftward) noexcept;
  void look_further(const Rb_base* base, Rb_node behind) noexcept;

  std::array<Rb_node, std::size_t{2} * largest_window> leaves_;
  unsigned next_ = 0;
  unsigned count_ = 0;
  unsigned window_ = 0;
  Rb_node here_ = nullptr;
  bool leftward_ = false;
  bool saw_end_ = false;
};

}  // namespace cachet

#endif
