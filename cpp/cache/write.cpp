// Storing and deleting records. Nothing here takes a lock: a transaction's lock, or the caller's, keeps
// writers apart.
//
// Order of an insert, which readers and rollback rely on (docs/concurrency.md):
//   1. the record's bytes, with `deleted` set, then its before-image: a rollback leaves a deleted record;
//   2. its header is cleared: complete before anything leads to it;
//   3. the table is marked: read-only readers keep out until the commit;
//   4. the index trees, then the record-id tree.
#include "cache/write.h"

#include <cstring>

#include "base/fatal.h"
#include "cache/copies.h"
#include "cache/error.h"
#include "cache/link.h"
#include "cache/record.h"
#include "cache/row.h"
#include "cache/work.h"
#include "rb_fronts.h"

using namespace cachet;

namespace {

// Below this an insert is refused at once.
constexpr std::int64_t least_free_bytes = 81920;

std::int64_t free_bytes(const Rb_base& base) {
  const Fronts fronts = Fronts::of(&base);
  return fronts.data - fronts.node;
}

bool no_room(ZtDbHandle database) {
  return report(database, ZT_ERR_NO_MEMORY, message::memory_low,
                static_cast<int>(free_bytes(database->base)));
}

bool may_insert(ZtDbHandle database, const ZtTable& table, const ZtRecordRow* row) {
  const bool has_heads =
      table.listindex != nullptr && (table.indexs.empty() || table.indexs.back() != nullptr);
  if (!has_heads) return report(database, ZT_ERR_GENERAL, message::database_not_open);
  if (!require_record(database, row)) return false;
  if (writes_locally(database)) settle_dead_work(database);
  return free_bytes(database->base) >= least_free_bytes || no_room(database);
}

// Gives the record its id; from here on the table counts it.
void take_record_id(Rb_tablename* catalog, ZtRecord* record) {
  const int id = load_relaxed<int>(&catalog->recordcount);
  set_id(record, id);
  store_release<int>(&catalog->recordcount, id + 1);
}

// Steps 1 to 4 for a record whose bytes are in place. Its mark comes between the list item and the trees.
void store_new_record(ZtDbHandle database, const ZtTable& table, ZtRecordRow* row) {
  ZtRecord* const record = row->record;
  Rb_tablename* const catalog = catalog_of(database, row->tableid);
  set_deleted(record, true);
  take_record_id(catalog, record);
  keep_before_image(database, row->tableid, record, stored_bytes(table));
  set_updateno(record, 0);
  set_duty(record, false);
  set_deleted(record, false);
  ZtListItem* const list_item = store_list_item(&database->base, record);
  mark_table(catalog);
  enter_into_trees(database, row->tableid, record, list_item);
  row->newrow = false;
}

// Whether the row's record is a block of the data area, as the calls need it that store a record in place.
bool require_shared_record(ZtDbHandle database, const ZtTable& table, const ZtRecordRow* row) {
  const Rb_base& base = database->base;
  const std::int64_t offset = value_of(offset_of(&base, row->record));
  if (is_data(&base, offset, stored_bytes(table))) return true;
  return report(database, ZT_ERR_GENERAL, message::bad_record);
}

// The manager stores the row, and tells where. Its word is taken only for a place in the data area.
void store_remotely(ZtDbHandle database, const ZtTable& table, ZtRecordRow* row) {
  unsigned long offset = 0;
  if (!ZtRemoteInsert(database, row->tableid, table.recordlength, bytes_of(row->record) + ZT_RECORD_HEADER,
                      &offset)) {
    fatal::remote_change_failed();
  }
  const auto stored = static_cast<std::int64_t>(offset);
  if (!is_data(&database->base, stored, stored_bytes(table))) {
    report(database, ZT_ERR_GENERAL, message::bad_record);
    fatal::remote_change_failed();
  }
  release_row(row);
  row->record = record_at(&database->base, stored);
  row->newrow = false;
}

// Inserts a row whose record lies in the data area already: checks, places, dry run, then `store`.
template <class Store>
bool insert_in_place(ZtDbHandle database, ZtRecordRow* row, const Store& store) {
  ZtTable* const table = writable_table(database, row);
  if (table == nullptr) return false;
  if (!row->newrow) return true;
  if (!may_insert(database, *table, row) || !require_shared_record(database, *table, row)) return false;
  find_places(database, *table, row->record);
  if (!fits(database, *table, record_is_stored)) return no_room(database);
  if (!reserve_before_image(database, stored_bytes(*table))) return false;
  store(*table);
  return true;
}

}  // namespace

namespace cachet {

bool require_room_for_record(ZtDbHandle database, int record_bytes) {
  Fronts fronts = Fronts::of(&database->base);
  const bool fits = fronts.take_data(record_bytes, 8, true) >= 0;
  return (fits && fronts.data - fronts.node >= least_free_bytes) || no_room(database);
}

}  // namespace cachet

bool ZtPutRecord(ZtDbHandle database, ZtRecordHandle record) {
  ZtTable* const table = changeable_table(database, record);
  if (table == nullptr) return false;
  if (!record->newrow) return true;  // stored already; updates were made in place
  if (!may_insert(database, *table, record)) return false;
  find_places(database, *table, record->record);
  if (conflicts(database, *table)) {
    release_row(record);
    return report(database, ZT_ERR_DUPLICATE_KEY, message::unique_conflict, table->name);
  }
  if (forwards_changes(database)) {
    store_remotely(database, *table, record);
    return true;
  }
  const int bytes = stored_bytes(*table);
  if (!fits(database, *table, bytes)) return no_room(database);
  if (!reserve_before_image(database, bytes)) return false;

  char* const stored = Rb_data_malloc(&database->base, bytes, 8, true);
  std::memcpy(stored, record->record, static_cast<std::size_t>(bytes));
  release_row(record);
  record->record = reinterpret_cast<ZtRecord*>(stored);
  store_new_record(database, *table, record);
  return true;
}

bool ZtPutRecord2(ZtDbHandle database, ZtRecordHandle recordrow) {
  return insert_in_place(database, recordrow,
                         [&](const ZtTable& table) { store_new_record(database, table, recordrow); });
}

bool ZtLoadRecord(ZtDbHandle database, ZtRecordHandle recordrow) {
  return insert_in_place(database, recordrow, [&](const ZtTable&) {
    ZtRecord* const record = recordrow->record;
    set_deleted(record, false);
    take_record_id(catalog_of(database, recordrow->tableid), record);
    enter_into_trees(database, recordrow->tableid, record, store_list_item(&database->base, record));
  });
}

void ZtDeleteRecord(ZtDbHandle database, ZtRecordHandle record) {
  ZtTable* const table = changeable_table(database, record);
  if (table == nullptr || !require_record(database, record)) return;
  if (record->newrow) {
    report(database, ZT_ERR_GENERAL, message::no_record);
    return;
  }
  if (forwards_changes(database)) {
    const auto rowid = static_cast<int>(id_of(record->record));
    if (!ZtRemoteDelete(database, record->tableid, rowid)) fatal::remote_change_failed();
    return;
  }
  if (is_deleted(record->record)) return;
  if (keep_before_image(database, record->tableid, record->record, stored_bytes(*table))) {
    set_deleted(record->record, true);
  }
}
