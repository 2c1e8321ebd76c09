#include "cache/cursor.h"

#include <utility>

#include "base/features.h"
#include "cache/error.h"
#include "cache/key.h"
#include "cache/next_row.h"
#include "cache/record.h"
#include "cache/rows_ahead.h"
#include "cache/snapshot.h"
#include "cache/work.h"

namespace cachet {

namespace {

// Who meets a deleted record on an index: a local writer unlinks it, everybody else passes it over.
template <class Direction>
Step step_for(const ZtDb* database, const ZtCondition* condition, Standing standing) {
  switch (standing) {
    case Standing::live:
      return step_stands;
    case Standing::empty_key:
      return Direction::skip;
    case Standing::deleted:
      return walks_index(condition) && writes_locally(database) ? Direction::unlink : Direction::skip;
    case Standing::unreadable:
      break;
  }
  return step_exhausted;
}

template <class Direction>
[[gnu::always_inline]] inline void read_ahead(ZtDbHandle database, const FlatSpace& space,
                                              const ZtCondition* condition, Rb_node from) {
  if (database->rows_ahead == nullptr) [[unlikely]]
    database->rows_ahead = std::make_shared<RowsAhead>();
  const auto tree = walks_index(condition) ? RowsAhead::Tree::index : RowsAhead::Tree::record_ids;
  database->rows_ahead->follow(space, tree, from, condition->point, Direction::is_leftward);
}

template <class Direction>
Step step_to_next_key(ZtDbHandle database, ZtConditionHandle condition) {
  if (condition->point == nullptr || condition->point == Direction::limit(condition)) return step_exhausted;
  const Rb_node next = neighbour(&database->base, Direction::next_link(condition->point));
  if (next == nullptr || (status_of(next) & RB_HEAD) != 0) return step_exhausted;
  const Rb_node from = std::exchange(condition->point, next);
  if (const FlatSpace space(&database->base); features::read_ahead && space)
    read_ahead<Direction>(database, space, condition, from);
  if (!walks_index(condition)) {
    return step_for<Direction>(database, condition, stand_on_list_item(database, condition));
  }
  const Standing standing = stand_on_key<Direction>(database, condition);
  if (standing == Standing::empty_key) condition->nodepoint = nullptr;
  return step_for<Direction>(database, condition, standing);
}

template <class Direction>
Step step_once(ZtDbHandle database, ZtConditionHandle condition) {
  if (walks_index(condition) && condition->nodepoint != nullptr) {
    const std::uint32_t next = Direction::Records::next(condition->nodepoint);
    if (next != 0) return step_for<Direction>(database, condition, stand_on_entry(database, condition, next));
  }
  return step_to_next_key<Direction>(database, condition);
}

// Every attempt starts from where the call found the cursor.
template <class Direction>
[[gnu::noinline]] int step_read_only(ZtDbHandle database, ZtConditionHandle condition) {
  const ZtCondition place = *condition;
  return read_table(database, condition->tableid, [&] {
    *condition = place;
    return step_once<Direction>(database, condition);
  });
}

template <class Direction>
int step(ZtDbHandle database, ZtConditionHandle condition) {
  if (!require_table(database, condition->tableid, condition)) return step_exhausted;
  return database->base.mode == ZT_MODE_READ_ONLY ? step_read_only<Direction>(database, condition)
                                                  : step_once<Direction>(database, condition);
}

// Whether this handle may change the lists now: not while another process is inside as a writer.
bool may_unlink(const ZtDb* database, const ZtCondition* condition) {
  if (!writes_locally(database) || !walks_index(condition) || condition->nodepoint == nullptr) return false;
  constexpr int writers_position = 0;
  if (work_of_dead(database) != work_none)
    return false;  // lists may be half-way; a writer finishes that first
  return database->locks.contains(writers_position) || !database->lock.WriterHolds(writers_position);
}

// Takes the deleted record's entry out of the current list and stands on its successor; the entry's own links
// stay. An entry that is not linked any more (the cursor is stale) is left alone: its links may lead to link
// 0, the header.
template <class Direction>
int unlink_and_step(ZtDbHandle database, ZtConditionHandle condition) {
  using Records = typename Direction::Records;
  if (!require_table(database, condition->tableid, condition)) return step_exhausted;
  if (!may_unlink(database, condition)) return Direction::skip;
  const Rb_base* const base = &database->base;
  ZtIndexNode* const entry = condition->nodepoint;
  ZtIndexItem* const item = stored_item(base, condition->point);
  const std::int64_t record_offset = record_offset_of(entry);
  if (item == nullptr || !is_data(base, record_offset, ZT_RECORD_HEADER)) return Direction::skip;
  if (!is_deleted(record_at(base, record_offset))) return Direction::skip;

  const std::uint32_t number = number_of(base, entry);
  const bool is_head = Records::head(item) == number;
  const std::uint32_t prev = is_head ? 0 : Records::prev(entry);
  const std::uint32_t next = Records::next(entry);
  const bool is_linked = is_head || (prev != 0 && Records::next(entry_at(base, prev)) == number);
  // The last entry must be this very key's: a cursor's entry may belong to another key than its point.
  if (!is_linked || (next == 0 && Records::tail(item) != number)) return Direction::skip;

  {
    const Work work(database, work_lists);
    Stage stage(base);
    Records::remove(stage, base, item, prev, next);
    stage.run();
  }
  if (next == 0) return Direction::skip;
  return step_for<Direction>(database, condition, stand_on_entry(database, condition, next));
}

[[gnu::noinline]] bool run_on(ZtDbHandle database, ZtConditionHandle condition, int code) {
  for (;;) {
    switch (code) {
      case step_stands:
        return true;
      case step_unlink_forward:
        code = ZtInMoveNextRecord(database, condition);
        break;
      case step_unlink_backward:
        code = ZtInMovePrevRecord(database, condition);
        break;
      case step_skip_forward:
        code = ZtInNextRecord(database, condition);
        break;
      case step_skip_backward:
        code = ZtInPrevRecord(database, condition);
        break;
      default:
        return false;
    }
  }
}

// Runs steps until the cursor stands on a live record or has passed its last one.
inline bool run(ZtDbHandle database, ZtConditionHandle condition, int code) {
  return code == step_stands || run_on(database, condition, code);
}

// The straight step. False, and nothing has moved, when the way is not so plain.
template <class Direction>
[[gnu::always_inline]] inline bool move_at_once(ZtDbHandle database, ZtConditionHandle condition) {
  const FlatSpace space(&database->base);
  const int tableid = condition->tableid;
  if (!space || !walks_index(condition) || !names_table(database, tableid, condition)) return false;
  const int record_bytes = stored_bytes(database->database[index_of_id(tableid)]);
  NextRow row;
  const auto find = [&]() __attribute__((always_inline)) {
    return find_next_row<Direction>(space, condition, record_bytes, row);
  };
  const bool found = database->base.mode != ZT_MODE_READ_ONLY
                         ? find()
                         : runs_unchanged(database, catalog_of(database, tableid), find);
  if (!found) return false;
  condition->nodepoint = row.entry;
  condition->precord = row.record;
  const Rb_node from = std::exchange(condition->point, row.point);
  if (features::read_ahead && from != row.point) read_ahead<Direction>(database, space, condition, from);
  return true;
}

template <class Direction>
bool move(ZtDbHandle database, ZtConditionHandle condition) {
  const bool moved = move_at_once<Direction>(database, condition) ||
                     run_on(database, condition, step<Direction>(database, condition));
  return end_read(database, moved);
}

}  // namespace

bool report_table(ZtDbHandle database, int tableid, const ZtCondition* condition) {
  const ZtTable* const table = table_at(database, tableid);
  if (table == nullptr) return false;
  if (table->listindex == nullptr) return report(database, ZT_ERR_GENERAL, message::database_not_open);
  return report(database, ZT_ERR_GENERAL, message::bad_index, condition->indexid);
}

void expect_walk(ZtDbHandle database, const ZtCondition* condition) {
  const FlatSpace space(&database->base);
  if (!features::read_ahead || !space) return;
  if (database->rows_ahead == nullptr) [[unlikely]]
    database->rows_ahead = std::make_shared<RowsAhead>();
  database->rows_ahead->expect(space, condition->point, Forward::is_leftward);
}

template <class Direction>
bool settle(ZtDbHandle database, ZtConditionHandle condition, Standing standing) {
  if (standing == Standing::live) return true;
  const Step step =
      standing == Standing::unreadable ? Direction::skip : step_for<Direction>(database, condition, standing);
  return end_read(database, run(database, condition, step));
}

template bool settle<Forward>(ZtDbHandle, ZtConditionHandle, Standing);
template bool settle<Backward>(ZtDbHandle, ZtConditionHandle, Standing);

}  // namespace cachet

