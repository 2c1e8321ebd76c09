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
        tracks_(key.ordered() > Separator::window_bytes) {
    expect(0);
  }

  // Looks at the tree's ends. False when the search has ended already.
  bool begin() noexcept {
    const std::uint32_t root = root_of(head_);
    last_ = blink_of(head_);
    if (!may_follow(root) || !may_follow(last_)) return false;
    node_ = node_at(base_, root);
    if (node_ == head_) return false;
    const Rb_node last = node_at(base_, last_);
    const Comparison with_last = stored_.compare(last);
    note(with_last.order > 0, with_last.shared);
    if (with_last.order == 0) return end(last, true);
    return with_last.order < 0 || end(head_, false);
  }

  // Goes down one level. False when the search has ended.
  [[gnu::always_inline]] bool step() noexcept {
    if (!is(node_, RB_INTERNAL)) return false;
    const SeparatorBytes separator(node_);
    if (!features::separators || separator.header() != header_) [[unlikely]]
      return step_at_other_separator(separator);
    const std::uint64_t window = separator.window();
    if (window == window_) return step_at_equal_window();
    return go_to_child(is_behind(window));
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

 protected:
  bool may_follow(std::uint32_t link) noexcept { return !checked || reach_.node(link); }

  bool end(Rb_node node, bool found) noexcept {
    node_ = node;
    found_ = found;
    return false;
  }

  // Separators with this header can be compared window by window: they skip what is known to be shared, and have as
  // many bytes of their key as there are of the searched one.
  void expect(unsigned skip) noexcept {
    skip_ = skip;
    window_ = key_.window(skip);
    const Separator own = key_.separator(skip);
    header_ = own.count == 0 ? no_header : SeparatorBytes::header_of(own);
    equal_windows_decide_ = key_.is_whole() && key_.size() == skip + own.count;
  }

  // By a window that is not equal, of a separator with the expected header.
  bool is_behind(std::uint64_t window) noexcept {
    const bool behind = window_ < window;
    if (tracks_) note(behind, skip_ + static_cast<unsigned>(std::countl_zero(window_ ^ window)) / 8);
    return behind;
  }

  [[gnu::noinline]] bool step_at_equal_window() noexcept {
    const int order = equal_windows_decide_ ? 0 : order_of_greatest_left();
    return order == 0 ? end_at_greatest_left() : go_to_child(order > 0);
  }

  [[gnu::noinline]] bool step_at_other_separator(const SeparatorBytes& separator) noexcept {
    const int order = order_at_other_separator(separator);
    return order != 0 && go_to_child(order > 0);
  }

  // 0 when the search has ended, which is noted already.
  int order_at_other_separator(const SeparatorBytes& separator) noexcept {
    if (features::separators && separator.is_for(key_.first_type()) && shares(separator.skip())) {
      const unsigned skip = separator.skip();
      if (skip > skip_ && skip < key_.size()) expect(skip);
      const std::uint64_t searched = key_.window(skip);
      const std::uint64_t different = searched ^ separator.window();
      const unsigned valid = std::min(separator.count(), key_.size() - skip);
      // A byte that only one of the two has does not decide.
      if (valid != 0 && different >> (64 - 8 * valid) != 0) {
        const int order = searched < separator.window() ? 1 : -1;
        note(order > 0, skip + static_cast<unsigned>(std::countl_zero(different)) / 8);
        return order;
      }
      if (key_.is_whole() && key_.size() != 0 && key_.size() <= skip + separator.count()) {
        end_at_greatest_left();
        return 0;
      }
    }
    const int order = order_of_greatest_left();
    if (order == 0) end_at_greatest_left();
    return order;
  }

  // Compares with the key itself. A link that leads nowhere ends the search at this node.
  int order_of_greatest_left() noexcept {
    const std::uint32_t lext = lext_of(node_);
    if (checked && !reach_.node(lext)) return give_up();
    const Comparison comparison = stored_.compare(node_at(base_, lext));
    if (tracks_ && comparison.order != 0) note(comparison.order > 0, comparison.shared);
    return comparison.order;
  }

  int give_up() noexcept {
    has_given_up_ = true;
    return 0;
  }

  bool end_at_greatest_left() noexcept {
    const std::uint32_t lext = lext_of(node_);
    if (has_given_up_ || (checked && !reach_.node(lext))) return false;
    return end(node_at(base_, lext), true);
  }

  // `behind`: the searched key belongs behind the node's.
  [[gnu::always_inline]] bool go_to_child(bool behind) noexcept {
    const std::uint32_t child = child_of(node_, !behind);
    if (checked && (depth_++ == max_depth || !reach_.node(child))) return false;
    node_ = node_at(base_, child);
    return true;
  }

  // A key that the searched one belongs behind, or before, is the nearest one to its left, or right, now.
  void note(bool behind, unsigned shared) noexcept {
    shared = std::min(shared, key_.ordered());
    shared_with_[behind ? to_left : to_right] = shared;
    left_is_known_ |= behind;
    lengths_seen_ |= std::uint64_t{1} << std::min(shared, longest_seen);
  }

  // Whether everything below this node shares `skip` bytes with the searched key.
  bool shares(unsigned skip) noexcept {
    if (skip == 0) return true;
    if (skip > shared_with_[to_right]) return false;
    if (!left_is_known_) note(true, shared_with_first());
    return skip <= shared_with_[to_left];
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
    const unsigned with_left = left_is_known_ ? shared_with_[to_left] : 0;
    lengths_seen_ |= std::uint64_t{1} << std::min({shared_with_first(), key_.ordered(), longest_seen});
    const unsigned decisive = std::min(std::max(with_left, shared_with_[to_right]), longest_seen);
    const unsigned least = decisive < Separator::window_bytes ? 0 : decisive + 1 - Separator::window_bytes;
    return least + static_cast<unsigned>(std::countr_zero(lengths_seen_ >> least));
  }

  static constexpr unsigned longest_seen = 63;
  static constexpr std::uint32_t no_header = ~std::uint32_t{0};

  const Rb_base* base_;
  Reach reach_;
  const KeyBytes& key_;
  Stored stored_;
  Rb_node head_;
  Rb_node node_;
  std::uint64_t window_ = 0;  // of the searched key, behind `skip_` bytes of it
  std::uint32_t header_ = 0;  // of the separators it compares with directly
  unsigned skip_ = 0;
  std::uint64_t lengths_seen_ = 0;  // bit n: some key on the way shares n bytes with the searched one
  enum Side { to_right, to_left };
  unsigned shared_with_[2] = {};  // bytes that the nearest key on that side shares with the searched one
  std::uint32_t last_ = 0;
  int depth_ = 0;
  bool tracks_;  // the searched key is long enough for separators that skip bytes
  bool left_is_known_ = false;
  bool equal_windows_decide_ = false;
  bool has_given_up_ = false;
  bool found_ = false;
};

}  // namespace cachet

#endif
