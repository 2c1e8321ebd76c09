// Record handles: a table id and a row, either private (being built, or a read-only copy) or the stored
// record itself.
#include "cache/row.h"

#include <cstdlib>
#include <cstring>

#include "base/fatal.h"
#include "cache/error.h"
#include "cache/record.h"

namespace cachet {

ZtRecord* allocate_row(const ZtTable& table, int line) {
  // Not calloc, which takes nothing from where the row before has gone back to. The compiler would make it one of
  // malloc and memset, if it saw that they are for the same memory.
  const auto bytes = static_cast<std::size_t>(stored_bytes(table));
  void* const memory = std::malloc(bytes);
  if (memory == nullptr) fatal::out_of_heap(line);
  asm volatile("" : : "r"(memory) : "memory");
  return static_cast<ZtRecord*>(std::memset(memory, 0, bytes));
}

void release_row(ZtRecordRow* row) {
  std::free(row->record);
  row->record = nullptr;
  row->copied_bytes = 0;
  row->shape = {};
}

}  // namespace cachet

using namespace cachet;

void ZtCreateRecord(ZtRecordHandle* record) {
  *record = new ZtRecordRow;
}

void ZtDupRecord(ZtRecordHandle source, ZtRecordHandle destination) {
  *destination = *source;
}

void ZtCloseRecord(ZtDbHandle database, ZtRecordHandle record) {
  if (record == nullptr) return;
  if (database->base.mode == ZT_MODE_READ_ONLY && record->copied_bytes != 0) release_row(record);
  delete record;
}

bool ZtNewRecord(ZtDbHandle database, int tableid, ZtRecordHandle record) {
  const ZtTable* const table = table_at(database, tableid);
  if (table == nullptr) return false;
  if (database->base.mode == ZT_MODE_READ_ONLY) {
    return report(database, ZT_ERR_READ_ONLY, message::table_read_only, table->name);
  }
  record->record = allocate_row(*table, fatal::new_row_line);
  set_id(record->record, -1);
  record->tableid = tableid;
  record->newrow = true;
  record->copied_bytes = 0;
  record->shape = {};
  return true;
}
