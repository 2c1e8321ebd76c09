// The most frequent step of a cursor in one straight piece: on an index, to the next record of its key or the first one
// of the next key, when that record lives.
//
// Where anything is out of the ordinary it says false, and the step of cursor.cpp begins from nothing. What it finds is
// kept apart from the cursor, so that a reader may look afterwards whether it was overtaken.
#ifndef CACHET_CPP_CACHE_NEXT_ROW_H
#define CACHET_CPP_CACHE_NEXT_ROW_H

#include "cache/cursor.h"

namespace cachet {

struct NextRow {
  Rb_node point;
  ZtIndexNode* entry;
  std::int64_t record;
};

// The entry that the step leads to, and its key's node; 0 when it takes more than one step, or ends.
template <class Direction>
[[gnu::always_inline]] inline std::uint32_t next_entry(const FlatSpace& space, const ZtCondition* condition,
                                                       Rb_node& point) noexcept {
  point = condition->point;
  if (condition->nodepoint == nullptr || point == nullptr) return 0;
  const std::uint32_t next = Direction::Records::next(condition->nodepoint);
  if (next != 0) return next;
  const std::uint32_t link = Direction::next_link(point);
  if (point == Direction::limit(condition) || !space.has_node(link)) return 0;
  point = space.node(link);
  const std::int64_t key = key_offset_of(point);
  if ((status_of(point) & RB_HEAD) != 0 || !space.has_data(key, sizeof(ZtIndexItem))) return 0;
  return Direction::Records::head(reinterpret_cast<const ZtIndexItem*>(space.at(key)));
}

template <class Direction>
[[gnu::always_inline]] inline bool find_next_row(const FlatSpace& space, const ZtCondition* condition,
                                                 int record_bytes, NextRow& row) noexcept {
  const std::uint32_t entry = next_entry<Direction>(space, condition, row.point);
  if (!space.has_node(entry)) return false;
  row.entry = reinterpret_cast<ZtIndexNode*>(space.node(entry));
  row.record = record_offset_of(row.entry);
  return space.has_data(row.record, record_bytes) &&
         !is_deleted(reinterpret_cast<const ZtRecord*>(space.at(row.record)));
}

}  // namespace cachet

#endif
