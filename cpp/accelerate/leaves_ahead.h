// The leaves that a walk comes to next. The list of leaves names only the next one, one cache miss after the other;
// the tree above them names many at once: a climb from one leaf finds the subtrees that come behind it, and these are
// taken apart level by level. Each step reads only what the step before has asked for, so that the nodes of one level
// come together, and while the walk goes on.
//
// What must stay true: the list is the authority. This decides nothing, it only tells what to fetch early, and it may
// be out of date. So every link is checked before it is followed, on every handle, and links that lead in circles come
// to an end.
#ifndef CACHET_CPP_ACCELERATE_LEAVES_AHEAD_H
#define CACHET_CPP_ACCELERATE_LEAVES_AHEAD_H

#include <array>

#include "rb.h"

namespace cachet {

class LeavesAhead {
 public:
  // No balanced tree is higher; a tree under change may seem to be.
  static constexpr unsigned max_height = 60;
  // What is found at once, at most.
  static constexpr unsigned room = 64;

  // Asks for what a walk from a leaf reads first, and the search for more.
  static void fetch_first(const FlatSpace& space, Rb_node at, bool leftward) noexcept;

  // Begins behind a leaf, in the order of a walk to the left (to larger keys) or to the right. It aims at `wanted`
  // leaves, up to half of the room. What was not told of the last beginning is forgotten.
  void begin(const FlatSpace& space, Rb_node behind, bool leftward, unsigned wanted) noexcept;

  // One level further. Writes the leaves that come next and are known now, and returns how many.
  unsigned advance(const FlatSpace& space, Rb_node* leaves) noexcept;

  // Whether there is something left to tell.
  bool goes_on() const noexcept { return count_ != 0; }
  void stop() noexcept { count_ = 0; }

 private:
  std::array<Rb_node, room>
      half_[2];  // subtrees (or leaves), in the order of the walk, asked for; and scratch
  unsigned which_ = 0;
  unsigned count_ = 0;
  bool leftward_ = false;
};

}  // namespace cachet

#endif
