// Private rows in process memory.
#ifndef CACHET_CPP_CACHE_ROW_H
#define CACHET_CPP_CACHE_ROW_H

#include "caches.h"

namespace cachet {

// A zeroed row of the table; ends the process, naming `line`, when there is no memory.
ZtRecord* allocate_row(const ZtTable& table, int line);
// Frees the handle's private row and leaves the handle without one.
void release_row(ZtRecordRow* row);

// A number that no ZtDb::schema of the process has had. Any thread.
std::uint64_t next_schema() noexcept;

// Whether the row still knows its table on this handle, whose segments then lie side by side.
[[gnu::always_inline]] inline bool has_shape(const ZtRecordRow* row, const ZtDb* database) noexcept {
  return row->shape.schema == database->schema;
}
inline void keep_shape(ZtRecordRow* row, const ZtDb* database, const ZtTable& table) noexcept {
  row->shape = {};
  if (database->base.flat_begin == nullptr) return;
  row->shape = {database->schema, table.fielddescrible.data(), table.fielddescrible.size(),
                table.recordlength + ZT_RECORD_HEADER};
}

}  // namespace cachet

#endif
