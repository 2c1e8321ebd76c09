// Reading a table without a lock. A read-only handle remembers the table's counter while no writer has it
// marked, reads, and keeps what it read only if counter and mark are as they were; otherwise it waits for the
// writers and reads again. Other handles read once: their callers hold a lock.
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

// Runs `attempt` until a run of it overlapped no change that `marks` shows, and returns its result. `marks()`
// gives the ChangeMark to watch.
template <class Marks, class Attempt>
auto read_unchanged(ZtDbHandle database, const Marks& marks, const Attempt& attempt) {
  WriterWait wait_for_writers(database);
  for (;;) {
    const ChangeMark before = marks();
    if (!before.duty) {
      const auto result = attempt();
      std::atomic_thread_fence(std::memory_order_acquire);
      if (marks() == before) return result;
    }
    wait_for_writers();
  }
}

// The same for what lies in a table, on any handle.
template <class Attempt>
auto read_table(ZtDbHandle database, int tableid, const Attempt& attempt) {
  if (database->base.mode != ZT_MODE_READ_ONLY) return attempt();
  return read_unchanged(
      database, [=] { return mark_of(catalog_of(database, tableid)); }, attempt);
}

// Ends a public call of a read-only handle: the position lock that a wait may have taken is given back.
inline bool end_read(ZtDbHandle database, bool result) {
  if (database->base.mode == ZT_MODE_READ_ONLY) ZtUnLock(database);
  return result;
}

}  // namespace cachet

#endif
