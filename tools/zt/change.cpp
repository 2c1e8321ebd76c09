#include "zt/change.h"

#include "zt/listing.h"
#include "zt/transaction.h"

namespace zt {

void Change::declare(CLI::App& app) {
  choice.declare(app);
  app.add_flag("--dry-run", dry_run, "Only show the rows, as they are");
}

void Change::show(const Context& context, const char* done, const RowChangeMaker& maker) {
  const Database database(context, path, Access::read);
  const Table of(context, database, table);
  maker(database, of);
  Cursor cursor(context, database, of, choice);
  Listing listing;
  listing.with_id = true;
  const std::int64_t count = list_rows(context, database, of, cursor, listing);
  if (count == 0) throw_no_row(of, choice);
  context.say(trn("{} row would be {}", "{} rows would be {}", count, done));
}

Status Change::run(const Context& context, const char* done, const RowChangeMaker& maker) {
  if (choice.is_whole_table()) throw UsageError(tr("which rows? Name them with --id or --index"));
  if (dry_run) {
    show(context, done, maker);
    return Status::ok;
  }
  const Database database(context, path, Access::write);
  const Table of(context, database, table);
  const RowChange change = maker(database, of);
  Cursor cursor(context, database, of, choice);
  Transaction transaction(context, database);
  std::int64_t count = 0;
  for (; cursor.next(); ++count) {
    change(cursor.row());
    transaction.go_on();
  }
  if (count == 0) throw_no_row(of, choice);
  transaction.commit();
  const auto rows = context.rows({{"table"}, {done, Kind::integer}}, Shape::record);
  rows->row({of.name(), count});
  rows->end();
  return Status::ok;
}

}  // namespace zt