using namespace cachet;

int ZtInNextRecord(ZtDbHandle database, ZtConditionHandle condition) {
  return step<Forward>(database, condition);
}
int ZtInPrevRecord(ZtDbHandle database, ZtConditionHandle condition) {
  return step<Backward>(database, condition);
}
int ZtInMoveNextRecord(ZtDbHandle database, ZtConditionHandle condition) {
  return unlink_and_step<Forward>(database, condition);
}
int ZtInMovePrevRecord(ZtDbHandle database, ZtConditionHandle condition) {
  return unlink_and_step<Backward>(database, condition);
}

bool ZtNextLoop(ZtDbHandle database, ZtConditionHandle condition) {
  return run(database, condition, ZtInNextRecord(database, condition));
}
bool ZtPrevLoop(ZtDbHandle database, ZtConditionHandle condition) {
  return run(database, condition, ZtInPrevRecord(database, condition));
}
bool ZtMoveNextLoop(ZtDbHandle database, ZtConditionHandle condition) {
  return run(database, condition, ZtInMoveNextRecord(database, condition));
}
bool ZtMovePrevLoop(ZtDbHandle database, ZtConditionHandle condition) {
  return run(database, condition, ZtInMovePrevRecord(database, condition));
}

bool ZtMoveNextRecord(ZtDbHandle database, ZtConditionHandle condition) {
  return ZtMoveNextLoop(database, condition);
}
bool ZtMovePrevRecord(ZtDbHandle database, ZtConditionHandle condition) {
  return ZtMovePrevLoop(database, condition);
}

bool ZtNextRecord(ZtDbHandle database, ZtConditionHandle condition) {
  return move<Forward>(database, condition);
}
bool ZtPrevRecord(ZtDbHandle database, ZtConditionHandle condition) {
  return move<Backward>(database, condition);
}
