// zt get: rows of a table, streamed as the library finds them.
#include "zt/commands.h"
#include "zt/listing.h"

namespace zt {
namespace {

class Get final : public Command {
 public:
  void declare(CLI::App& app) override {
    declare_database(app, path_);
    declare_table(app, table_);
    choice_.declare(app);
    app.add_option("--limit", listing_.limit, "At most so many rows")
        ->type_name("N")
        ->check(CLI::Range(std::int64_t{0}, std::numeric_limits<std::int64_t>::max()));
    app.add_flag("--reverse", choice_.reverse, "From the last row to the first");
    app.add_flag("--with-id", listing_.with_id, "With the record id of each row");
  }

  Status run(Context& context) override {
    const Database database(context, path_, Access::read);
    const Table table(context, database, table_);
    Cursor cursor(context, database, table, choice_);
    const std::int64_t count = list_rows(context, database, table, cursor, listing_);
    if (count == 0 && listing_.limit > 0 && choice_.record_id >= 0) throw_no_row(table, choice_);
    return Status::ok;
  }

 private:
  std::string path_, table_;
  RowChoice choice_;
  Listing listing_;
};

}  // namespace

std::unique_ptr<Command> make_get() {
  return std::make_unique<Get>();
}

}  // namespace zt
