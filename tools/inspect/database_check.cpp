#include "inspect/database_check.h"

#include <unistd.h>

#include "inspect/processes.h"
#include "inspect/table_check.h"
#include "inspect/translate.h"
#include "inspect/walk.h"
#include "rb_fronts.h"

namespace cachet::inspect {

namespace {

constexpr int most_passes = 6;
constexpr useconds_t first_pause_us = 3000;

// What a writer moves; equal before and after a pass, and nothing was inserted, rolled back or reset meanwhile.
struct Movement {
  std::int64_t node_front, data_front;
  std::uint64_t epoch;
  bool operator==(const Movement&) const = default;
};

Movement movement_of(const RawDatabase& database, const std::optional<LockState>& locks) {
  const Rb_memory header = database.header();
  return {header.nodeoffset, header.dataoffset, locks ? locks->page.epoch : 0};
}

std::optional<LockState> lock_state_of(const BasePath& path, Findings& findings, bool& left_alone) {
  try {
    LockState state = read_lock_state(path);
    left_alone = left_alone || state.left_alone;
    return state;
  } catch (const std::runtime_error& error) {
    findings.damage("lock page", error.what());
    return std::nullopt;
  }
}

bool has_work_of_dead(const std::optional<LockState>& locks) {
  return locks && is_recoverable(locks->page) && locks->page.work.kind != 0 &&
         life_of(static_cast<int>(locks->page.work.owner)) == Life::dead;
}

Findings one_pass(const RawDatabase& database, const std::optional<LockState>& locks) {
  Findings findings, of_tables;
  const Schema schema = read_schema(*database.view());
  check_frame(database, schema, findings);
  for (const Table& table : schema.tables) check_table(database.view(), table, of_tables);
  if (!has_work_of_dead(locks)) {
    findings.append(of_tables);
  } else {
    // A change that a dead process has begun: clearing finishes it.
    for (const Finding& each : of_tables.list()) findings.leftover(each.where, each.what);
  }
  if (locks) {
    check_locks(*locks, findings);
    check_marks(database.view(), schema, *locks, findings);
  }
  return findings;
}

void check_slot(const LockState& state, int slot, Findings& findings) {
  const SlotWords& words = state.page.slots[slot];
  const std::string where = "lock page, slot " + std::to_string(slot);
  for (const std::int32_t count :
       {words.writers_holding, words.writers_waiting, words.readers_holding, words.readers_waiting}) {
    if (count < 0) findings.damage(where, tr("a count is below 0"));
  }
  const SectionRecord& section = state.page.sections[slot].record;
  if (words.spin != 0 && is_recoverable(state.page) && life_of(section.pid) == Life::dead) {
    findings.leftover(where, tr("the spin word is taken, last by process {}, which is dead", section.pid));
  }
  int writers = 0;
  for (const Session& session : state.sessions) writers += session.slot == slot && session.type == INWRITE;
  if (words.writers_holding > writers) {
    findings.note(where, tr("a writer holds it that is not in the session table: it tracks no sessions"));
  }
}

}  // namespace

void check_frame(const RawDatabase& database, const Schema& schema, Findings& findings) {
  for (const std::string& fault : database.faults()) findings.damage("segments", fault);
  for (const std::string& fault : schema.faults) findings.damage("catalog", fault);
  const Rb_memory header = database.header();
  const auto wrong = [&](bool is_wrong, const std::string& what) {
    if (is_wrong) findings.damage("header", what);
  };
  wrong(text_in(header.name, sizeof header.name).size() == sizeof header.name, tr("the name has no end"));
  wrong(header.tablecount > 0 && header.memoryheadsize != schema.catalog_bytes,
        tr("the size of the catalog is not that of its records"));
  wrong(header.nodeoffset < header.memoryheadsize ||
            header.nodeoffset < static_cast<std::int64_t>(sizeof header),
        tr("the front of the nodes lies inside the catalog"));
  wrong(header.nodeoffset > header.dataoffset, tr("the fronts have passed one another"));
  wrong(header.dataoffset > header.size, tr("the front of the records lies beyond the end"));
  wrong(header.rb_count != schema.heads, tr("the count of trees is not that of tables and indexes"));
}

void check_locks(const LockState& state, Findings& findings) {
  for (int slot = 0; slot < lock_slots; ++slot) check_slot(state, slot, findings);
  for (const Session& session : state.sessions) {
    if (life_of(session.pid) != Life::dead) continue;
    findings.leftover("sessions", tr("process {}, thread {} is dead and still {} in slot {}", session.pid,
                                     session.tid, state_name(session.type), session.slot));
  }
  if (!is_recoverable(state.page)) return;
  const WorkRecord& work = state.page.work;
  const int owner = static_cast<int>(work.owner);
  const bool owner_dead = work.owner == 0 || life_of(owner) == Life::dead;
  if (work.kind != 0 && owner_dead) {
    findings.leftover("lock page, work",
                      tr("{} of process {}, which is dead, is not finished", work_name(work.kind), owner));
  }
  if (state.page.epoch % 2 != 0 && owner_dead) {
    findings.leftover("lock page, epoch", tr("a reset or a load was never finished"));
  }
}

void check_marks(const Rb_base* view, const Schema& schema, const LockState& state, Findings& findings) {
  if (state.page.slots[0].writers_holding > 0) return;
  for (const Table& table : schema.tables) {
    if (load_acquire<char>(&table.record->duty) != 0) {
      findings.leftover("table " + table.name,
                        tr("it is marked as being changed, and nobody holds the writers' lock"));
    }
    const std::int64_t marked = count_records(view, table).marked;
    if (marked > 0) {
      findings.leftover("table " + table.name,
                        tr("records are marked as being changed, and nobody holds the writers' lock"));
    }
  }
}

Verdict verify(const BasePath& path) {
  RawDatabase database(path);
  Verdict verdict;
  for (useconds_t pause_us = first_pause_us; verdict.passes < most_passes; pause_us *= 2) {
    if (verdict.passes > 0) usleep(pause_us);
    Findings missing;
    const auto locks = lock_state_of(path, missing, verdict.left_alone);
    const Movement before = movement_of(database, locks);
    Findings found = one_pass(database, locks);
    found.append(missing);
    verdict.moving = movement_of(database, locks) != before;
    if (verdict.passes > 0) found.keep_common(verdict.findings);
    verdict.findings = std::move(found);
    ++verdict.passes;
    const bool wrong = verdict.findings.has(Severity::damage) || verdict.findings.has(Severity::leftover);
    if (database.others() == 0 || !wrong) break;
  }
  verdict.left_alone = database.close() || verdict.left_alone;
  return verdict;
}

}  // namespace cachet::inspect
