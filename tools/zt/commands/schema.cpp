// zt schema: the tables with their fields and indexes, by the catalog.
#include "inspect/schema.h"

#include "zt/commands.h"
#include "zt/definition.h"

namespace zt {
namespace {

using namespace cachet::inspect;

class SchemaCommand final : public Command {
 public:
  void declare(CLI::App& app) override {
    declare_database(app, path_);
    app.add_option("table", table_, "Only this table")->type_name("TABLE");
    app.add_option("--as", notation_, "As a file that zt create reads: toml, json")
        ->check(CLI::IsMember({"toml", "json"}));
  }

  Status run(Context& context) override {
    Look look(context, path_);
    Schema schema = read_schema(*look->view());
    look.close();
    if (!table_.empty()) keep_named(context, schema);
    if (notation_.empty()) {
      print(context, schema);
    } else {
      const Notation notation = notation_ == "json" ? Notation::json : Notation::toml;
      std::fputs(write_definition(schema, notation, context.encoding()).c_str(), stdout);
    }
    for (const std::string& fault : schema.faults) context.say(fault);
    return schema.faults.empty() ? Status::ok : Status::damaged;
  }

 private:
  void keep_named(const Context& context, Schema& schema) const {
    const std::string wanted = context.encoding().from_outside(table_);
    std::erase_if(schema.tables,
                  [&](const Table& table) { return context.from_stored(table.name) != wanted; });
    if (schema.tables.empty()) throw NotFound(tr("{} has no table {}", path_, wanted));
  }

  static void print(const Context& context, const Schema& schema) {
    const auto rows = context.rows({{"table"},
                                    {"kind"},
                                    {"id", Kind::integer},
                                    {"name"},
                                    {"type"},
                                    {"length", Kind::integer},
                                    {"decimals", Kind::integer},
                                    {"offset", Kind::integer},
                                    {"fields"}});
    for (const Table& table : schema.tables) {
      const std::string name = context.from_stored(table.name);
      print_fields(context, *rows, name, table);
      print_indexes(context, *rows, name, table);
    }
    rows->end();
  }

  static void print_fields(const Context& context, RowSink& rows, const std::string& name,
                           const Table& table) {
    for (std::int64_t id = 0; const Field& field : table.fields) {
      const bool rounded = field.type == FIELD_DOUBLE && field.decimals >= 0;
      rows.row({name, std::string("field"), id++, context.from_stored(field.name), type_name(field.type),
                std::int64_t{field.length_bytes}, rounded ? Cell(std::int64_t{field.decimals}) : Cell(),
                field.offset, Cell()});
    }
  }

  static void print_indexes(const Context& context, RowSink& rows, const std::string& name,
                            const Table& table) {
    for (std::int64_t id = 0; const Index& index : table.indexes) {
      std::string fields;
      for (const int field : index.fields) {
        fields += (fields.empty() ? "" : ", ") +
                  context.from_stored(table.fields[static_cast<std::size_t>(field)].name);
      }
      rows.row({name, std::string("index"), id++, context.from_stored(index.name),
                std::string(index.unique ? "unique" : "duplicates"), Cell(), Cell(), Cell(), fields});
    }
  }

  std::string path_;
  std::string table_;
  std::string notation_;  // empty = as rows
};

}  // namespace

std::unique_ptr<Command> make_schema() {
  return std::make_unique<SchemaCommand>();
}

}  // namespace zt
