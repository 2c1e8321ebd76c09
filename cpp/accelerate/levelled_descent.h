// A search that goes through the packed levels first (accelerate_levels.h), and fills them on its way.
//
// The nodes there may have moved, so it may end beside the key's place: it proves the place. A key that it found
// stands. A key that it did not find stands if the leaf it ended at is the last key passed to the right, and this
// leaf's predecessor in the list the last one passed to the left: no key can lie between neighbours. Otherwise the
// search is made again from the root, and what it meets replaces what has moved.
//
// Keys passed by separators that skip bytes: a node that has moved need not lie between the nearest keys passed, and
// then need not share what they share with the searched key. What the two ends of the tree share, every key shares.
// If a separator that decided skipped more than that, the keys that the proof rests on are compared as a whole.
#ifndef CACHET_CPP_ACCELERATE_LEVELLED_DESCENT_H
#define CACHET_CPP_ACCELERATE_LEVELLED_DESCENT_H

#include "accelerate/descent.h"
#include "accelerate_levels.h"

namespace cachet {

template <bool checked, class Stored>
class LevelledDescent : public Descent<checked, Stored> {
  using Base = Descent<checked, Stored>;

 public:
  enum class From { levels, root };

  // `levels` are those of this tree, begun; null, and it is a plain descent.
  LevelledDescent(const Rb_base* base, Rb_node head, const KeyBytes& key, Stored stored, PackedLevels* levels,
                  From from = From::levels) noexcept
      : Base(base, head, key, stored), levels_(features::packed_levels ? levels : nullptr), from_(from) {}

  bool begin() noexcept {
    if (!Base::begin()) return false;
    if (levels_ == nullptr || from_ == From::root) return true;
    shared_with_last_ = this->shared_with_[Base::to_right];
    return go_through_levels();
  }

  [[gnu::always_inline]] bool step() noexcept {
    if (levels_ == nullptr) return Base::step();
    const Rb_node here = this->node_;
    if (position_ < PackedLevels::end && is(here, RB_INTERNAL)) fill(here);
    if (!Base::step()) return false;
    pass(here, number_of(this->node_) != left_of(here));
    return true;
  }

  // At the end: whether the result is the key's place.
  bool stands() noexcept {
    if (!has_jumped_) return true;
    if (this->found_) return !decided_on_trust() || this->stored_.compare(this->node_).order == 0;
    if (is(this->node_, RB_INTERNAL)) return false;
    const Rb_node larger = passed_[Base::to_right];
    const Rb_node smaller = passed_[Base::to_left];
    const std::uint32_t right = larger != nullptr ? lext_of(larger) : this->last_;
    const std::uint32_t left = smaller != nullptr ? lext_of(smaller) : number_of(this->head_);
    if (right != number_of(this->node_) || left != blink_of(this->node_)) return false;
    return !decided_on_trust() || (proves(right, -1) && (left == number_of(this->head_) || proves(left, 1)));
  }

  // The search again, past levels that led it astray.
  LevelledDescent from_root() const noexcept {
    return {this->base_, this->head_, this->key_, this->stored_, levels_, From::root};
  }

 private:
  std::uint32_t number_of(Rb_node node) const noexcept { return value_of(node_number_of(this->base_, node)); }

  // Every position has at most two more below it: it stays beyond the end once it is there.
  void pass(Rb_node node, bool behind) noexcept {
    passed_[behind ? Base::to_left : Base::to_right] = node;
    if (position_ < PackedLevels::end) position_ = 2 * position_ + (behind ? 1 : 0);
  }

  void fill(Rb_node node) noexcept {
    const SeparatorBytes separator(node);
    levels_->put(position_, {separator.window(), separator.header(), number_of(node)});
  }

  bool go_through_levels() noexcept {
    if (levels_->at(PackedLevels::root).node_number != number_of(this->node_)) return true;
    has_jumped_ = true;
    bool behind = false;
    do {
      const PackedLevels::Entry& entry = levels_->at(position_);
      if (entry.node_number == 0) return this->go_to_child(behind);
      if (checked && !this->reach_.node(entry.node_number)) return false;
      this->node_ = node_at(this->base_, entry.node_number);
      // What takes more than a look, or ends the search, is the step's own at this node.
      if (entry.header != this->header_ || entry.window == this->window_) {
        return true;
      }
      behind = this->is_behind(entry.window);
      pass(this->node_, behind);
    } while (position_ < PackedLevels::end);
    return this->go_to_child(behind);
  }

  bool decided_on_trust() noexcept {
    return this->skip_ != 0 && this->skip_ > std::min(shared_with_last_, this->shared_with_first());
  }

  // Whether the whole searched key lies on this side of the one at an external node.
  bool proves(std::uint32_t external, int side) noexcept {
    if (!this->may_follow(external)) return false;
    const Comparison comparison = this->stored_.compare(node_at(this->base_, external));
    this->note(comparison.order > 0, comparison.shared);
    return comparison.order == side;
  }

  PackedLevels* levels_;
  From from_;
  unsigned shared_with_last_ = 0;
  std::uint32_t position_ = PackedLevels::root;
  Rb_node passed_[2] =
      {};  // the last node whose key lies on that side; none to the right: it is the tree's last
  bool has_jumped_ = false;
};

}  // namespace cachet

#endif
