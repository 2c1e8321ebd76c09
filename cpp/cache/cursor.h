// A cursor's place. It walks from `begin` (smallest key or record id) to `end` (largest), against the order
// of the tree's list, since the trees run from the largest key to the smallest.
//
// Both directions are one template; Forward and Backward name what differs.
#ifndef CACHET_CPP_CACHE_CURSOR_H
#define CACHET_CPP_CACHE_CURSOR_H

#include "base/element.h"
#include "cache/entry.h"
#include "cache/key.h"
#include "cache/record.h"

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
  static std::uint32_t next_link(Rb_node node) { return blink_of(node); }
};

struct Backward {
  using Records = CurrentList::Reversed;
  static constexpr bool is_leftward = false;
  static constexpr Step skip = step_skip_backward;
  static constexpr Step unlink = step_unlink_backward;
  static Rb_node limit(const ZtCondition* condition) { return condition->begin; }
  static std::uint32_t next_link(Rb_node node) { return flink_of(node); }
};

// Puts the cursor on the record at `offset`.
[[gnu::always_inline]] inline Standing stand_on_record(ZtDbHandle database, ZtConditionHandle condition,
                                                       std::int64_t offset) {
  const Rb_base* const base = &database->base;
  const ZtTable& table = database->database[static_cast<std::size_t>(condition->tableid)];
  if (!is_readable_data(base, offset, stored_bytes(table))) [[unlikely]]
    return Standing::unreadable;
  condition->precord = offset;
  return is_deleted(record_at(base, offset)) ? Standing::deleted : Standing::live;
}

// Puts it on an entry of the current key.
[[gnu::always_inline]] inline Standing stand_on_entry(ZtDbHandle database, ZtConditionHandle condition,
                                                      std::uint32_t number) {
  const Rb_base* const base = &database->base;
  if (!is_node(base, number)) [[unlikely]]
    return Standing::unreadable;
  condition->nodepoint = entry_at(base, number);
  return stand_on_record(database, condition, record_offset_of(condition->nodepoint));
}

// Puts a record-list cursor on the record of its `point`.
inline Standing stand_on_list_item(ZtDbHandle database, ZtConditionHandle condition) {
  const ZtListItem* const item = stored_list_item(&database->base, condition->point);
  if (item == nullptr) [[unlikely]]
    return Standing::unreadable;
  return stand_on_record(database, condition, load_unaligned<std::int64_t>(&item->precord));
}

// Puts an index cursor on the first record of the key at `point`. An empty key leaves `nodepoint` as it is.
template <class Direction>
[[gnu::always_inline]] inline Standing stand_on_key(ZtDbHandle database, ZtConditionHandle condition) {
  const ZtIndexItem* const item = stored_item(&database->base, condition->point);
  if (item == nullptr) [[unlikely]]
    return Standing::unreadable;
  const std::uint32_t first = Direction::Records::head(item);
  return first != 0 ? stand_on_entry(database, condition, first) : Standing::empty_key;
}

// Whether the condition names a loaded table (and an index) of this database.
inline bool names_table(const ZtDb* database, int tableid, const ZtCondition* condition) {
  if (!has_element(database->database, tableid)) return false;
  const ZtTable& table = database->database[index_of_id(tableid)];
  if (table.listindex == nullptr) return false;
  if (!walks_index(condition)) return true;
  return has_element(table.indexs, condition->indexid) &&
         table.indexs[index_of_id(condition->indexid)] != nullptr;
}
// Says why it does not.
[[gnu::cold]] bool report_table(ZtDbHandle database, int tableid, const ZtCondition* condition);
inline bool require_table(ZtDbHandle database, int tableid, const ZtCondition* condition) {
  return names_table(database, tableid, condition) || report_table(database, tableid, condition);
}

// Begins to read ahead of a cursor that has been put on the first key of a range.
void expect_walk(ZtDbHandle database, const ZtCondition* condition);

// Ends a call that has put the cursor somewhere: true on a live record, else by a move to the next one in the
// direction, through the unlinking of a deleted one where this handle may.
template <class Direction>
bool settle(ZtDbHandle database, ZtConditionHandle condition, Standing standing);

extern template bool settle<Forward>(ZtDbHandle, ZtConditionHandle, Standing);
extern template bool settle<Backward>(ZtDbHandle, ZtConditionHandle, Standing);

}  // namespace cachet

#endif
