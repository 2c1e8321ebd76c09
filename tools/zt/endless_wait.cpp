#include "zt/endless_wait.h"

#include <optional>

#include "inspect/lock_state.h"
#include "inspect/processes.h"
#include "shared_word.h"

namespace zt {

using namespace cachet::inspect;

namespace {

constexpr int writers_slot = 0;

[[noreturn]] void refuse(const Database& database, const std::string& what) {
  throw Damaged(tr("{}, and everybody waits for it; to clear: zt reap {}", what, database.shown_path()));
}

void refuse_dead_writer(const Database& database, const LockState& state) {
  for (const Session& each : state.sessions) {
    if (each.type != INWRITE || each.slot != writers_slot || life_of(each.pid) != Life::dead) continue;
    refuse(database, tr("process {} died while it wrote to {}", each.pid, database.shown_path()));
  }
}

void refuse_cut_off_load(const Database& database, const LockState& state) {
  const int owner = static_cast<int>(state.page.work.owner);
  const bool under_way = cachet::is_recoverable(state.page) && state.page.epoch % 2 != 0;
  if (under_way && (owner == 0 || life_of(owner) == Life::dead))
    refuse(database, tr("a reset or a load of {} was cut off", database.shown_path()));
}

// None where processes are attached that cannot be seen from here, or where there is no lock page.
std::optional<LockState> judgeable_state(const RawDatabase& database) {
  const Attached attached = attached_to(database.first_segment_id());
  if (attached.unseen != 0 || attached.renumbered != 0) return std::nullopt;
  try {
    return read_lock_state(database.path());
  } catch (const NotFound&) {
    return std::nullopt;
  }
}

}  // namespace

void refuse_endless_read(const Context& context, const Database& database, int table) {
  Look look(context, database.path().shown());
  const char* const duty = &look->view()->table[table].duty;
  const bool marked = cachet::load_acquire<char>(duty) != 0;
  const auto state = judgeable_state(*look);
  if (!state) return;
  refuse_dead_writer(database, *state);
  refuse_cut_off_load(database, *state);
  // A mark that a living writer took off meanwhile was his.
  if (marked && state->page.slots[writers_slot].writers_holding == 0 &&
      cachet::load_acquire<char>(duty) != 0) {
    refuse(database, tr("a table of {} is marked as being changed, although nobody holds the writers' lock",
                        database.shown_path()));
  }
}

void refuse_endless_write(const Context& context, const Database& database) {
  Look look(context, database.path().shown());
  if (const auto state = judgeable_state(*look)) refuse_dead_writer(database, *state);
}

}  // namespace zt
