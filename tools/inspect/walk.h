// Walking the threaded list of a tree in memory that may be broken, or under way of being changed: every link is
// checked before it is followed, and no walk is longer than there is room for nodes.
#ifndef CACHET_TOOLS_INSPECT_WALK_H
#define CACHET_TOOLS_INSPECT_WALK_H

#include <cstdint>
#include <optional>

#include "caches.h"
#include "inspect/schema.h"
#include "inspect/stop.h"

namespace cachet::inspect {

enum class WalkEnd {
  at_head,   // all of it was seen
  bad_link,  // a link names no slot of the node area
  no_leaf,   // a link names a slot that is no external node
  endless
};

inline std::int64_t most_nodes(const Rb_base* view) {
  return flat_bytes(view) / slot_bytes;
}

// Calls `each(node_number, node)` for every external node, the largest key first, until it returns false. Throws Stopped
// when the process is asked to stop.
template <class Each>
WalkEnd walk_list(const Rb_base* view, std::uint32_t head, const Each& each) {
  if (!is_node(view, head)) return WalkEnd::bad_link;
  std::uint32_t number = flink_of(node_at(view, head));
  for (std::int64_t steps = most_nodes(view); number != head; --steps) {
    if (steps == 0) return WalkEnd::endless;
    stop_if_asked();
    if (!is_node(view, number)) return WalkEnd::bad_link;
    const Rb_node node = node_at(view, number);
    if ((status_of(node) & (RB_INTERNAL | RB_HEAD)) != 0) return WalkEnd::no_leaf;
    const std::uint32_t next = flink_of(node);
    if (!each(number, node)) return WalkEnd::at_head;
    number = next;
  }
  return WalkEnd::at_head;
}

// A block of the data area as a record; none when it does not lie there as a whole.
template <class Record>
std::optional<Record> data_at(const Rb_base* view, std::int64_t offset) {
  if (!is_data(view, offset, sizeof(Record))) return std::nullopt;
  return load_unaligned<Record>(address_of(view, FlatOffset{offset}));
}

// The 14 bytes before a record's fields.
#pragma pack(push, 1)
struct RecordHeader {
  std::int64_t recordid;
  std::int32_t updateno;
  char duty;
  char deleted;
};
#pragma pack(pop)
static_assert(sizeof(RecordHeader) == ZT_RECORD_HEADER &&
              offsetof(RecordHeader, deleted) == offsetof(ZtRecord, deleted));

// Calls `each(header, flat_offset)` for every record of the record-id tree that lies whole in the data area.
template <class Each>
WalkEnd walk_records(const Rb_base* view, const Table& table, const Each& each) {
  return walk_list(view, table.list_head, [&](std::uint32_t, Rb_node node) {
    const auto item = data_at<ZtListItem>(view, key_offset_of(node));
    if (!item || !is_data(view, item->precord, ZT_RECORD_HEADER + table.record_bytes)) return true;
    each(load_unaligned<RecordHeader>(address_of(view, FlatOffset{item->precord})), item->precord);
    return true;
  });
}

struct RecordCounts {
  std::int64_t live = 0;
  std::int64_t deleted = 0;
  std::int64_t marked = 0;   // changed in place, not committed
  std::int64_t changes = 0;  // of all records together
  bool whole = true;         // false when the walk met a broken link
};

RecordCounts count_records(const Rb_base* view, const Table& table);
// How many different keys an index has; none when the walk met a broken link.
std::optional<std::int64_t> count_keys(const Rb_base* view, const Index& index);

}  // namespace cachet::inspect

#endif
