// The leaves that a walk comes to next. The list of leaves names only the next one, one cache miss after the other;
// the tree above them names many at once.
//
// What must stay true: the list is the authority. This decides nothing, it only tells what to fetch early, and it may
// be out of date. So every link is checked before it is followed, on every handle, and links that lead in circles come
// to an end.
#ifndef CACHET_CPP_ACCELERATE_LEAVES_AHEAD_H
#define CACHET_CPP_ACCELERATE_LEAVES_AHEAD_H

#include "rb.h"

namespace cachet {

// At most so many at once.
inline constexpr unsigned most_leaves_ahead = 64;

// Writes the next leaves behind one, in the order of a walk to the left (to larger keys) or to the right, and asks for
// their cache lines. It aims at `wanted`, up to half of the most, and gives all that it comes by. Returns how many; none
// means that there are none.
unsigned leaves_ahead(const Rb_base* base, Rb_node behind, bool leftward, unsigned wanted,
                      Rb_node* leaves) noexcept;

}  // namespace cachet

#endif
