#include "cache/rows_ahead.h"

#include <algorithm>

#include "cache/fetch_row.h"

namespace cachet {

void RowsAhead::restart(Rb_node at, bool leftward) noexcept {
  next_ = due_ = records_ = items_ = count_ = strays_ = 0;
  wanted_ = first_leaves;
  here_ = at;
  leftward_ = leftward;
  ahead_.stop();
}

void RowsAhead::drop_passed() noexcept {
  std::copy(leaves_.begin() + next_, leaves_.begin() + count_, leaves_.begin());
  count_ -= next_;
  items_ -= std::min(items_, next_);
  records_ -= std::min(records_, next_);
  next_ = 0;
}

void RowsAhead::expect(const FlatSpace& space, Rb_node at, bool leftward) noexcept {
  restart(at, leftward);
  LeavesAhead::fetch_first(space, at, leftward);
}

void RowsAhead::begin_portion(const FlatSpace& space) noexcept {
  if (ahead_.goes_on() || count_ >= least_leaves) return;
  ahead_.begin(space, count_ != 0 ? leaves_[count_ - 1] : here_, leftward_, wanted_);
  wanted_ = most_leaves;
}

// One level further, or, with nothing known, all at once. Links that lead in circles never come to a leaf: what takes
// more levels than a tree has is given up.
void RowsAhead::look_further(const FlatSpace& space) noexcept {
  if (count_ == 0) begin_portion(space);
  unsigned levels_left = LeavesAhead::max_height;
  do {
    if (count_ < least_leaves) count_ += ahead_.advance(space, leaves_.data() + count_);
  } while (count_ == 0 && ahead_.goes_on() && --levels_left != 0);
  if (count_ == 0) ahead_.stop();
}

// Items of the portion behind the one whose records are asked for. Each reads what the look before has asked for, but
// for the first time.
void RowsAhead::fetch_items(const FlatSpace& space) noexcept {
  const RowFetcher fetcher(space);
  for (const unsigned end = std::min(count_, 3 * portion); items_ < end; ++items_)
    fetcher.item(leaves_[items_]);
}

void RowsAhead::fetch_records(const FlatSpace& space, Tree tree) noexcept {
  const RowFetcher fetcher(space);
  for (const unsigned end = std::min(count_, 2 * portion); records_ < end; ++records_) {
    tree == Tree::index ? fetcher.first_record(leaves_[records_]) : fetcher.listed_record(leaves_[records_]);
  }
}

void RowsAhead::go_on(const FlatSpace& space, Tree tree, Rb_node from, Rb_node to, bool leftward) noexcept {
  if (from != here_ || leftward != leftward_ || strays_ == most_strays) return restart(to, leftward);
  here_ = to;
  if (next_ < count_) {
    const bool is_expected = leaves_[next_] == to;
    strays_ = is_expected ? 0 : strays_ + 1;
    if (is_expected) ++next_;
    if (next_ < due_) return;
  }
  drop_passed();
  look_further(space);
  fetch_items(space);
  begin_portion(space);
  fetch_records(space, tree);
  due_ = std::min(ahead_.goes_on() ? portion / 2 : portion, (count_ + 1) / 4);
}

}  // namespace cachet
