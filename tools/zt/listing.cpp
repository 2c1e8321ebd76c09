#include "zt/listing.h"

namespace zt {

std::int64_t list_rows(const Context& context, const Database& database, const Table& table, Cursor& cursor,
                       const Listing& listing) {
  std::vector<Column> columns = table.fields().columns();
  if (listing.with_id) columns.insert(columns.begin(), {"record_id", Kind::integer});
  const auto rows = context.rows(std::move(columns));
  std::int64_t count = 0;
  while (count < listing.limit && cursor.next()) {
    const ZtRecordHandle record = cursor.row();
    Row row;
    if (listing.with_id) row.emplace_back(std::int64_t{ZtGetRecordId(database, record)});
    table.fields().append_cells(database, record, row);
    rows->row(row);
    ++count;
  }
  rows->end();
  return count;
}

void throw_no_row(const Table& table, const RowChoice& choice) {
  throw cachet::inspect::NotFound(
      choice.record_id >= 0 ? tr("table {} has no row with record id {}", table.name(), choice.record_id)
                            : tr("no row of table {} matches", table.name()));
}

}  // namespace zt
