// A search of a record tree, one level at a time, that decides by separators where nodes have them.
//
// It takes the steps of rb_find_gkey_n and exactly its decisions: a separator only replaces the comparison with the
// key it was made from. The window of the searched key that begins where the separator does is compared with it.
// The first different byte decides; if there is none, the keys are equal when the whole searched key lies inside,
// and else the stored key is compared.
//
// A separator that skips bytes says nothing about them. It is used when the searched key is known to share them:
// whatever lies between two keys that share some bytes shares them too, so the separators below a place share with
// the searched key what the nearest separators passed to the left and to the right share with it. At first these are
// the tree's own ends, as they are during this search.
//
// One level is one step, so that several searches can go down together while each one's next node is on its way.
#ifndef CACHET_CPP_ACCELERATE_DESCENT_H
#define CACHET_CPP_ACCELERATE_DESCENT_H

#include "accelerate/key_bytes.h"
#include "base/features.h"
#include "rb/node.h"

namespace cachet {

// What comparing with a stored key has shown. `shared`: bytes in front of the first difference.
struct Comparison {
  int order;
  unsigned shared;
};

// `Stored` compares the searched key with the one at an external node: `Comparison compare(Rb_node)`, and gives that
// one's bytes: `bool bytes_of(Rb_node, KeyBytes&)`. With `checked`, links are checked before they are followed.
template <bool checked, class Stored>
class Descent {
 public:
  static constexpr int max_depth = 128;

  Descent(const Rb_base* base, Rb_node head, const KeyBytes& key, Stored stored) noexcept
      : base_(base),
        reach_(base),
        key_(key),
        stored_(stored),
        head_(head),
        node_(head),
        window_(key.window(0)),
        tracks_(key.ordered() > Separator::window_bytes) {}

  // Looks at the tree's ends. False when the search has ended already.
  bool begin() noexcept {
    const std::uint32_t root = root_of(head_);
    last_ = blink_of(head_);
    if (!may_follow(root) || !may_follow(last_)) return false;
    node_ = node_at(base_, root);
    if (node_ == head_) return false;
    const Rb_node last = node_at(base_, last_);
    const Comparison with_last = stored_.compare(last);
    note(with_last.order, with_last.shared);
    if (with_last.order == 0) return end(last, true);
    return with_last.order < 0 || end(head_, false);
  }

  // Goes down one level. False when the search has ended.
  bool step() noexcept {
    if (!is(node_, RB_INTERNAL)) return false;
    const std::uint32_t lext = lext_of(node_);
    if (checked && (depth_++ == max_depth || !reach_.node(lext))) return false;
    const int order = order_at(lext);
    if (order == 0) return end(node_at(base_, lext), true);
    const std::uint32_t child = child_of(node_, order < 0);
    if (!may_follow(child)) return false;
    node_ = node_at(base_, child);
    return true;
  }

  // Where it has got to: the result, when it has ended.
  Rb_node node() const noexcept { return node_; }
  bool found() const noexcept { return found_; }

  // The separator for the node that is made when the searched key enters the tree here: of this key, or of the last
  // one, when this key goes behind it.
  Separator separator_for_entry() noexcept {
    if (node_ != head_) return key_.separator(skip_for_entry());
    KeyBytes last;
    if (!reach_.node(last_) || last_ == value_of(node_number_of(base_, head_))) return {};
    if (!stored_.bytes_of(node_at(base_, last_), last)) return {};
    const unsigned skip = skip_for_entry();
    return skip < last.size() ? last.separator(skip) : Separator{};
  }

 private:
  bool may_follow(std::uint32_t link) noexcept { return !checked || reach_.node(link); }

  bool end(Rb_node node, bool found) noexcept {
    node_ = node;
    found_ = found;
    return false;
  }

  int order_at(std::uint32_t lext) noexcept {
    if (const SeparatorBytes separator(node_); features::separators && separator.is_for(key_.first_type())) {
      const unsigned skip = separator.skip();
      if (skip == 0 || shares(skip)) {
        const std::uint64_t window = skip == 0 ? window_ : key_.window(skip);
        const std::uint64_t different = window ^ separator.window();
        const unsigned valid = std::min(separator.count(), key_.size() - skip);
        // Both windows end in zeros, but a byte that only one of them has does not decide.
        if (valid != 0 && different >> (64 - 8 * valid) != 0) {
          const int order = window < separator.window() ? 1 : -1;
          if (tracks_) note(order, skip + static_cast<unsigned>(std::countl_zero(different)) / 8);
          return order;
        }
        if (key_.is_whole() && key_.size() != 0 && key_.size() <= skip + separator.count()) return 0;
      }
    }
    const Comparison comparison = stored_.compare(node_at(base_, lext));
    if (tracks_) note(comparison.order, comparison.shared);
    return comparison.order;
  }

  // A key that the searched one belongs behind (`order` > 0) or before is the nearest one to its left or right now.
  void note(int order, unsigned shared) noexcept {
    shared = std::min(shared, key_.ordered());
    if (order > 0) {
      left_shared_ = shared;
      left_is_known_ = true;
    } else {
      right_shared_ = shared;
    }
    lengths_seen_ |= std::uint64_t{1} << std::min(shared, longest_seen);
  }

  // Whether everything below this node shares `skip` bytes with the searched key.
  bool shares(unsigned skip) noexcept {
    if (skip > right_shared_) return false;
    if (!left_is_known_) note(1, shared_with_first());
    return skip <= left_shared_;
  }

  unsigned shared_with_first() noexcept {
    const std::uint32_t first = flink_of(head_);
    KeyBytes bytes;
    return may_follow(first) && stored_.bytes_of(node_at(base_, first), bytes) ? key_.mismatch(bytes) : 0;
  }

  // The shortest run of bytes that any key met on the way shares, as long as the window behind it still tells the
  // new key from both its neighbours: short, so that searches from further up can use it, however far an outlier
  // at an end of the tree is.
  unsigned skip_for_entry() noexcept {
    if (!tracks_) return 0;
    const unsigned to_left = left_is_known_ ? left_shared_ : 0;
    lengths_seen_ |= std::uint64_t{1} << std::min({shared_with_first(), key_.ordered(), longest_seen});
    const unsigned decisive = std::min(std::max(to_left, right_shared_), longest_seen);
    const unsigned least = decisive < Separator::window_bytes ? 0 : decisive + 1 - Separator::window_bytes;
    return least + static_cast<unsigned>(std::countr_zero(lengths_seen_ >> least));
  }

  static constexpr unsigned longest_seen = 63;

  const Rb_base* base_;
  Reach reach_;
  const KeyBytes& key_;
  Stored stored_;
  Rb_node head_;
  Rb_node node_;
  std::uint64_t window_;
  std::uint64_t lengths_seen_ = 0;  // bit n: some key on the way shares n bytes with the searched one
  unsigned left_shared_ = 0;
  unsigned right_shared_ = 0;
  std::uint32_t last_ = 0;
  int depth_ = 0;
  bool tracks_;  // the searched key is long enough for separators that skip bytes
  bool left_is_known_ = false;
  bool found_ = false;
};

}  // namespace cachet

#endif
