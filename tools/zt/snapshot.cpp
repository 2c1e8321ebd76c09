#include "zt/snapshot.h"

#include <algorithm>

#include "inspect/walk.h"

namespace zt {

using namespace cachet::inspect;

namespace {

void count_tables(const RawDatabase& database, std::int64_t most_records, Snapshot& snapshot) {
  const Schema schema = read_schema(*database.view());
  for (const Table& table : schema.tables) {
    snapshot.inserts += cachet::load_acquire<int>(&table.record->recordcount);
    snapshot.commits += cachet::load_acquire<int>(&table.record->updateno);
  }
  if (snapshot.inserts > most_records) return;
  snapshot.changes = 0;
  for (const Table& table : schema.tables) *snapshot.changes += count_records(database.view(), table).changes;
}

void count_locks(const Context& context, const BasePath& path, Snapshot& snapshot) {
  try {
    const LockState state = read_lock_state(path);
    if (state.left_alone) context.say_left_alone(path.shown());
    snapshot.rollbacks = static_cast<std::int64_t>(state.page.epoch / 2);
    for (const cachet::SlotWords& words : state.page.slots) {
      snapshot.waiting += words.writers_waiting + words.readers_waiting;
      snapshot.writing += words.writers_holding;
    }
  } catch (const std::runtime_error&) {
    // Without a lock page nobody waits at it.
  }
}

double rate(std::int64_t before, std::int64_t after, double seconds) {
  return static_cast<double>(after >= before ? after - before : after) / seconds;
}

}  // namespace

Snapshot take_snapshot(const Context& context, const std::string& path, std::int64_t most_records) {
  Snapshot snapshot;
  {
    Look look(context, path);
    const Rb_memory header = look->header();
    snapshot.taken = std::chrono::steady_clock::now();
    snapshot.fill = fill_of(header);
    snapshot.version = text_in(header.version, sizeof header.version);
    snapshot.segment_id = look->first_segment_id();
    snapshot.attachments = static_cast<std::int64_t>(look->others());
    count_tables(*look, most_records, snapshot);
  }
  count_locks(context, BasePath::parse(path), snapshot);
  return snapshot;
}

Rates rates_between(const Snapshot& before, const Snapshot& after) {
  const double seconds = std::max(0.001, std::chrono::duration<double>(after.taken - before.taken).count());
  Rates rates;
  rates.inserts = rate(before.inserts, after.inserts, seconds);
  rates.commits = rate(before.commits, after.commits, seconds);
  rates.rollbacks = rate(before.rollbacks, after.rollbacks, seconds);
  if (before.changes && after.changes) rates.changes = rate(*before.changes, *after.changes, seconds);
  return rates;
}

}  // namespace zt
