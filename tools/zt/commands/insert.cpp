// zt insert: one row, in a transaction of its own.
#include "zt/assignment.h"
#include "zt/commands.h"
#include "zt/new_row.h"
#include "zt/transaction.h"

namespace zt {
namespace {

class Insert final : public Command {
 public:
  void declare(CLI::App& app) override {
    declare_database(app, path_);
    declare_table(app, table_);
    app.add_option("values", words_, "Values of the row's fields; what is not named is 0 or empty")
        ->type_name("FIELD=VALUE");
  }

  Status run(Context& context) override {
    const Database database(context, path_, Access::write);
    const Table table(context, database, table_);
    const std::vector<Assignment> values = assignments(context, table, words_);
    const NewRow row(database);
    Transaction transaction(context, database);
    const std::string doing = tr("cannot insert into {}", table.name());
    if (!ZtNewRecord(database, table.id(), row)) database.fail(doing);
    assign(database, table, row, values);
    if (!ZtPutRecord(database, row)) database.fail(doing);
    const std::int64_t id = ZtGetRecordId(database, row);
    transaction.commit();
    const auto rows =
        context.rows({{"table"}, {"inserted", Kind::integer}, {"record_id", Kind::integer}}, Shape::record);
    rows->row({table.name(), std::int64_t{1}, id});
    rows->end();
    return Status::ok;
  }

 private:
  std::string path_, table_;
  std::vector<std::string> words_;
};

}  // namespace

std::unique_ptr<Command> make_insert() {
  return std::make_unique<Insert>();
}

}  // namespace zt
