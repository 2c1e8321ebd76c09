// Field values: writing one into a row or a stored record, reading one, and what is known of a column.
#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>

#include "base/fatal.h"
#include "cache/copies.h"
#include "cache/error.h"
#include "cache/record.h"
#include "cache/row.h"

using namespace cachet;

namespace {

constexpr int no_rounding = -1;

void copy_double(char* slot, const ZtDataField& field, double value) {
  if (field.decimal != no_rounding) Fjust(value, field.decimal);
  std::memcpy(slot, &value, std::min<std::size_t>(field.length, sizeof value));
}

// The value in its stored form, into the field's slot. Values of eight bytes, the most frequent ones, without a call.
void copy_value(char* slot, const ZtDataField& field, const void* data) {
  constexpr std::size_t word = sizeof(std::uint64_t);
  if (field.type == FIELD_DOUBLE && (field.decimal != no_rounding || field.length != word))
    return copy_double(slot, field, load_unaligned<double>(data));
  if (field.length == word) {
    std::memcpy(slot, data, word);
  } else {
    std::memcpy(slot, data, field.length);
  }
  if (field.type == FIELD_STRING && field.length > 0) slot[field.length - 1] = 0;
}

// The record's before-image, then the mark: flag first, counter second, both before the first byte changes.
bool begin_change(ZtDbHandle database, const ZtTable& table, const ZtRecordRow* row) {
  ZtRecord* const record = row->record;
  if (!keep_before_image(database, row->tableid, record, stored_bytes(table))) return false;
  const ChangeMark mark = mark_of(record);
  if (mark.duty) return true;
  set_duty(record, true);
  set_updateno(record, mark.updateno + 1);
  std::atomic_thread_fence(std::memory_order_release);
  return true;
}

// The stored value is the manager's to round and to cut.
bool change_remotely(ZtDbHandle database, const ZtRecordRow* row, int fieldid, const ZtDataField& field,
                     const void* data) {
  char* const value = static_cast<char*>(const_cast<void*>(data));
  const auto rowid = static_cast<int>(id_of(row->record));
  if (ZtRemoteUpdate(database, row->tableid, rowid, fieldid, field.length, value)) return true;
  fatal::remote_change_failed();
}

[[gnu::noinline]] bool change_stored(ZtDbHandle database, const ZtTable& table, const ZtRecordRow* row,
                                     int fieldid, const void* data) {
  const ZtDataField& field = table.fielddescrible[index_of_id(fieldid)];
  if (field.indexed == 1)
    return report(database, ZT_ERR_READ_ONLY, message::indexed_field_change, table.name);
  if (forwards_changes(database)) return change_remotely(database, row, fieldid, field, data);
  if (!begin_change(database, table, row)) return false;
  if (field.length != 0) copy_value(field_bytes(row->record, field), field, data);
  return true;
}

// The field behind a column; null, reported, for a bad table or column.
const ZtDataField* column(ZtDbHandle database, const ZtRecordRow* row, int col) {
  const ZtTable* const table = table_at(database, row->tableid);
  return table == nullptr ? nullptr : field_at(database, *table, col);
}

[[gnu::always_inline]] inline char* get_field(const ZtRecordRow* row, const ZtDataField& field,
                                              int* fieldtype) {
  *fieldtype = field.type;
  return field_bytes(row->record, field);
}

[[gnu::noinline]] char* look_up_field(ZtDbHandle database, const ZtRecordRow* row, int fieldid,
                                      int* fieldtype) {
  const ZtDataField* const field = row->record == nullptr ? nullptr : column(database, row, fieldid);
  return field == nullptr ? nullptr : get_field(row, *field, fieldtype);
}

}  // namespace

void Fjust(double& value, int dec) {
  double unit = value > 0 ? 1.0 : -1.0;  // zero, negative values and NaN take -1
  for (int place = 0; place < dec; ++place) unit /= 10.0;
  const double biased = (0.5 * unit + value) + unit / 10000.0;
  value = biased - std::fmod(biased, unit);
}

bool ZtSetField(ZtDbHandle database, ZtRecordHandle record, int fieldid, const void* data) {
  const ZtTable* const table = changeable_table(database, record);
  if (table == nullptr || !require_record(database, record)) return false;
  const ZtDataField* const field = field_at(database, *table, fieldid);
  if (field == nullptr) return false;
  if (!record->newrow) return change_stored(database, *table, record, fieldid, data);
  if (field->length != 0) copy_value(field_bytes(record->record, *field), *field, data);
  return true;
}

char* ZtGetField(ZtDbHandle database, ZtRecordHandle record, int fieldid, int* fieldtype) {
  const RowShape& shape = record->shape;
  if (!has_shape(record, database) || index_of_id(fieldid) >= shape.field_count)
    return look_up_field(database, record, fieldid, fieldtype);
  return get_field(record, shape.fields[index_of_id(fieldid)], fieldtype);
}

int ZtGetRecordId(ZtDbHandle database, ZtRecordHandle record) {
  if (record->record != nullptr) return static_cast<int>(id_of(record->record));
  report(database, ZT_ERR_GENERAL, message::no_record);
  return 0;
}

int ZtGetCols(ZtDbHandle database, ZtRecordHandle record) {
  const ZtTable* const table = table_at(database, record->tableid);
  return table == nullptr ? 0 : static_cast<int>(table->fielddescrible.size());
}

char* ZtGetColName(ZtDbHandle database, ZtRecordHandle record, int col) {
  const ZtDataField* const field = column(database, record, col);
  return field == nullptr ? nullptr : const_cast<char*>(field->name);
}

int ZtGetColType(ZtDbHandle database, ZtRecordHandle record, int col) {
  const ZtDataField* const field = column(database, record, col);
  return field == nullptr ? 0 : field->type;
}

int ZtGetColSize(ZtDbHandle database, ZtRecordHandle record, int col) {
  const ZtDataField* const field = column(database, record, col);
  return field == nullptr ? 0 : field->length;
}

int ZtGetColDecimal(ZtDbHandle database, ZtRecordHandle record, int col) {
  const ZtDataField* const field = column(database, record, col);
  return field == nullptr ? 0 : field->decimal;
}

char* ZtGetColData(ZtDbHandle database, ZtRecordHandle record, int col) {
  if (!require_record(database, record)) return nullptr;
  const ZtDataField* const field = column(database, record, col);
  return field == nullptr ? nullptr : field_bytes(record->record, *field);
}
