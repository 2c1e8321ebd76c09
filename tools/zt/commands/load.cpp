// zt load: a saved database into one of the same size and tables, or into one that is made for it. Nothing changes
// before every checksum has been compared and the library has said that the image fits.
#include <fstream>

#include "cachetx.h"
#include "inspect/walk.h"
#include "zt/commands.h"
#include "zt/database.h"
#include "zt/move/saved_folder.h"
#include "zt/preflight.h"
#include "zt/stop.h"
#include "zt/transaction.h"

namespace zt {
namespace {

using namespace cachet::inspect;

// Of an image whose checksum was right; a manifest that somebody wrote to fit something else is still possible.
Rb_memory header_of(const std::string& image) {
  Rb_memory header{};
  std::ifstream in(image, std::ios::binary);
  in.read(reinterpret_cast<char*>(&header), sizeof header);
  if (!in || fill_of(header).node_bytes == 0) throw Damaged(tr("{} is no image of a database", image));
  return header;
}

std::int64_t live_records(const RawDatabase& database) {
  std::int64_t records = 0;
  for (const Table& table : read_schema(*database.view()).tables)
    records += count_records(database.view(), table).live;
  return records;
}

class Load final : public Command {
 public:
  void declare(CLI::App& app) override {
    declare_database(app, path_);
    app.add_option("folder", folder_, "Where it was saved")->required()->type_name("FOLDER");
    app.add_flag("--replace", replace_, "Replace the records that are in the database");
    app.add_flag("--in-use", in_use_, "Even while other processes have the database open");
    app.add_flag("--dry-run", dry_run_, "Only check everything, and show what would be replaced");
  }

  Status run(Context& context) override {
    const SavedFolder saved(folder_);
    const Manifest manifest = saved.verified(context);
    const bool exists = segment_of_file(BasePath::parse(path_).segment_file(0)) >= 0;
    const std::int64_t replaced = exists ? load_into_existing(context, saved) : load_into_new(context, saved);
    print(context, manifest, replaced);
    return Status::ok;
  }

 private:
  std::int64_t load_into_existing(const Context& context, const SavedFolder& saved) const {
    const Database database(context, path_, dry_run_ ? Access::read : Access::write);
    if (!ZtxCheckDbFile(database, saved.image().c_str())) {
      database.fail(tr("{} does not fit {}, which needs an image of the same size, version and tables",
                       saved.image(), path_));
    }
    const std::int64_t replaced = refuse_to_harm(context);
    if (!dry_run_) replace(context, database, saved);
    return replaced;
  }

  // How many records there are to be replaced.
  std::int64_t refuse_to_harm(const Context& context) const {
    constexpr unsigned long own_attachments = 1;
    Look look(context, path_);
    if (look->others() > own_attachments && !in_use_ && !dry_run_) {
      throw Refused(
          tr("{} is in use, and whoever searches it meanwhile may be led astray; to load it all the same: "
             "--in-use; to see by whom: zt ps {}",
             path_, path_));
    }
    const std::int64_t records = live_records(*look);
    if (records > 0 && !replace_ && !dry_run_)
      throw Refused(tr("{} has {} records; to replace them: --replace", path_, records));
    return records;
  }

  void replace(const Context& context, const Database& database, const SavedFolder& saved) const {
    if (!ZtLockDb(database, ZT_LOCK_EXCLUSIVE)) database.fail(tr("cannot take the file lock of {}", path_));
    Transaction transaction(context, database);
    if (!ZtReadDbFile(database, saved.image().c_str())) database.fail(tr("cannot load {}", saved.image()));
    transaction.commit();
    ZtUnLockDb(database);
  }

  std::int64_t load_into_new(const Context& context, const SavedFolder& saved) const {
    const Rb_memory header = header_of(saved.image());
    refuse_where_none_can_be(context, header.size);
    if (dry_run_) return 0;
    // Without tables it takes those of any image.
    Database made(context, path_,
                  NewDatabase{text_in(header.version, sizeof header.version), header.size, {}});
    made.discard();
    replace(context, made, saved);
    made.keep();
    return 0;
  }

  void refuse_where_none_can_be(const Context& context, std::int64_t size_bytes) const {
    for (const Diagnosis& each : preflight(context, BasePath::parse(path_), size_bytes, {}).diagnoses) {
      if (each.state != "fault") continue;
      throw Failure(tr("{} cannot be made: {}: {}; {}", path_, each.check, each.detail, each.remedy));
    }
  }

  void print(const Context& context, const Manifest& manifest, std::int64_t replaced) const {
    std::int64_t records = 0;
    for (const SavedTable& table : manifest.tables) records += table.records;
    const auto rows = context.rows({{"database"},
                                    {"folder"},
                                    {"saved"},
                                    {"size", Kind::bytes},
                                    {"version"},
                                    {"tables", Kind::integer},
                                    {"records", Kind::integer},
                                    {"records_replaced", Kind::integer},
                                    {"result"}},
                                   Shape::record);
    rows->row({context.encoding().from_outside(path_), context.encoding().from_outside(folder_),
               manifest.saved, manifest.size_bytes, manifest.version,
               static_cast<std::int64_t>(manifest.tables.size()), records, replaced,
               std::string(dry_run_ ? "would be loaded" : "loaded")});
    rows->end();
  }

  std::string path_, folder_;
  bool replace_ = false, in_use_ = false, dry_run_ = false;
};

}  // namespace

std::unique_ptr<Command> make_load() {
  return std::make_unique<Load>();
}

}  // namespace zt
