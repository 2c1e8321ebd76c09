#include "accelerate/leaves_ahead.h"

#include <algorithm>

#include "accelerate/prefetch.h"
#include "rb/node.h"

namespace cachet {

namespace {

// No balanced tree is higher; a tree under change may seem to be.
constexpr unsigned max_depth = 128;

// Subtrees in the order of a walk; the nearest ones when there are more than there is room for.
class Subtrees {
 public:
  Subtrees(const Rb_base* base, unsigned limit) : base_(base), reach_(base), limit_(limit) {}

  // Those next to a leaf, until they promise leaves enough.
  void climb(Rb_node leaf, bool leftward) {
    unsigned promised = 0;
    Rb_node node = leaf;
    for (unsigned level = 0; level < max_depth && promised < limit_ && !is(node, RB_ROOT); ++level) {
      const std::uint32_t parent = parent_of(node);
      if (!reach_.node(parent)) return;
      const bool is_left = is(node, RB_LEFT);
      node = node_at(base_, parent);
      if (!is(node, RB_INTERNAL)) return;
      if (is_left == leftward) continue;
      add(child_of(node, leftward));
      promised += 1U << std::min(level, 8U);
    }
  }

  // Takes every subtree apart, all by one level in each round, so that their nodes are fetched together. False when
  // there was none left but leaves.
  bool take_apart(bool leftward) {
    const std::array<Rb_node, room> roots = roots_;
    const unsigned count = count_;
    bool all_leaves = true;
    count_ = 0;
    for (unsigned index = 0; index < count && count_ < limit_; ++index) {
      const Rb_node node = roots[index];
      if (!is(node, RB_INTERNAL)) {
        roots_[count_++] = node;
        continue;
      }
      all_leaves = false;
      add(child_of(node, !leftward));
      add(child_of(node, leftward));
    }
    return !all_leaves;
  }

  const Rb_node* begin() const { return roots_.data(); }
  const Rb_node* end() const { return roots_.data() + count_; }

 private:
  static constexpr unsigned room = 32;

  void add(std::uint32_t number) {
    if (count_ == limit_ || !reach_.node(number)) return;
    roots_[count_] = node_at(base_, number);
    prefetch(roots_[count_++]);
  }

  const Rb_base* base_;
  Reach reach_;
  unsigned limit_;
  unsigned count_ = 0;
  std::array<Rb_node, room> roots_;
};

}  // namespace

void LeavesAhead::restart(Rb_node at, bool leftward) noexcept {
  next_ = count_ = window_ = 0;
  here_ = at;
  leftward_ = leftward;
  saw_end_ = false;
}

void LeavesAhead::look_further(const Rb_base* base, Rb_node behind) noexcept {
  std::copy(leaves_.begin() + next_, leaves_.begin() + count_, leaves_.begin());
  count_ -= next_;
  next_ = 0;
  Subtrees subtrees(base, window_);
  subtrees.climb(behind, leftward_);
  for (unsigned level = 0; level < max_depth && subtrees.take_apart(leftward_); ++level) {
  }
  saw_end_ = subtrees.begin() == subtrees.end();
  for (const Rb_node leaf : subtrees) leaves_[count_++] = leaf;
}

void LeavesAhead::follow(const Rb_base* base, Rb_node from, Rb_node to, bool leftward) noexcept {
  if (from != here_ || leftward != leftward_) return restart(to, leftward);
  here_ = to;
  if (next_ < count_) {
    // A leaf that has come since is passed by; the others are still ahead.
    if (leaves_[next_] == to) ++next_;
  }
  if (count_ - next_ > window_ / 2 || saw_end_) return;
  window_ = std::clamp(2 * window_, least_window, largest_window);
  look_further(base, next_ < count_ ? leaves_[count_ - 1] : to);
}

}  // namespace cachet
