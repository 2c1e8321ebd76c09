#include "cache/rows_ahead.h"

#include <algorithm>

#include "cache/fetch_row.h"

namespace cachet {

void RowsAhead::restart(Rb_node at, bool leftward) noexcept {
  next_ = due_ = records_ = items_ = count_ = strays_ = 0;
  here_ = at;
  leftward_ = leftward;
  goes_on_ = false;
}

void RowsAhead::drop_passed() noexcept {
  std::copy(leaves_.begin() + next_, leaves_.begin() + count_, leaves_.begin());
  count_ -= next_;
  items_ -= std::min(items_, next_);
  records_ -= std::min(records_, next_);
  next_ = 0;
}

void RowsAhead::look_further(const Rb_base* base) noexcept {
  const Rb_node last = count_ != 0 ? leaves_[count_ - 1] : here_;
  const unsigned wanted = goes_on_ ? most_leaves_ahead / 2 : first_leaves;
  count_ += leaves_ahead(base, last, leftward_, wanted, leaves_.data() + count_);
  goes_on_ = true;
}

// Records of the portion behind the next one, items of the portion behind that. Each reads what the look before has
// asked for, but for the first time.
void RowsAhead::fetch(const Rb_base* base, Tree tree) noexcept {
  RowFetcher fetcher(base);
  for (const unsigned end = std::min(count_, 3 * portion); items_ < end; ++items_)
    fetcher.item(leaves_[items_]);
  for (const unsigned end = std::min(count_, 2 * portion); records_ < end; ++records_) {
    tree == Tree::index ? fetcher.first_record(leaves_[records_]) : fetcher.listed_record(leaves_[records_]);
  }
  due_ = std::min(portion, (count_ + 1) / 2);
}

void RowsAhead::go_on(const Rb_base* base, Tree tree, Rb_node from, Rb_node to, bool leftward) noexcept {
  if (from != here_ || leftward != leftward_ || strays_ == most_strays) return restart(to, leftward);
  here_ = to;
  if (next_ < count_) {
    const bool is_expected = leaves_[next_] == to;
    strays_ = is_expected ? 0 : strays_ + 1;
    if (is_expected) ++next_;
    if (next_ < due_) return;
  }
  drop_passed();
  if (count_ <= 2 * portion) look_further(base);
  fetch(base, tree);
}

}  // namespace cachet
