// zt export: one table as a file.
#include <algorithm>
#include <optional>

#include "zt/commands.h"
#include "zt/cursor.h"
#include "zt/move/format.h"
#include "zt/move/library_files.h"
#include "zt/move/output_file.h"
#include "zt/move/row_writer.h"
#include "zt/output/progress.h"
#include "zt/stop.h"
#include "zt/transaction.h"

namespace zt {
namespace {

class Export final : public Command {
 public:
  void declare(CLI::App& app) override {
    declare_database(app, path_);
    declare_table(app, table_);
    choice_.declare(app, "Where to write the rows; - for standard output");
    app.add_flag("--lock", lock_, "Keep writers out meanwhile, so that all rows are of one moment");
  }

  Status run(Context& context) override {
    const FileFormat format = choice_.chosen();
    const Database database(context, path_, lock_ ? Access::write : Access::read);
    const Table table(context, database, table_);
    std::optional<Transaction> transaction;
    if (lock_) transaction.emplace(context, database);
    catch_stop_signals();
    if (is_of_library(format)) {
      export_library_file(database, table, format, choice_.file);
    } else {
      export_rows(context, database, table, format);
    }
    if (transaction) transaction->commit();
    return Status::ok;
  }

 private:
  void export_rows(const Context& context, const Database& database, const Table& table,
                   FileFormat format) const {
    const auto writer = make_row_writer(format, context.encoding(), table.fields().columns());
    OutputFile file(choice_.file);
    // The bar would stand between the rows where both go to one terminal.
    Progress progress(context.encoding(), tr("exporting"), tr("rows"), !choice_.is_standard());
    const double all = records_ever(database, table);
    Cursor cursor(context, database, table, {});
    file.put(writer->head());
    std::int64_t count = 0;
    while (cursor.next()) {
      if (stop_asked()) throw Failure(tr("interrupted: {} is as it was", choice_.file));
      const ZtRecordHandle record = cursor.row();
      const int id = ZtGetRecordId(database, record);
      file.put(line_of(context, *writer, table.fields(), database, record));
      progress.at(++count, (id + 1.0) / all);
    }
    file.finish();
  }

  static double records_ever(const Database& database, const Table& table) {
    long count = 0, size = 0;
    ZtTableSize(database, table.id(), count, size);
    return static_cast<double>(std::max(count, 1L));
  }

  static std::string line_of(const Context& context, RowWriter& writer, const Fields& fields,
                             ZtDbHandle database, ZtRecordHandle record) {
    try {
      const Row cells = fields.cells(database, record);
      refuse_broken_texts(context, fields, cells, database, record);
      return writer.line(cells);
    } catch (const Failure& error) {
      throw Failure(tr("record {}: {}", ZtGetRecordId(database, record), error.what()));
    }
  }

  // A byte that is no character shows as "\xNN" in a cell, and could not be told from a text of these characters.
  static void refuse_broken_texts(const Context& context, const Fields& fields, const Row& cells,
                                  ZtDbHandle database, ZtRecordHandle record) {
    for (int id = 0; id < fields.count(); ++id) {
      const auto* const text = std::get_if<std::string>(&cells[static_cast<std::size_t>(id)]);
      if (fields.type(id) != FIELD_STRING || text == nullptr || text->find("\\x") == std::string::npos)
        continue;
      int type = 0;
      const char* const bytes = ZtGetField(database, record, id, &type);
      const std::string_view stored(bytes, strnlen(bytes, static_cast<std::size_t>(fields.width_bytes(id))));
      if (context.encoding().to_stored(*text) == stored) continue;
      throw Failure(
          tr("field {}: \"{}\" is no text in the database's encoding; to move texts byte by byte: "
             "--encoding ISO-8859-1 --stored-encoding ISO-8859-1",
             fields.name(id), *text));
    }
  }

  std::string path_, table_;
  FileChoice choice_;
  bool lock_ = false;
};

}  // namespace

std::unique_ptr<Command> make_export() {
  return std::make_unique<Export>();
}

}  // namespace zt
