#include "inspect/walk.h"

namespace cachet::inspect {

RecordCounts count_records(const Rb_base* view, const Table& table) {
  RecordCounts counts;
  const WalkEnd end = walk_records(view, table, [&](const RecordHeader& header, std::int64_t) {
    ++(header.deleted == 1 ? counts.deleted : counts.live);
    if (header.duty != 0) ++counts.marked;
    counts.changes += header.updateno;
  });
  counts.whole = end == WalkEnd::at_head;
  return counts;
}

std::optional<std::int64_t> count_keys(const Rb_base* view, const Index& index) {
  std::int64_t keys = 0;
  const WalkEnd end = walk_list(view, index.head, [&](std::uint32_t, Rb_node) {
    ++keys;
    return true;
  });
  return end == WalkEnd::at_head ? std::optional(keys) : std::nullopt;
}

}  // namespace cachet::inspect
