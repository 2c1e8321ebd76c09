// zt locks: who holds the locks of a database, and who waits for whom.
#include <fmt/format.h>

#include "inspect/file_lock.h"
#include "lock_page.h"
#include "zt/commands.h"
#include "zt/sessions.h"

namespace zt {
namespace {

using namespace cachet::inspect;

// One holder or waiter of one lock.
struct Line {
  std::string lock;
  Participant who;
  std::string state;
  bool holds = false;
};

bool is_writer(const Line& line) {
  return line.state == state_name(INWRITE) || line.state == "holds exclusively";
}

class Locks final : public Command {
 public:
  void declare(CLI::App& app) override {
    declare_database(app, path_);
    app.add_flag("--tree", tree_, "Show those who wait under those whom they wait for");
  }

  Status run(Context& context) override {
    Look look(context, path_);
    const int segment_id = look->first_segment_id();
    look.close();
    const BasePath path = BasePath::parse(path_);
    const Participants all = participants_of(context, path, segment_id);
    collect(all, path);
    if (tree_) {
      print_tree(context, all.unseen == 0);
    } else {
      print_list(context, all.unseen == 0);
    }
    if (all.locks) say_untracked(context, *all.locks);
    return Status::ok;
  }

 private:
  void collect(const Participants& all, const BasePath& path) {
    for (const Participant& each : all.list) {
      if (!each.session) continue;
      lines_.push_back({fmt::format("slot {}", each.session->slot), each, state_name(each.session->type),
                        cachet::inspect::holds(each.session->type)});
    }
    for (const FileLock& lock : file_locks_of(path)) {
      const char* const kind = lock.exclusive ? "exclusively" : "shared";
      Participant who;
      who.process = process(lock.pid);
      who.life = life_of(lock.pid);
      who.attachments = 1;
      lines_.push_back(
          {"file", who, fmt::format("{} {}", lock.waits ? "waits" : "holds", kind), !lock.waits});
    }
  }

  // The processes that keep this one waiting: those that write, or hold exclusively; else whoever holds.
  std::string blockers_of(const Line& waiter) const {
    std::string writers, others;
    for (const Line& each : lines_) {
      if (!each.holds || each.lock != waiter.lock) continue;
      std::string& list = is_writer(each) ? writers : others;
      list += (list.empty() ? "" : ",") + std::to_string(each.who.process.pid);
    }
    return waiter.holds ? "" : !writers.empty() ? writers : waiter.lock == "file" ? others : "";
  }

  static Cell age_of(const Line& line) {
    return line.who.session ? Cell(age_seconds(*line.who.session)) : Cell();
  }

  void print_list(const Context& context, bool all_seen) const {
    const auto rows = context.rows({{"lock"},
                                    {"state", Kind::state},
                                    {"pid", Kind::integer},
                                    {"thread", Kind::integer},
                                    {"age", Kind::seconds},
                                    {"process", Kind::state},
                                    {"blocked_by"},
                                    {"command"}});
    for (const Line& each : lines_) {
      rows->row({each.lock, each.state, std::int64_t{each.who.process.pid},
                 each.who.session ? Cell(std::int64_t{each.who.session->tid}) : Cell(), age_of(each),
                 life_text(each.who, all_seen), blockers_of(each),
                 context.encoding().from_outside(each.who.process.command)});
    }
    rows->end();
  }

  // Each lock, under it who holds it, under the last holder who waits.
  void print_tree(const Context& context, bool all_seen) const {
    const auto rows = context.rows({{"tree"}, {"age", Kind::seconds}, {"process", Kind::state}, {"command"}});
    const bool boxes = context.encoding().has_boxes();
    for (const char* const lock : {"slot 0", "slot 1", "file"}) {
      std::vector<const Line*> holders, waiters;
      for (const Line& each : lines_) {
        if (each.lock == lock) (each.holds ? holders : waiters).push_back(&each);
      }
      if (holders.empty() && waiters.empty()) continue;
      rows->row({std::string(lock), Cell(), Cell(), Cell()});
      const auto branch = [&](const Line& line, const std::string& indent, bool last) {
        const std::string sign = boxes ? (last ? "└─ " : "├─ ") : (last ? "`- " : "|- ");
        rows->row({fmt::format("{}{}{} {}", indent, sign, line.who.process.pid, line.state), age_of(line),
                   life_text(line.who, all_seen), context.encoding().from_outside(line.who.process.command)});
      };
      for (const Line* each : holders) branch(*each, "", each == holders.back());
      for (const Line* each : waiters) branch(*each, holders.empty() ? "" : "   ", each == waiters.back());
    }
    rows->end();
  }

  static void say_untracked(const Context& context, const LockState& state) {
    for (int slot = 0; slot < cachet::lock_slots; ++slot) {
      const cachet::SlotWords& words = state.page.slots[slot];
      int counted[4] = {words.readers_waiting, words.readers_holding, words.writers_waiting,
                        words.writers_holding};
      for (const Session& session : state.sessions) {
        if (session.slot == slot) --counted[session.type];
      }
      for (int type = 0; type < 4; ++type) {
        if (counted[type] <= 0) continue;
        context.say(tr("slot {}: {} of those counted under \"{}\" have no session: they track none", slot,
                       counted[type], state_name(static_cast<SessionType>(type))));
      }
    }
  }

  std::string path_;
  bool tree_ = false;
  std::vector<Line> lines_;
};

}  // namespace

std::unique_ptr<Command> make_locks() {
  return std::make_unique<Locks>();
}

}  // namespace zt
