// Reading without a lock. A read-only handle remembers the counter of the table (or record) while no writer
// has it marked, and the database's epoch, which a rollback raises as it takes counters back. It reads, and
// keeps what it read only if all three are as they were; otherwise it waits for the writers and reads again.
// Other handles read once: their callers hold a lock.
#ifndef CACHET_CPP_CACHE_SNAPSHOT_H
#define CACHET_CPP_CACHE_SNAPSHOT_H

#include <atomic>

#include "cache/record.h"

namespace cachet {

// Waits for writers: takes the read lock on position 0, which they hold for a whole transaction. A reader
// that has it already, or cannot take it, backs off instead, 1 ms at most at a time.
class WriterWait {
 public:
  explicit WriterWait(ZtDbHandle database) : database_(database) {}
  void operator()();

 private:
  ZtDbHandle database_;
  long pause_ns_ = 0;
};

// Runs `attempt` once, unless what `watched` marks (a table's catalog record, or a record) is under change. True when
// it said so and overlapped no change. The epoch is read first and compared last: a rollback raises it after the restored
// counters and before the marks clear, so a clear mark behind a rollback always shows the new epoch.
template <class Watched, class Attempt>
[[gnu::always_inline]] inline bool runs_unchanged(const ZtDb* database, const Watched* watched,
                                                  const Attempt& attempt) {
  const std::uint64_t* const epoch_word = database->lock.EpochWord();
  const auto epoch = load_acquire<std::uint64_t>(epoch_word);
  const ChangeMark before = mark_of(watched);
  if (before.duty || epoch % 2 != 0) return false;
  if (!attempt()) return false;
  std::atomic_thread_fence(std::memory_order_acquire);
  return mark_of(watched) == before && load_acquire<std::uint64_t>(epoch_word) == epoch;
}

// Runs `attempt` until a run of it overlapped no change, and returns its result.
template <class Watched, class Attempt>
auto read_unchanged(ZtDbHandle database, const Watched* watched, const Attempt& attempt) {
  WriterWait wait_for_writers(database);
  for (;;) {
    decltype(attempt()) result;
    const auto look = [&] {
      result = attempt();
      return true;
    };
    if (runs_unchanged(database, watched, look)) return result;
    wait_for_writers();
  }
}

// The same for what lies in a table, on any handle.
template <class Attempt>
auto read_table(ZtDbHandle database, int tableid, const Attempt& attempt) {
  if (database->base.mode != ZT_MODE_READ_ONLY) return attempt();
  return read_unchanged(database, catalog_of(database, tableid), attempt);
}

// Ends a public call of a read-only handle: the position lock that a wait may have taken is given back.
inline bool end_read(ZtDbHandle database, bool result) {
  if (database->base.mode == ZT_MODE_READ_ONLY && !database->locks.empty()) ZtUnLock(database);
  return result;
}

}  // namespace cachet

#endif
