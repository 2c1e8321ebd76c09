// zt set: the same new values in every row that is chosen, in one transaction.
#include "zt/assignment.h"
#include "zt/change.h"
#include "zt/commands.h"

namespace zt {
namespace {

class Set final : public Command {
 public:
  void declare(CLI::App& app) override {
    declare_database(app, change_.path);
    declare_table(app, change_.table);
    app.add_option("values", words_, "The fields' new values; those of an index cannot be changed")
        ->type_name("FIELD=VALUE");
    change_.declare(app);
  }

  Status run(Context& context) override {
    return change_.run(context, "changed", [&](const Database& database, const Table& table) {
      return [&database, &table, values = values_for(context, table)](ZtRecordHandle row) {
        assign(database, table, row, values);
      };
    });
  }

 private:
  std::vector<Assignment> values_for(const Context& context, const Table& table) {
    std::vector<std::string> words = words_;
    for (std::string& word : change_.choice.take_surplus(table)) words.push_back(std::move(word));
    if (words.empty()) throw UsageError(tr("which values? Give FIELD=VALUE"));
    return assignments(context, table, words);
  }

  Change change_;
  std::vector<std::string> words_;
};

}  // namespace

std::unique_ptr<Command> make_set() {
  return std::make_unique<Set>();
}

}  // namespace zt
