// The tree heads of every table and index, which lie directly behind the catalog in a fixed order, and the
// reset that makes them anew at the same places.
#include "cache/heads.h"

#include <algorithm>

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

std::int64_t first_head_offset(const Rb_base& base) {
  const auto catalog_end = std::max<std::int64_t>(base.memory->memoryheadsize, sizeof(Rb_memory));
  return round_up(catalog_end, slot_bytes);
}

// Heads are found in segment 0 only.
bool heads_fit(const ZtDb* database, std::int64_t limit) {
  std::int64_t front = first_head_offset(database->base);
  for (const ZtTable& table : database->database) {
    for (std::size_t head = 0; head <= table.indexs.size(); ++head)
      front = next_node_slot(front) + slot_bytes;
  }
  return front <= limit;
}

}  // namespace

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
  if (!heads_fit(database, limit)) {
    report(database, ZT_ERR_GENERAL, message::catalog_too_large, first_head_offset(base));
    return;
  }
  if (base.exist) {
    base.rb_count = 0;
    base.nodeoffset = first_head_offset(base);
  } else {
    store_release<ZTINT8>(&base.memory->nodeoffset, first_head_offset(base));
  }
  for_each_head(database, make_rb);
}

void cachet::reset_in_place(ZtDbHandle database) {
  Rb_base& base = database->base;
  // No table's mark tells readers of a reset.
  database->lock.MakeEpochOdd();
  base.memory->rb_count = 0;
  base.memory->transactioncount = 0;
  store_release<ZTINT8>(&base.memory->nodeoffset, first_head_offset(base));
  store_release<ZTINT8>(&base.memory->dataoffset, base.memory->size);
  for (std::size_t id = 0; id < database->database.size(); ++id) {
    store_release<int>(&catalog_of(database, static_cast<int>(id))->recordcount, 0);
  }
  for_each_head(database, make_rb_ext);
  database->lock.MakeEpochEven();
}

void ZtResetDb(ZtDbHandle database) {
  if (!require_writable(database)) return;
  const Work work(database, work_reset);
  drop_copies_of_abandoned_records(database);
  reset_in_place(database);
  database->base.rb_count = database->base.memory->rb_count;
}
