// zt reap: clears what dead processes left, through the library. It judges only where it can see everybody: a process
// of another pid namespace looks dead from here, and its transaction would be rolled back while it writes.
#include <algorithm>

#include "inspect/host.h"
#include "zt/commands.h"
#include "zt/database.h"
#include "zt/sessions.h"

namespace zt {
namespace {

using namespace cachet::inspect;

// What a dead process left: a session, unfinished work, a store.
struct Remains {
  std::string kind;
  int pid = 0;
  int tid = 0;
  std::string what;
  std::int64_t since = 0;
  bool operator==(const Remains&) const = default;
};

std::vector<Remains> remains_of(const BasePath& path, const LockState& state) {
  std::vector<Remains> all;
  for (const Session& session : state.sessions) {
    if (life_of(session.pid) == Life::dead) {
      all.push_back({"session", session.pid, session.tid, state_name(session.type), session.since});
    }
  }
  const int worker = static_cast<int>(state.page.work.owner);
  if (is_recoverable(state.page) && state.page.work.kind != 0 && life_of(worker) == Life::dead) {
    all.push_back({"work", worker, 0, work_name(state.page.work.kind), 0});
  }
  for (const Object& each : objects_of(path)) {
    if (each.kind == ObjectKind::store && each.store_pid > 0 && life_of(each.store_pid) == Life::dead) {
      all.push_back({"store", each.store_pid, 0, each.key_file, 0});
    }
  }
  return all;
}

class Reap final : public Command {
 public:
  void declare(CLI::App& app) override {
    declare_database(app, path_);
    app.add_flag("--dry-run", dry_run_, "Only show what would be cleared");
  }

  Status run(Context& context) override {
    refuse_to_guess(context);
    const BasePath path = BasePath::parse(path_);
    const std::vector<Remains> before = remains_of(path, read_lock_state(path));
    if (before.empty()) {
      print(context, before, {}, "");
      context.print(tr("{}: nothing is left of any dead process", path_) + "\n");
      return Status::ok;
    }
    if (dry_run_) {
      print(context, before, {}, "would be cleared");
      return Status::ok;
    }
    const bool cleared = clear(context);
    const std::vector<Remains> after = remains_of(path, read_lock_state(path));
    print(context, before, after, "cleared");
    return cleared ? Status::ok : say_why(context);
  }

 private:
  void refuse_to_guess(const Context& context) {
    Look look(context, path_);
    const int segment_id = look->first_segment_id();
    look.close();
    const Attached attached = attached_to(segment_id);
    if (attached.unseen == 0 && attached.renumbered == 0) return;
    throw Refused(
        tr("{} of the processes attached to {} belong to another user or another pid namespace and "
           "cannot be judged from "
           "here: run zt as root, in the namespace of all its processes",
           attached.unseen + attached.renumbered, path_));
  }

  bool clear(const Context& context) {
    const Database database(context, path_, Access::write);
    return ZtClearDBWildTrans(database);
  }

  static void print(const Context& context, const std::vector<Remains>& before,
                    const std::vector<Remains>& after, const std::string& done) {
    const auto rows = context.rows({{"pid", Kind::integer},
                                    {"thread", Kind::integer},
                                    {"left"},
                                    {"what"},
                                    {"since", Kind::time},
                                    {"result", Kind::state}});
    for (const Remains& each : before) {
      const bool remains = std::find(after.begin(), after.end(), each) != after.end();
      rows->row({std::int64_t{each.pid}, each.tid > 0 ? Cell(std::int64_t{each.tid}) : Cell(), each.kind,
                 context.encoding().from_outside(each.what), each.since > 0 ? Cell(each.since) : Cell(),
                 remains ? "remains" : done});
    }
    rows->end();
  }

  Status say_why(const Context& context) const {
    context.say(tr(
        "{}: something dead is still there. Either the dead writer had no shared store, so that its changes "
        "cannot be taken back, or a load of the whole database was cut off: empty it with ZtResetDb and "
        "clear "
        "again, or end all its processes and make it anew",
        path_));
    return Status::failure;
  }

  std::string path_;
  bool dry_run_ = false;
};

}  // namespace

std::unique_ptr<Command> make_reap() {
  return std::make_unique<Reap>();
}

}  // namespace zt
