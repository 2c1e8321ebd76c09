// Reading ahead of a cursor: the leaves that it comes to, their items, and their records are asked for while it is
// still some rows away.
//
//   leaves_   | behind the cursor | records asked for | items asked for | leaves asked for |  ahead_
//             0                 next_            records_          items_             count_
//
// What is asked for is looked at in portions, so that most steps only see that the cursor goes the expected way: small
// ones at first, when the next rows are needed soon, larger ones when the walk has got ahead. One walk at a time, in
// steps; another walk, or a turn, starts it anew. A walk is read ahead from its second step on, one that a search for
// a range has announced from its first.
//
// The list of leaves is the authority: a leaf that was not expected is passed by, and nothing here decides what a
// cursor reads. Only where segments lie side by side.
#ifndef CACHET_CPP_CACHE_ROWS_AHEAD_H
#define CACHET_CPP_CACHE_ROWS_AHEAD_H

#include <array>

#include "accelerate/leaves_ahead.h"
#include "caches.h"

namespace cachet {

class RowsAhead {
 public:
  enum class Tree : bool { index, record_ids };

  // A walk is about to begin at a leaf.
  void expect(const FlatSpace& space, Rb_node at, bool leftward) noexcept;

  // The cursor has gone from one leaf to its neighbour: the left one (`leftward`, against the list) or the right one.
  void follow(const FlatSpace& space, Tree tree, Rb_node from, Rb_node to, bool leftward) noexcept {
    const bool is_expected = from == here_ && next_ < due_ && leaves_[next_] == to && leftward == leftward_;
    if (!is_expected) return go_on(space, tree, from, to, leftward);
    here_ = to;
    ++next_;
  }

 private:
  static constexpr unsigned portion = 8;       // steps from one look to the next, at most
  static constexpr unsigned first_leaves = 8;  // that a walk looks ahead, before it has shown that it goes on
  static constexpr unsigned most_leaves = LeavesAhead::room / 2;
  static constexpr unsigned least_leaves = 40;  // with fewer known, more are looked for
  static constexpr unsigned most_strays = 8;

  void go_on(const FlatSpace& space, Tree tree, Rb_node from, Rb_node to, bool leftward) noexcept;
  void restart(Rb_node at, bool leftward) noexcept;
  void drop_passed() noexcept;
  void begin_portion(const FlatSpace& space) noexcept;
  void look_further(const FlatSpace& space) noexcept;
  void fetch_items(const FlatSpace& space) noexcept;
  void fetch_records(const FlatSpace& space, Tree tree) noexcept;

  LeavesAhead ahead_;
  std::array<Rb_node, least_leaves + LeavesAhead::room> leaves_;
  unsigned next_ = 0;  // the leaf that the next step is expected to go to
  unsigned due_ = 0;   // where the next look is to be taken
  unsigned records_ = 0;
  unsigned items_ = 0;
  unsigned count_ = 0;
  unsigned wanted_ = 0;  // leaves, when more are looked for
  unsigned strays_ = 0;  // leaves in a row that were not expected
  Rb_node here_ = nullptr;
  bool leftward_ = false;
};

}  // namespace cachet

#endif
