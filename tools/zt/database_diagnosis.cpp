// What can be wrong with one database, apart from its trees (zt verify looks at those).
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "inspect/database_check.h"
#include "inspect/file_lock.h"
#include "inspect/host.h"
#include "inspect/processes.h"
#include "zt/diagnosis.h"

namespace zt {

using namespace cachet::inspect;

namespace {

constexpr int looks_at_spin_word = 20;
constexpr useconds_t pause_between_looks_us = 5000;

class Examination {
 public:
  Examination(const Context& context, const std::string& path, Diagnoses& diagnoses)
      : context_(context), path_(BasePath::parse(path)), shown_(path_.shown()), diagnoses_(diagnoses) {}

  bool run() {
    examine_path();
    if (!examine_objects()) return false;
    examine_file_lock();
    examine_locks();
    examine_memory();
    return true;
  }

 private:
  void add(std::string check, const char* state, std::string detail, std::string remedy = {}) {
    diagnoses_.push_back({std::move(check), state, std::move(detail), std::move(remedy)});
  }

  void examine_path() {
    const std::size_t length = path_.text().size();
    const bool fits = length <= BasePath::longest_text;
    add("path", fits ? "ok" : "fault", tr("{} of {} bytes", length, BasePath::longest_text),
        fits ? "" : tr("no database can be made here: choose a shorter directory or name"));
    struct stat directory;
    if (stat(path_.directory.c_str(), &directory) != 0 || !S_ISDIR(directory.st_mode)) {
      add("directory", "fault", tr("{} is no directory", path_.directory), "mkdir " + path_.directory);
    }
  }

  // Whether there is a database at all.
  bool examine_objects() {
    const std::vector<Object> objects = objects_of(path_);
    const bool any = std::any_of(objects.begin(), objects.end(),
                                 [](const Object& each) { return each.has_key_file || each.id >= 0; });
    if (!any) return false;
    for (const Object& each : objects) examine(each);
    if (!missing_) add("objects", "ok", tr("every key file has its object"));
    return true;
  }

  void examine(const Object& each) {
    const std::string name =
        fmt::format("{} ({})", kind_name(each.kind), context_.encoding().from_outside(each.key_file));
    if (each.has_key_file && each.file_owner != geteuid() && geteuid() != 0) {
      missing_ = true;
      add("key file", "fault", tr("{} belongs to {}", name, user_name(each.file_owner)),
          tr("a database serves the user that made it: run as that user, or as root"));
    }
    if (each.has_key_file && !S_ISREG(each.file_mode)) {
      missing_ = true;
      add("key file", "fault", tr("{} is no regular file", name), tr("remove it"));
    }
    if (each.kind == ObjectKind::store) {
      examine_store(each);
    } else if (!each.has_key_file || each.id < 0) {
      missing_ = true;
      const std::string lost = each.has_key_file ? tr("its key file is there, the object is not")
                               : each.id >= 0    ? tr("the object is there, its key file is not")
                                                 : tr("it is missing");
      add(kind_name(each.kind), "fault", name + ": " + lost,
          tr("nobody can open the database any more: save what its processes hold, end them, then zt rm {} "
             "and make it anew",
             shown_));
    }
  }

  void examine_store(const Object& each) {
    if (life_of(each.store_pid) != Life::dead) return;  // its owner needs it
    add("rollback store", "warning",
        tr("{} belongs to process {}, which is dead", context_.encoding().from_outside(each.key_file),
           each.store_pid),
        "zt reap " + shown_);
  }

  void examine_file_lock() {
    const auto holder = exclusive_file_lock_holder(path_);
    if (!holder) return add("file lock", "ok", tr("nobody keeps others out"));
    add("file lock", "warning",
        tr("process {} ({}) holds it exclusively: every opening waits", *holder, process(*holder).command),
        tr("it has to call ZtUnLockDb, or to end"));
  }

  void examine_locks() {
    LockState state{};
    try {
      state = read_lock_state(path_);
      if (state.left_alone) context_.say_left_alone(shown_);
    } catch (const std::runtime_error& error) {
      return add("lock page", "fault", error.what(), tr("end all its processes, then zt rm {}", shown_));
    }
    Findings findings;
    check_locks(state, findings);
    for (const Finding& each : findings.list()) {
      add("locks", each.severity == Severity::note ? "warning" : "fault", each.where + ": " + each.what,
          each.severity == Severity::leftover ? "zt reap " + shown_ : tr("open with dbsesion_mode 1"));
    }
    if (!cachet::is_recoverable(state.page)) {
      add("lock page", "warning", tr("it was made without what recovery needs"),
          tr("make the database with this library"));
    }
    if (findings.list().empty()) add("locks", "ok", tr("nothing is left of the dead"));
    examine_spin_words();
  }

  // Held across many looks: whoever holds it is dead or stopped.
  void examine_spin_words() {
    for (int slot = 0; slot < cachet::lock_slots; ++slot) {
      int held = 0;
      LockState state{};
      for (int i = 0; i < looks_at_spin_word; ++i) {
        state = read_lock_state(path_);
        if (state.page.slots[slot].spin == 0) break;
        ++held;
        usleep(pause_between_looks_us);
      }
      if (held < looks_at_spin_word) continue;
      const int holder = state.page.sections[slot].record.pid;
      const bool dead = life_of(holder) == Life::dead;
      add("spin lock", "fault",
          dead ? tr("slot {} has been taken all the while, last by process {}, which is dead", slot, holder)
               : tr("slot {} has been taken all the while, last by process {}, which lives", slot, holder),
          dead ? "zt reap " + shown_ : tr("let it go on: kill -CONT {}", holder));
    }
  }

  void examine_memory() {
    if (segment_of_file(path_.segment_file(0)) < 0) return;  // that was said
    Look look(context_, shown_);
    const Schema schema = read_schema(*look->view());
    Findings findings;
    check_frame(*look, schema, findings);
    for (const Finding& each : findings.list()) {
      add(each.where, "fault", each.what, tr("zt verify {} shows more", shown_));
    }
    try {
      Findings marks;
      check_marks(look->view(), schema, read_lock_state(path_), marks);
      for (const Finding& each : marks.list()) {
        add("mark", "fault", context_.from_stored(each.where) + ": " + each.what,
            tr("readers wait for it: the handle that wrote has to commit or end; if it is dead: zt reap {}",
               shown_));
      }
    } catch (const std::runtime_error&) {
      // Without a lock page nobody can tell; that was said.
    }
    const Fill fill = fill_of(look->header());
    const bool room = fill.free_bytes() >= least_room_of_an_insert;
    add("room", room ? "ok" : "fault", tr("{} bytes are free", fill.free_bytes()),
        room ? "" : tr("nothing can be inserted any more: ZtResetDb, or a larger database"));
  }

  const Context& context_;
  BasePath path_;
  std::string shown_;
  Diagnoses& diagnoses_;
  bool missing_ = false;
};

}  // namespace

bool examine_database(const Context& context, const std::string& path, Diagnoses& diagnoses) {
  return Examination(context, path, diagnoses).run();
}

}  // namespace zt
