// zt tables: how many records each table has, and how many keys each index.
#include <fmt/format.h>

#include "inspect/walk.h"
#include "zt/commands.h"

namespace zt {
namespace {

using namespace cachet::inspect;

class Tables final : public Command {
 public:
  void declare(CLI::App& app) override {
    declare_database(app, path_);
    app.add_flag("--indexes", indexes_, "One row for each index");
  }

  Status run(Context& context) override {
    Look look(context, path_);
    const Schema schema = read_schema(*look->view());
    whole_ = schema.faults.empty();
    const auto rows = indexes_ ? index_rows(context, *look, schema) : table_rows(context, *look, schema);
    look.close();
    rows->end();
    if (!whole_) context.say(tr("{} has broken links; to see where: zt verify {}", path_, path_));
    return whole_ ? Status::ok : Status::damaged;
  }

 private:
  std::unique_ptr<RowSink> table_rows(const Context& context, const RawDatabase& database,
                                      const Schema& schema) {
    auto rows = context.rows({{"id", Kind::integer},
                              {"table"},
                              {"live", Kind::integer},
                              {"deleted", Kind::integer},
                              {"record_bytes", Kind::integer},
                              {"fields", Kind::integer},
                              {"keys"},
                              {"marked", Kind::yes_no}});
    for (std::int64_t id = 0; const Table& table : schema.tables) {
      const RecordCounts counts = count_records(database.view(), table);
      whole_ = whole_ && counts.whole;
      rows->row({id++, context.from_stored(table.name), counts.live, counts.deleted,
                 table.record_bytes + ZT_RECORD_HEADER, static_cast<std::int64_t>(table.fields.size()),
                 keys_of(context, database, table), cachet::load_relaxed<char>(&table.record->duty) != 0});
    }
    return rows;
  }

  std::string keys_of(const Context& context, const RawDatabase& database, const Table& table) {
    std::string keys;
    for (const Index& index : table.indexes) {
      const Cell count = key_count(database, index);
      keys += fmt::format("{}{} {}", keys.empty() ? "" : ", ", context.from_stored(index.name),
                          for_programs(count, Kind::integer));
    }
    return keys;
  }

  std::unique_ptr<RowSink> index_rows(const Context& context, const RawDatabase& database,
                                      const Schema& schema) {
    auto rows =
        context.rows({{"table"}, {"id", Kind::integer}, {"index"}, {"type"}, {"keys", Kind::integer}});
    for (const Table& table : schema.tables) {
      for (std::int64_t id = 0; const Index& index : table.indexes) {
        rows->row({context.from_stored(table.name), id++, context.from_stored(index.name),
                   std::string(index.unique ? "unique" : "duplicates"), key_count(database, index)});
      }
    }
    return rows;
  }

  Cell key_count(const RawDatabase& database, const Index& index) {
    const auto keys = count_keys(database.view(), index);
    whole_ = whole_ && keys.has_value();
    return keys ? Cell(*keys) : Cell();
  }

  std::string path_;
  bool indexes_ = false;
  bool whole_ = true;
};

}  // namespace

std::unique_ptr<Command> make_tables() {
  return std::make_unique<Tables>();
}

}  // namespace zt
