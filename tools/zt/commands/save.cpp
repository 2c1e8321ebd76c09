// zt save: the whole database as a folder of files with checksums. The folder appears, or takes the place of the one
// before, only when all of it is written.
#include <fcntl.h>
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>

#include "inspect/walk.h"
#include "zt/commands.h"
#include "zt/database.h"
#include "zt/definition.h"
#include "zt/move/saved_folder.h"
#include "zt/stop.h"
#include "zt/transaction.h"

namespace zt {
namespace {

using namespace cachet::inspect;

// A folder beside the one that is to be: on the same file system.
class NewFolder {
 public:
  explicit NewFolder(const std::string& final_path) : final_(final_path), folder_(make(final_path)) {}
  ~NewFolder() { folder_.remove(); }
  NewFolder(const NewFolder&) = delete;
  NewFolder& operator=(const NewFolder&) = delete;

  const SavedFolder& folder() const { return folder_; }
  // Gives it its name. What had the name before is exchanged for it, and goes at the end in its place.
  void publish() const {
    const bool exists = std::filesystem::exists(final_);
    const unsigned flags = exists ? RENAME_EXCHANGE : RENAME_NOREPLACE;
    if (renameat2(AT_FDCWD, folder_.path().c_str(), AT_FDCWD, final_.c_str(), flags) != 0)
      throw Failure(tr("cannot make {}: {}", final_, std::strerror(errno)));
  }

 private:
  static SavedFolder make(const std::string& final_path) {
    std::string pattern = final_path + ".new-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr)
      throw Failure(tr("cannot make a folder beside {}: {}", final_path, std::strerror(errno)));
    return SavedFolder(pattern);
  }

  std::string final_;
  SavedFolder folder_;
};

void write_file(const std::string& path, const std::string& text) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (!(out << text).flush()) throw Failure(tr("cannot write {}: {}", path, std::strerror(errno)));
}

std::string now_in_iso_8601() {
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&now, &utc);
  return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", utc);
}

class Save final : public Command {
 public:
  void declare(CLI::App& app) override {
    declare_database(app, path_);
    app.add_option("folder", folder_, "Where to save it")->required()->type_name("FOLDER");
    app.add_flag("--replace", replace_, "Replace the saved database that is there");
    app.add_flag("--dry-run", dry_run_, "Only show what would be saved, and what replaced");
  }

  Status run(Context& context) override {
    while (folder_.size() > 1 && folder_.back() == '/') folder_.pop_back();
    refuse_what_is_there();
    Database database(context, path_, dry_run_ ? Access::read : Access::write);
    Manifest manifest;
    if (dry_run_) {
      describe(context, manifest);
    } else {
      save(context, database, manifest);
    }
    print(context, manifest);
    return Status::ok;
  }

 private:
  void refuse_what_is_there() const {
    if (!std::filesystem::exists(std::filesystem::symlink_status(folder_))) return;
    if (!SavedFolder(folder_).is_saved_database())
      throw Refused(tr("{} is there, and is no saved database", folder_));
    if (!replace_ && !dry_run_)
      throw Refused(tr("a saved database is in {} already; to replace it: --replace", folder_));
  }

  void save(const Context& context, const Database& database, Manifest& manifest) const {
    Transaction transaction(context, database);
    const NewFolder made(folder_);
    describe(context, manifest);
    if (!ZtWriteDbFile(database, made.folder().image().c_str())) database.fail(tr("cannot save {}", path_));
    transaction.commit();
    if (stop_asked()) throw Failure(tr("interrupted: nothing was saved"));
    write_file(made.folder().schema(),
               write_definition(database.schema(), Notation::json, context.encoding()));
    made.folder().seal(context, manifest);
    made.publish();
  }

  // As long as nobody else may write.
  void describe(const Context& context, Manifest& manifest) const {
    Look look(context, path_);
    const Rb_memory header = look->header();
    manifest.database = context.encoding().from_outside(path_);
    manifest.version = context.from_stored(text_in(header.version, sizeof header.version));
    manifest.saved = now_in_iso_8601();
    manifest.size_bytes = header.size;
    for (const Table& table : read_schema(*look->view()).tables) {
      manifest.tables.push_back({context.from_stored(table.name), count_records(look->view(), table).live});
    }
  }

  void print(const Context& context, const Manifest& manifest) const {
    std::int64_t records = 0;
    for (const SavedTable& table : manifest.tables) records += table.records;
    const bool replaces = dry_run_ && SavedFolder(folder_).is_saved_database();
    const char* const done = !dry_run_  ? "saved"
                             : replaces ? "would replace what is saved there"
                                        : "would be saved";
    const auto rows = context.rows({{"database"},
                                    {"folder"},
                                    {"size", Kind::bytes},
                                    {"version"},
                                    {"tables", Kind::integer},
                                    {"records", Kind::integer},
                                    {"result"}},
                                   Shape::record);
    rows->row({manifest.database, context.encoding().from_outside(folder_), manifest.size_bytes,
               manifest.version, static_cast<std::int64_t>(manifest.tables.size()), records,
               std::string(done)});
    rows->end();
  }

  std::string path_, folder_;
  bool replace_ = false, dry_run_ = false;
};

}  // namespace

std::unique_ptr<Command> make_save() {
  return std::make_unique<Save>();
}

}  // namespace zt
