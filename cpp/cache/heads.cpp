// The tree heads of every table and index, which lie directly behind the catalog in a fixed order, and the
// reset that makes them anew at the same places.
#include "cache/heads.h"

#include <algorithm>

#include "base/fatal.h"
#include "cache/error.h"
#include "cache/record.h"
#include "cache/transaction.h"
#include "cache/work.h"
#include "rb_fronts.h"

using namespace cachet;

namespace {

// Each table's record list first, then its indexes.
template <class Make>
void for_each_head(ZtDbHandle database, const Make& make) {
  for (ZtTable& table : database->database) {
    table.listindex = make(&database->base);
    for (Rb_node& head : table.indexs) head = make(&database->base);
  }
}

// Each table's record list and its indexes.
std::int64_t count_heads(const ZtDb* database) {
  std::size_t count = 0;
  for (const ZtTable& table : database->database) count += 1 + table.indexs.size();
  return static_cast<std::int64_t>(count);
}

}  // namespace

namespace cachet {

std::int64_t first_head_offset(const Rb_memory& header) {
  const auto catalog_end = std::max<std::int64_t>(header.memoryheadsize, sizeof(Rb_memory));
  return round_up(catalog_end, slot_bytes);
}

std::int64_t end_of_heads(std::int64_t offset, std::int64_t count) {
  for (; count > 0; --count) offset = next_node_slot(offset) + slot_bytes;
  return offset;
}

void reset_in_place(ZtDbHandle database, std::int64_t data_front) {
  Rb_base& base = database->base;
  // No table's mark tells readers of a reset.
  database->lock.MakeEpochOdd();
  base.memory->rb_count = 0;
  store_release<ZTINT8>(&base.memory->nodeoffset, first_head_offset(*base.memory));
  store_release<ZTINT8>(&base.memory->dataoffset, data_front);
  for (std::size_t id = 0; id < database->database.size(); ++id) {
    store_release<int>(&catalog_of(database, static_cast<int>(id))->recordcount, 0);
  }
  for_each_head(database, [](Rb_base* whole) {
    const Rb_node head = make_rb_ext(whole);
    renew_nonce(head);
    return head;
  });
  database->lock.MakeEpochEven();
}

void provide_nonces(ZtDbHandle database) {
  for (const ZtTable& table : database->database) {
    for (const Rb_node head : table.indexs) {
      if (head != nullptr) provide_nonce(head);
    }
  }
}

void abandon_records(ZtDbHandle database, std::int64_t data_front) {
  drop_copies_of_abandoned_records(database);
  reset_in_place(database, data_front);
  database->base.rb_count = database->base.memory->rb_count;
}

}  // namespace cachet

void ZtLoadDb(ZtDbHandle database) {
  Rb_base& base = database->base;
  if (!database->opened) {
    report(database, ZT_ERR_GENERAL, message::database_not_open);
    return;
  }
  if (base.memory->tablecount != static_cast<ZTINT8>(database->database.size())) {
    report(database, ZT_ERR_GENERAL, message::catalog_corrupt);
    return;
  }
  // A creator whose memory is too small ends in the allocator; whoever finds the heads must not look beyond
  // it.
  const std::int64_t limit =
      base.exist ? std::min<std::int64_t>(base.attached_bytes, segment_bytes) : segment_bytes;
  const std::int64_t first = first_head_offset(*base.memory);
  if (end_of_heads(first, count_heads(database)) > limit) {
    report(database, ZT_ERR_GENERAL, message::catalog_too_large, first);
    return;
  }
  if (base.exist) {
    base.rb_count = 0;
    base.nodeoffset = first;
  } else {
    store_release<ZTINT8>(&base.memory->nodeoffset, first);
  }
  for_each_head(database, make_rb);
}

void ZtResetDb(ZtDbHandle database) {
  if (forwards_changes(database)) {
    if (!ZtRemoteResetDb(database)) fatal::remote_change_failed();
    return;
  }
  if (!require_writable(database)) return;
  const Work work(database, work_reset);
  Rb_memory* const memory = database->base.memory;
  memory->transactioncount = 0;
  abandon_records(database, memory->size);
}
