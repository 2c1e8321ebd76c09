// Reporting with the catalogue's texts, and the checks that many calls begin with. A check that fails has
// reported.
#ifndef CACHET_CPP_CACHE_ERROR_H
#define CACHET_CPP_CACHE_ERROR_H

#include <cstddef>
#include <type_traits>

#include "base/element.h"
#include "base/messages.h"
#include "caches.h"

namespace cachet {

// Reports and returns false, so that a failing call can return the report.
template <class... Args>
bool report(ZtDbHandle database, int errcode, const message::Message<Args...>& text,
            std::type_identity_t<Args>... args) {
  ZtSetError(database, errcode, text.c_str(), args...);
  return false;
}

// Null, reported.
[[gnu::cold]] std::nullptr_t report_bad_table(ZtDbHandle database, int tableid);
[[gnu::cold]] std::nullptr_t report_bad_field(ZtDbHandle database, int fieldid);

// Null, reported, for an id out of range.
inline ZtTable* table_at(ZtDbHandle database, int tableid) {
  if (has_element(database->database, tableid)) [[likely]]
    return &database->database[index_of_id(tableid)];
  return report_bad_table(database, tableid);
}
inline const ZtDataField* field_at(ZtDbHandle database, const ZtTable& table, int fieldid) {
  if (has_element(table.fielddescrible, fieldid)) [[likely]]
    return &table.fielddescrible[index_of_id(fieldid)];
  return report_bad_field(database, fieldid);
}

// Null, reported, for an id out of range or a table whose tree heads are not known yet.
ZtTable* loaded_table(ZtDbHandle database, int tableid);

// A text to report, also where a caller gave none.
inline const char* or_empty(const char* text) {
  return text != nullptr ? text : "";
}

[[gnu::cold]] bool report_no_record(ZtDbHandle database);
// False, reported, for a record handle without a record.
inline bool require_record(ZtDbHandle database, const ZtRecordRow* row) {
  return row->record != nullptr || report_no_record(database);
}

// Whether this handle itself writes the shared memory.
inline bool writes_locally(const ZtDb* database) {
  return database->base.mode == 2 && !database->base.isolate;
}

// Whether this handle sends its changes to a manager.
inline bool forwards_changes(const ZtDb* database) {
  return database->base.mode == 2 && database->base.isolate;
}

// Null, reported.
[[gnu::cold]] std::nullptr_t report_read_only(ZtDbHandle database, const ZtTable& table);

// The row's table if this handle itself may write; null, reported, otherwise: the mode is told before anything else.
inline ZtTable* writable_table(ZtDbHandle database, const ZtRecordRow* row) {
  ZtTable* const table = table_at(database, row->tableid);
  if (table == nullptr || writes_locally(database)) [[likely]]
    return table;
  return report_read_only(database, *table);
}
// The row's table if this handle may change it, itself or through its manager; null, reported, otherwise.
inline ZtTable* changeable_table(ZtDbHandle database, const ZtRecordRow* row) {
  return forwards_changes(database) ? table_at(database, row->tableid) : writable_table(database, row);
}
// False, reported, on a handle that may not write, for calls that concern no table.
bool require_writable(ZtDbHandle database);

}  // namespace cachet

#endif
