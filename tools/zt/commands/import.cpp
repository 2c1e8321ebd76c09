// zt import: the rows of a file into one table. Unless it is told to keep going, all of them or none: what can be read
// twice is checked whole before the first row is stored.
#include "zt/commands.h"
#include "zt/move/format.h"
#include "zt/move/importer.h"
#include "zt/move/library_files.h"
#include "zt/move/room.h"
#include "zt/stop.h"

namespace zt {
namespace {

class Import final : public Command {
 public:
  void declare(CLI::App& app) override {
    declare_database(app, path_);
    declare_table(app, table_);
    choice_.declare(app, "Where the rows are; - for standard input");
    CLI::Option* const keep_going = app.add_flag(
        "--keep-going", keep_going_, "Store what can be stored, and leave out the rows that cannot");
    app.add_option("--batch", batch_, "Rows of a transaction, with --keep-going")
        ->check(CLI::Range(std::int64_t{1}, std::int64_t{1'000'000'000}))
        ->capture_default_str()
        ->needs(keep_going);
    app.add_option("--reject", reject_, "Write the rows that are refused here, with the reason of each")
        ->type_name("FILE");
    app.add_flag("--lenient", lenient_,
                 "Leave 0 or empty what the file lacks, and skip what the table lacks");
    app.add_flag("--dry-run", dry_run_, "Only check every row");
  }

  Status run(Context& context) override {
    const FileFormat format = choice_.chosen();
    const Database database(context, path_, dry_run_ ? Access::read : Access::write);
    const Table table(context, database, table_);
    const ImportCounts counts = is_of_library(format) ? import_by_library(context, database, table, format)
                                                      : import_rows(context, database, table, format);
    const auto rows = context.rows({{"table"},
                                    {"file"},
                                    {"rows", Kind::integer},
                                    {"imported", Kind::integer},
                                    {"refused", Kind::integer}},
                                   Shape::record);
    rows->row({table.name(), context.encoding().from_outside(choice_.file), counts.rows, counts.stored,
               counts.refused});
    rows->end();
    return counts.refused == 0 ? Status::ok : Status::failure;
  }

 private:
  ImportCounts import_by_library(const Context& context, const Database& database, const Table& table,
                                 FileFormat format) const {
    if (!reject_.empty() || lenient_ || dry_run_) {
      throw UsageError(
          tr("--reject, --lenient and --dry-run are for csv and jsonl: the library reads this format by "
             "itself"));
    }
    return import_library_file(context, database, table, format, choice_.file, keep_going_);
  }

  ImportCounts import_rows(const Context& context, const Database& database, const Table& table,
                           FileFormat format) const {
    catch_stop_signals();
    const ImportOptions options{choice_.file, {format, lenient_}, keep_going_ ? batch_ : 0};
    Input input(choice_.file);
    RejectFile rejects(context.encoding(), reject_);
    if (dry_run_ || (!keep_going_ && input.can_rewind())) {
      Importer checking(context, database, table, options, input, rejects);
      checking.check();
      if (dry_run_ || checking.counts().refused > 0) return conclude(context, checking, rejects);
      refuse_without_room(database, database.schema().tables[static_cast<std::size_t>(table.id())],
                          checking.counts().rows);
      input.rewind();
    }
    Importer importer(context, database, table, options, input, rejects);
    importer.store();
    return conclude(context, importer, rejects);
  }

  ImportCounts conclude(const Context& context, const Importer& importer, RejectFile& rejects) const {
    rejects.finish();
    const ImportCounts& counts = importer.counts();
    if (counts.refused == 0) return counts;
    context.say(importer.first_refusal());
    if (counts.refused > 1) context.say(trn("and {} row more", "and {} rows more", counts.refused - 1));
    if (counts.refused > 1 && !importer.broken_off().empty())
      context.say(tr("{}; nothing was read behind it", importer.broken_off()));
    if (counts.stored == 0 && !dry_run_) context.say(tr("nothing was imported"));
    return counts;
  }

  std::string path_, table_, reject_;
  FileChoice choice_;
  std::int64_t batch_ = 10'000;
  bool keep_going_ = false, lenient_ = false, dry_run_ = false;
};

}  // namespace

std::unique_ptr<Command> make_import() {
  return std::make_unique<Import>();
}

}  // namespace zt
