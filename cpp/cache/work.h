// Work on shared structures that a survivor can finish: an insert's links, an unlinking, a putting back, a commit, a
// reset. The lock page has room for one piece of it; whoever claims it gets a stage log with it.
//
// It is claimed by the one writer. Where it is in the hands of another live process (one that keeps its writers apart by
// the file lock), a writer goes on without it; what a dead process left there is finished first.
#ifndef CACHET_CPP_CACHE_WORK_H
#define CACHET_CPP_CACHE_WORK_H

#include "caches.h"
#include "lock_page.h"

namespace cachet {

enum WorkKind : std::int32_t {
  work_none = 0,
  work_insert = 1,  // the links of a stored record: one step per index, the last one for the record-id tree
  work_lists = 2,   // one change of a key's lists
  work_commit = 3,  // the marks of a transaction, by its store
  work_reset = 4,
  work_load = 5
};

class Work {
 public:
  Work(ZtDbHandle database, WorkKind kind, int tableid = 0, std::int64_t record_offset = 0);
  ~Work();
  Work(const Work&) = delete;
  Work& operator=(const Work&) = delete;

 private:
  ZtDbHandle database_;
  WorkRecord* record_ = nullptr;  // null when it was not claimed
};

// The kind of work that a dead process left in the page; none when its owner lives or there is none. A claim without
// work is dropped.
WorkKind work_of_dead(const ZtDb* database);

// Finishes it; only by a read-write handle that keeps every other writer out. False for a load, which nobody can
// finish. Repeatable.
bool finish_work_of_dead(ZtDbHandle database);

// The same for a writer that is about to begin its own work, if no other writer is inside. Of an insert that no
// transaction covered the table's mark goes too.
void settle_dead_work(ZtDbHandle database);

// One cleaner at a time; a cleaner that dies leaves its place to the next one.
class CleanerLock {
 public:
  explicit CleanerLock(LockPage* page);
  ~CleanerLock();
  CleanerLock(const CleanerLock&) = delete;
  CleanerLock& operator=(const CleanerLock&) = delete;

 private:
  LockPage* page_;
};

}  // namespace cachet

#endif
