// zt ls: every database of this host, found by its segments' headers.
#include "inspect/host.h"
#include "inspect/processes.h"
#include "zt/commands.h"

namespace zt {
namespace {

using namespace cachet::inspect;

const char* state_of(const FoundDatabase& database) {
  if (!database.sound) return "damaged";
  if (!database.has_key_file) return "no key file";
  return database.attachments > 0 ? "in use" : "orphan";
}

class Ls final : public Command {
 public:
  void declare(CLI::App& app) override {
    app.add_flag("--orphans", orphans_, "Only those that no process is attached to");
  }

  Status run(Context& context) override {
    std::vector<std::string> left_alone;
    const std::vector<FoundDatabase> databases = databases_of_host(&left_alone);
    const auto rows = context.rows({{"database"},
                                    {"state", Kind::state},
                                    {"processes", Kind::integer},
                                    {"attachments", Kind::integer},
                                    {"size", Kind::bytes},
                                    {"used", Kind::percent},
                                    {"created", Kind::time},
                                    {"creator", Kind::integer},
                                    {"owner"},
                                    {"version"}});
    for (const FoundDatabase& each : databases) {
      if (!orphans_ || each.attachments == 0) rows->row(row(context, each));
    }
    rows->end();
    for (const std::string& path : left_alone) context.say_left_alone(context.from_stored(path));
    return Status::ok;
  }

 private:
  static Row row(const Context& context, const FoundDatabase& each) {
    const Attached attached = attached_to(each.segment_id);
    Cell processes;
    if (attached.unseen == 0) processes = static_cast<std::int64_t>(attached.times_by_pid.size());
    Cell creator;
    if (each.creator_pid > 0) creator = std::int64_t{each.creator_pid};
    return {context.encoding().from_outside(each.path.shown()),
            std::string(state_of(each)),
            processes,
            static_cast<std::int64_t>(each.attachments),
            each.fill.size_bytes,
            each.fill.used_percent(),
            std::int64_t{each.created},
            creator,
            user_name(each.owner),
            context.from_stored(each.version)};
  }

  bool orphans_ = false;
};

}  // namespace

std::unique_ptr<Command> make_ls() {
  return std::make_unique<Ls>();
}

}  // namespace zt
