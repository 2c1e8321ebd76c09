// Putting a cursor on a record without a key, and handing out the record it stands on.
#include <algorithm>
#include <cstring>

#include "base/copy_bytes.h"
#include "base/fatal.h"
#include "cache/cursor.h"
#include "cache/error.h"
#include "cache/index_search.h"
#include "cache/key.h"
#include "cache/row.h"
#include "cache/snapshot.h"

using namespace cachet;

namespace {

// The first record of the key (or the record) at `point`, in the direction.
template <class Direction>
Standing stand_at_point(ZtDbHandle database, ZtConditionHandle condition) {
  return walks_index(condition) ? stand_on_key<Direction>(database, condition)
                                : stand_on_list_item(database, condition);
}

// `first` clears a stale entry before it leaves an empty key behind, `last` steps back from it, on purpose.
enum class OnEmptyKey { clear_entry, keep_entry };

template <class Direction>
bool go_to_end(ZtDbHandle database, ZtConditionHandle condition, Rb_node place, OnEmptyKey on_empty_key) {
  if (!require_table(database, condition->tableid, condition) || place == nullptr) return false;
  if ((status_of(place) & RB_HEAD) != 0) return false;  // what a search without a result leaves
  condition->point = place;
  const Standing standing = stand_at_point<Direction>(database, condition);
  if (standing == Standing::empty_key && on_empty_key == OnEmptyKey::clear_entry)
    condition->nodepoint = nullptr;
  return settle<Direction>(database, condition, standing);
}

// Makes the cursor run over the whole tree; false when it is empty.
bool span_tree(ZtDbHandle database, ZtConditionHandle condition, Rb_node head) {
  const Rb_base* const base = &database->base;
  const Rb_node largest = neighbour(base, flink_of(head));
  const Rb_node smallest = neighbour(base, blink_of(head));
  if (largest == nullptr || smallest == nullptr) return false;
  condition->end = largest;
  condition->begin = condition->point = smallest;
  return smallest != head && largest != head;
}

Rb_node head_of(const ZtTable& table, const ZtCondition* condition) {
  return walks_index(condition) ? table.indexs[static_cast<std::size_t>(condition->indexid)]
                                : table.listindex;
}

struct Placed {
  bool found;
  Standing standing;
};

// The row's private buffer, made anew for another table or (of another database) a longer one.
void provide_buffer(const ZtTable& table, int tableid, ZtRecordRow* row) {
  if (row->copied_bytes >= stored_bytes(table) && row->tableid == tableid) return;
  if (row->copied_bytes != 0) release_row(row);
  row->record = allocate_row(table, fatal::record_copy_line);
  row->copied_bytes = stored_bytes(table);
}

// A copy that no writer touched half-way, into the row's buffer.
void copy_unchanged(ZtDbHandle database, const ZtTable& table, int tableid, const ZtRecord* record,
                    ZtRecordRow* row) {
  provide_buffer(table, tableid, row);
  read_unchanged(database, record, [&] {
    std::memcpy(row->record, record, static_cast<std::size_t>(stored_bytes(table)));
    return true;
  });
  ZtUnLock(database);
}

[[gnu::noinline]] bool get_record(ZtDbHandle database, const ZtCondition* condition, ZtRecordRow* row) {
  const Rb_base* const base = &database->base;
  const ZtTable* const found = table_at(database, condition->tableid);
  if (found == nullptr) return false;
  const ZtTable& table = *found;
  if (base->memory == nullptr || !is_readable_data(base, condition->precord, stored_bytes(table)))
    return report(database, ZT_ERR_GENERAL, message::no_position);
  ZtRecord* const record = record_at(base, condition->precord);
  if (base->mode == ZT_MODE_READ_ONLY) {
    copy_unchanged(database, table, condition->tableid, record, row);
  } else {
    if (row->copied_bytes != 0) release_row(row);
    row->record = record;
  }
  row->newrow = false;
  row->tableid = condition->tableid;
  keep_shape(row, database, table);
  return true;
}

// The same in one straight piece, for a row that has held a record of this table before. False, and nothing is done, for
// what is out of the ordinary.
[[gnu::always_inline]] inline bool get_again(const ZtDb* database, const ZtCondition* condition,
                                             ZtRecordRow* row) {
  const FlatSpace space(&database->base);
  const int bytes = row->shape.record_bytes;
  if (!has_shape(row, database) || row->tableid != condition->tableid) return false;
  if (!space.has_data(condition->precord, bytes)) return false;
  auto* const record = reinterpret_cast<ZtRecord*>(space.at(condition->precord));
  if (database->base.mode != ZT_MODE_READ_ONLY) {
    row->record = record;
  } else {
    const auto count = static_cast<std::size_t>(bytes);
    if (!is_block(count) || !database->locks.empty()) return false;
    const auto copy = [&]() __attribute__((always_inline)) {
      copy_block(bytes_of(row->record), bytes_of(record), count);
      return true;
    };
    if (!runs_unchanged(database, record, copy)) return false;
  }
  return true;
}

}  // namespace

bool ZtFirstRecord(ZtDbHandle database, ZtConditionHandle condition) {
  return go_to_end<Forward>(database, condition, condition->begin, OnEmptyKey::clear_entry);
}

bool ZtLastRecord(ZtDbHandle database, ZtConditionHandle condition) {
  return go_to_end<Backward>(database, condition, condition->end, OnEmptyKey::keep_entry);
}

bool ZtListRecord(ZtDbHandle database, int tableid, ZtConditionHandle condition) {
  if (!require_table(database, tableid, condition)) return false;
  const ZtTable& table = database->database[static_cast<std::size_t>(tableid)];
  condition->tableid = tableid;
  const Placed placed = read_table(database, tableid, [&]() -> Placed {
    if (!span_tree(database, condition, head_of(table, condition))) return {false, Standing::unreadable};
    return {true, stand_at_point<Forward>(database, condition)};
  });
  if (!placed.found) return end_read(database, false);
  if (!walks_index(condition)) {
    condition->nodepoint = nullptr;
    // Returns without giving a position lock back, on purpose: the caller's next move does.
    if (placed.standing == Standing::live) return true;
  } else if (placed.standing == Standing::empty_key) {
    condition->nodepoint = nullptr;
  }
  return end_read(database, settle<Forward>(database, condition, placed.standing));
}

bool ZtGotoRecord(ZtDbHandle database, int tableid, int rowid, ZtConditionHandle condition) {
  ZtTable* const table = table_at(database, tableid);
  if (table == nullptr) return false;
  if (table->listindex == nullptr) return report(database, ZT_ERR_GENERAL, message::database_not_open);
  const ZtCondition place = *condition;
  const Placed placed = read_table(database, tableid, [&]() -> Placed {
    const IndexPlace found = find_record_id(database, *table, rowid);
    *condition = place;
    if (!found.found) return {false, Standing::unreadable};
    condition->nodepoint = nullptr;
    condition->tableid = tableid;
    condition->indexid = -1;
    if (!span_tree(database, condition, table->listindex)) return {true, Standing::unreadable};
    condition->point = found.node;
    return {true, stand_on_list_item(database, condition)};
  });
  if (!placed.found) return end_read(database, false);
  return end_read(database, settle<Forward>(database, condition, placed.standing));
}

bool ZtGetRecord(ZtDbHandle database, ZtConditionHandle condition, ZtRecordHandle recordrow) {
  return get_again(database, condition, recordrow) || get_record(database, condition, recordrow);
}
