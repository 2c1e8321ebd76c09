// A cursor's place. It walks from `begin` (smallest key or record id) to `end` (largest), against the order
// of the tree's list, since the trees run from the largest key to the smallest.
//
// Both directions are one template; Forward and Backward name what differs.
#ifndef CACHET_CPP_CACHE_CURSOR_H
#define CACHET_CPP_CACHE_CURSOR_H

#include "cache/entry.h"

namespace cachet {

// What step functions return; the loops dispatch on it.
enum Step : int {
  step_stands = 1,
  step_exhausted = 2,
  step_unlink_forward = 3,
  step_unlink_backward = 4,
  step_skip_forward = 5,
  step_skip_backward = 6
};

// What a cursor found at the place it was put on. `unreadable`: a link led nowhere; either a writer
// interfered, which the validation shows, or the place is gone for good.
enum class Standing { live, deleted, empty_key, unreadable };

inline bool walks_index(const ZtCondition* condition) {
  return condition->indexid >= 0;
}

// The neighbour in tree order; null when the link cannot be followed.
inline Rb_node neighbour(const Rb_base* base, std::uint32_t link) {
  return is_node(base, link) ? node_at(base, link) : nullptr;
}

struct Forward {
  using Records = CurrentList;
  static constexpr bool is_leftward = true;  // in the tree
  static constexpr Step skip = step_skip_forward;
  static constexpr Step unlink = step_unlink_forward;
  static Rb_node limit(const ZtCondition* condition) { return condition->end; }
  static Rb_node next_key(const Rb_base* base, Rb_node node) { return neighbour(base, blink_of(node)); }
};

struct Backward {
  using Records = CurrentList::Reversed;
  static constexpr bool is_leftward = false;
  static constexpr Step skip = step_skip_backward;
  static constexpr Step unlink = step_unlink_backward;
  static Rb_node limit(const ZtCondition* condition) { return condition->begin; }
  static Rb_node next_key(const Rb_base* base, Rb_node node) { return neighbour(base, flink_of(node)); }
};

// Puts the cursor on the record at `offset`.
Standing stand_on_record(ZtDbHandle database, ZtConditionHandle condition, std::int64_t offset);
// Puts it on an entry of the current key.
Standing stand_on_entry(ZtDbHandle database, ZtConditionHandle condition, std::uint32_t number);
// Puts a record-list cursor on the record of its `point`.
Standing stand_on_list_item(ZtDbHandle database, ZtConditionHandle condition);

// Puts an index cursor on the first record of the key at `point`. An empty key leaves `nodepoint` as it is.
template <class Direction>
Standing stand_on_key(ZtDbHandle database, ZtConditionHandle condition);

extern template Standing stand_on_key<Forward>(ZtDbHandle, ZtConditionHandle);
extern template Standing stand_on_key<Backward>(ZtDbHandle, ZtConditionHandle);

// False, reported, unless the condition names a table (and an index) of this database.
bool require_table(ZtDbHandle database, int tableid, const ZtCondition* condition);

// Ends a call that has put the cursor somewhere: true on a live record, else by a move to the next one in the
// direction, through the unlinking of a deleted one where this handle may.
template <class Direction>
bool settle(ZtDbHandle database, ZtConditionHandle condition, Standing standing);

extern template bool settle<Forward>(ZtDbHandle, ZtConditionHandle, Standing);
extern template bool settle<Backward>(ZtDbHandle, ZtConditionHandle, Standing);

}  // namespace cachet

#endif
