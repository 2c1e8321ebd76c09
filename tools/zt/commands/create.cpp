// zt create: an empty database by a schema file. It outlives the tool, as memory that nobody is attached to.
#include <filesystem>
#include <limits>

#include "zt/commands.h"
#include "zt/database.h"
#include "zt/definition.h"
#include "zt/preflight.h"

namespace zt {
namespace {

using namespace cachet::inspect;

class Create final : public Command {
 public:
  void declare(CLI::App& app) override {
    declare_database(app, path_);
    app.add_option("--schema", file_, "The tables, in TOML or JSON")->required()->type_name("FILE");
    app.add_option("--size", size_bytes_,
                   "Bytes of the database, with K, M or G behind the number as powers of 1024")
        ->required()
        ->transform(CLI::AsSizeValue(false))
        ->check(CLI::Range(std::int64_t{1}, std::numeric_limits<std::int64_t>::max()))
        ->type_name("SIZE");
    app.add_option("--version", version_, "The version text that every opener must give, of at most 22 bytes")
        ->required()
        ->type_name("TEXT");
    app.add_flag("--dry-run", dry_run_, "Only show the checks, and what would be made");
  }

  Status run(Context& context) override {
    const BasePath path = absolute(BasePath::parse(path_));
    NewDatabase made{stored_version(context), size_bytes_, read_definition(file_, context.encoding())};
    const Preflight checks = preflight(context, path, made.size_bytes, made.schema);
    if (checks.passed() && !dry_run_) const Database database(context, path.shown(), made);
    print(context, path, made, checks);
    if (checks.passed()) {
      if (!dry_run_)
        context.print(tr("Nobody is attached to it: it stays until a program that opens it is the last to "
                         "leave, or until zt rm.") +
                      "\n");
      return Status::ok;
    }
    const std::string shown = context.encoding().from_outside(path.shown());
    context.say(dry_run_ ? tr("{} cannot be made: see the faults above", shown)
                         : tr("{} was not made: see the faults above", shown));
    return checks.exists ? Status::refused : Status::damaged;
  }

 private:
  static constexpr std::size_t longest_version = 22;

  // The header keeps the path, and whoever reads it there may be in another directory. One that would be too long so
  // stays relative.
  static BasePath absolute(const BasePath& path) {
    if (path.directory.front() == '/') return path;
    std::error_code error;
    const auto directory = std::filesystem::absolute(path.directory, error);
    const BasePath whole{std::filesystem::weakly_canonical(directory, error).string(), path.name};
    return error || whole.text().size() > BasePath::longest_text ? path : whole;
  }

  std::string stored_version(const Context& context) const {
    auto stored = context.encoding().to_stored(context.argument(version_));
    if (!stored || stored->size() > longest_version) {
      throw UsageError(tr("a version takes at most {} bytes in the database's encoding", longest_version));
    }
    return *std::move(stored);
  }

  void print(const Context& context, const BasePath& path, const NewDatabase& made,
             const Preflight& checks) const {
    const auto rows = context.rows({{"item"}, {"state", Kind::state}, {"detail"}, {"remedy"}});
    for (const Diagnosis& each : checks.diagnoses)
      rows->row({each.check, each.state, each.detail, each.remedy});
    if (checks.passed()) print_parts(context, path, made, *rows);
    rows->end();
  }

  void print_parts(const Context& context, const BasePath& path, const NewDatabase& made,
                   RowSink& rows) const {
    const std::string state = dry_run_ ? "would be made" : "made";
    const auto add = [&](std::string item, std::string detail) {
      rows.row({std::move(item), state, std::move(detail), Cell()});
    };
    add("segments", tr("{} of {} bytes together, key file {}", segments_for(made.size_bytes), made.size_bytes,
                       context.encoding().from_outside(path.segment_file(0))));
    for (const Table& table : made.schema.tables) {
      add("table", tr("{}: {} fields in {} bytes, {} indexes", context.from_stored(table.name),
                      table.fields.size(), table.record_bytes, table.indexes.size()));
    }
  }

  std::string path_, file_, version_;
  std::int64_t size_bytes_ = 0;
  bool dry_run_ = false;
};

}  // namespace

std::unique_ptr<Command> make_create() {
  return std::make_unique<Create>();
}

}  // namespace zt
