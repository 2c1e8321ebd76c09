#include "accelerate/leaves_ahead.h"

#include <algorithm>
#include <array>

#include "accelerate/prefetch.h"
#include "rb/node.h"

namespace cachet {

namespace {

// No balanced tree is higher; a tree under change may seem to be.
constexpr unsigned max_depth = 128;

// A list of nodes with room for so many; what finds none is left out.
template <unsigned room>
class Nodes {
 public:
  bool empty() const noexcept { return count_ == 0; }
  unsigned count() const noexcept { return count_; }
  Rb_node operator[](unsigned index) const noexcept { return nodes_[index]; }
  void push(Rb_node node) noexcept {
    if (count_ != room) nodes_[count_++] = node;
  }
  Rb_node pop() noexcept { return nodes_[--count_]; }

 private:
  std::array<Rb_node, room> nodes_;
  unsigned count_ = 0;
};

using Subtrees = Nodes<max_depth>;

class Walk {
 public:
  Walk(const Rb_base* base, bool leftward) : base_(base), reach_(base), leftward_(leftward) {}

  // The subtrees next to a leaf in the order of the walk, until they promise so many leaves.
  void climb(Rb_node leaf, unsigned wanted, Subtrees& subtrees) {
    unsigned promised = 0;
    Rb_node node = leaf;
    for (unsigned level = 0; level < max_depth && promised < wanted && !is(node, RB_ROOT); ++level) {
      const std::uint32_t parent = parent_of(node);
      if (!reach_.node(parent)) return;
      const bool is_left = is(node, RB_LEFT);
      node = node_at(base_, parent);
      if (!is(node, RB_INTERNAL)) return;
      if (is_left == leftward_) continue;
      add(child_of(node, leftward_), subtrees);
      promised += 1U << std::min(level, 8U);
    }
  }

  // Asks for their nodes, level by level: those of one level come together.
  void fetch(const Subtrees& subtrees) {
    Nodes<2 * most_leaves_ahead> queue;
    for (unsigned index = 0; index < subtrees.count(); ++index) queue.push(subtrees[index]);
    for (unsigned index = 0; index < queue.count(); ++index) {
      const Rb_node node = queue[index];
      if (!is(node, RB_INTERNAL)) continue;
      add(child_of(node, !leftward_), queue);
      add(child_of(node, leftward_), queue);
    }
  }

  // Their leaves in order, the first ones if they have too many.
  unsigned collect(const Subtrees& subtrees, Rb_node* leaves) {
    unsigned count = 0;
    unsigned visits_left = 4 * most_leaves_ahead;
    Nodes<max_depth> stack;
    for (unsigned index = 0; index < subtrees.count(); ++index) {
      stack.push(subtrees[index]);
      while (!stack.empty()) {
        if (count == most_leaves_ahead || visits_left-- == 0) return count;
        const Rb_node node = stack.pop();
        if (is(node, RB_INTERNAL)) {
          add(child_of(node, leftward_), stack);
          add(child_of(node, !leftward_), stack);
        } else {
          leaves[count++] = node;
        }
      }
    }
    return count;
  }

 private:
  template <unsigned room>
  void add(std::uint32_t number, Nodes<room>& to) {
    if (!reach_.node(number)) return;
    const Rb_node node = node_at(base_, number);
    prefetch(node);
    to.push(node);
  }

  const Rb_base* base_;
  Reach reach_;
  bool leftward_;
};

}  // namespace

unsigned leaves_ahead(const Rb_base* base, Rb_node behind, bool leftward, unsigned wanted,
                      Rb_node* leaves) noexcept {
  Walk walk(base, leftward);
  Subtrees subtrees;
  walk.climb(behind, wanted, subtrees);
  walk.fetch(subtrees);
  return walk.collect(subtrees, leaves);
}

}  // namespace cachet
