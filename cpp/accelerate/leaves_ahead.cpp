#include "accelerate/leaves_ahead.h"

#include <algorithm>

#include "accelerate/prefetch.h"
#include "rb/node.h"

namespace cachet {

namespace {

// The nodes that there are at one moment.
class NodesNow {
 public:
  explicit NodesNow(const FlatSpace& space) noexcept : space_(space), nodes_(Places::of_nodes(space)) {}

  // Null for a link that leads nowhere; asked for otherwise.
  [[gnu::always_inline]] Rb_node fetch(std::uint32_t number) const noexcept {
    if (!nodes_.have_node(number)) return nullptr;
    const Rb_node node = space_.node(number);
    prefetch(node);
    return node;
  }

 private:
  FlatSpace space_;
  Places nodes_;
};

}  // namespace

void LeavesAhead::fetch_first(const FlatSpace& space, Rb_node at, bool leftward) noexcept {
  prefetch(space.node(leftward ? blink_of(at) : flink_of(at)));
  prefetch(space.node(parent_of(at)));
}

void LeavesAhead::begin(const FlatSpace& space, Rb_node behind, bool leftward, unsigned wanted) noexcept {
  const NodesNow nodes(space);
  leftward_ = leftward;
  count_ = 0;
  unsigned promised = 0;
  Rb_node node = behind;
  for (unsigned level = 0; level < max_height && promised < wanted && !is(node, RB_ROOT); ++level) {
    const bool is_left = is(node, RB_LEFT);
    node = nodes.fetch(parent_of(node));
    if (node == nullptr || !is(node, RB_INTERNAL)) return;
    if (is_left == leftward) continue;
    const Rb_node subtree = nodes.fetch(child_of(node, leftward));
    if (subtree == nullptr) return;
    half_[which_][count_++] = subtree;
    promised += 1U << std::min(level, 8U);
  }
}

unsigned LeavesAhead::advance(const FlatSpace& space, Rb_node* leaves) noexcept {
  const NodesNow nodes(space);
  const Rb_node* from = half_[which_].data();
  const Rb_node* const end = from + count_;
  Rb_node* const begin = half_[which_ ^= 1].data();
  Rb_node* to = begin;
  Rb_node* leaf = leaves;
  for (; from != end && !is(*from, RB_INTERNAL); ++from) *leaf++ = *from;
  // Nodes far ahead that find no room are left out; the walk begins anew where they are missed.
  for (const Rb_node* const full = begin + room - 1; from != end && to < full; ++from) {
    const Rb_node node = *from;
    if (!is(node, RB_INTERNAL)) {
      *to++ = node;
      continue;
    }
    if ((*to = nodes.fetch(child_of(node, !leftward_))) != nullptr) ++to;
    if ((*to = nodes.fetch(child_of(node, leftward_))) != nullptr) ++to;
  }
  count_ = static_cast<unsigned>(to - begin);
  return static_cast<unsigned>(leaf - leaves);
}

}  // namespace cachet
