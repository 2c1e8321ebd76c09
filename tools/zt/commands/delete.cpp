// zt delete: every row that is chosen, in one transaction.
#include "zt/change.h"
#include "zt/commands.h"

namespace zt {
namespace {

class Delete final : public Command {
 public:
  void declare(CLI::App& app) override {
    declare_database(app, change_.path);
    declare_table(app, change_.table);
    change_.declare(app);
  }

  Status run(Context& context) override {
    return change_.run(context, "deleted", [](const Database& database, const Table& table) {
      return [&database, &table](ZtRecordHandle row) {
        ZtDeleteRecord(database, row);
        database.throw_if_failed(tr("cannot delete a row of {}", table.name()));
      };
    });
  }

 private:
  Change change_;
};

}  // namespace

std::unique_ptr<Command> make_delete() {
  return std::make_unique<Delete>();
}

}  // namespace zt
