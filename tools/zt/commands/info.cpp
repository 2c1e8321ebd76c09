// zt info: what one database is, and how full.
#include <fmt/format.h>

#include "inspect/processes.h"
#include "inspect/schema.h"
#include "zt/commands.h"
#include "zt/output/bar.h"

namespace zt {
namespace {

using namespace cachet::inspect;

class Info final : public Command {
 public:
  void declare(CLI::App& app) override { declare_database(app, path_); }

  Status run(Context& context) override {
    Look look(context, path_);
    const Rb_memory header = look->header();
    const std::size_t tables = read_schema(*look->view()).tables.size();
    const int segments = look->view()->segmentcount;
    const int id = look->first_segment_id();
    const std::vector<std::string> faults = look->faults();
    look.close();
    const auto status = status_of_segment(id);
    if (!status) throw NotFound(tr("{}: the database was removed just now", path_));

    const Attached attached = attached_to(id);
    const Fill fill = fill_of(header);
    print_bar(context, fill);
    const auto rows = context.rows(columns(), Shape::record);
    rows->row({context.encoding().from_outside(path_),
               std::string(status->shm_nattch > 0 ? "in use" : "orphan"),
               context.from_stored(text_in(header.version, sizeof header.version)), fill.size_bytes,
               fill.node_bytes + fill.data_bytes, fill.used_percent(), fill.node_bytes, fill.data_bytes,
               fill.free_bytes(), std::int64_t{segments}, static_cast<std::int64_t>(tables),
               static_cast<std::int64_t>(attached.times_by_pid.size()),
               static_cast<std::int64_t>(status->shm_nattch), std::int64_t{status->shm_ctime},
               user_name(status->shm_perm.uid), creator_cell(status->shm_cpid), creator_uptime(*status),
               creator_command(context, *status)});
    rows->end();
    for (const std::string& fault : faults) context.say(fault);
    return faults.empty() ? Status::ok : Status::damaged;
  }

 private:
  static std::vector<Column> columns() {
    return {{"database"},
            {"state", Kind::state},
            {"version"},
            {"size", Kind::bytes},
            {"used", Kind::bytes},
            {"used_percent", Kind::percent},
            {"nodes", Kind::bytes},
            {"records", Kind::bytes},
            {"free", Kind::bytes},
            {"segments", Kind::integer},
            {"tables", Kind::integer},
            {"processes", Kind::integer},
            {"attachments", Kind::integer},
            {"created", Kind::time},
            {"owner"},
            {"creator", Kind::integer},
            {"creator_uptime", Kind::seconds},
            {"creator_command"}};
  }

  static void print_bar(const Context& context, const Fill& fill) {
    const auto share = [&](std::int64_t bytes) {
      return fill.size_bytes > 0 ? static_cast<double>(bytes) / static_cast<double>(fill.size_bytes) : 0;
    };
    BarStyle style;
    style.color = context.color();
    style.boxes = context.encoding().has_boxes();
    context.print(fmt::format("nodes {} records   {:.1f} % used\n\n",
                              memory_bar(share(fill.node_bytes), share(fill.data_bytes), style),
                              fill.used_percent()));
  }

  // A process of another pid namespace has no number here.
  static Cell creator_cell(int pid) { return pid > 0 ? Cell(std::int64_t{pid}) : Cell(); }

  // A process that began after the database is somebody else with the same number.
  static bool is_creator(const Process& process, const shmid_ds& status) {
    return process.started != 0 && process.started <= status.shm_ctime + 1;
  }

  static Cell creator_uptime(const shmid_ds& status) {
    const Process creator = process(status.shm_cpid);
    return is_creator(creator, status) ? Cell(std::int64_t{std::time(nullptr) - creator.started}) : Cell();
  }

  static Cell creator_command(const Context& context, const shmid_ds& status) {
    const Process creator = process(status.shm_cpid);
    if (!is_creator(creator, status)) return {};
    return context.encoding().from_outside(creator.command);
  }

  std::string path_;
};

}  // namespace

std::unique_ptr<Command> make_info() {
  return std::make_unique<Info>();
}

}  // namespace zt
