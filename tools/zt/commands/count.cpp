// zt count: how many rows a table has, or an index finds.
#include "zt/commands.h"
#include "zt/cursor.h"

namespace zt {
namespace {

class Count final : public Command {
 public:
  void declare(CLI::App& app) override {
    declare_database(app, path_);
    declare_table(app, table_);
    choice_.declare(app);
  }

  Status run(Context& context) override {
    const Database database(context, path_, Access::read);
    const Table table(context, database, table_);
    Cursor cursor(context, database, table, choice_);
    std::int64_t count = 0;
    while (cursor.next()) ++count;
    const auto rows = context.rows({{"table"}, {"rows", Kind::integer}}, Shape::record);
    rows->row({table.name(), count});
    rows->end();
    return Status::ok;
  }

 private:
  std::string path_, table_;
  RowChoice choice_;
};

}  // namespace

std::unique_ptr<Command> make_count() {
  return std::make_unique<Count>();
}

}  // namespace zt
