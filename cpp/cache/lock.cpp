// The two locks of a handle: positions of the cross-process lock page, and the file lock.

#include "cache/file_lock.h"
#include "caches.h"

namespace {

enum Level : int { read_level = 0, write_level = 1 };
constexpr int ordinary_release = -1;

Level level_of(const ZtDb* database) {
  return database->base.mode == 2 ? write_level : read_level;
}

// Only readers lock through the manager: what a writing one sends is kept apart by the manager's own lock.
bool locks_remotely(const ZtDb* database) {
  return database->base.mode == 1 && database->base.isolate;
}

void give_back(ZtDbHandle database, int position) {
  if (locks_remotely(database)) {
    ZtRemoteUnLock(database);
  } else {
    database->lock.Unlock(position, level_of(database), ordinary_release, nullptr);
  }
}

}  // namespace

bool ZtLockPosition(ZtDbHandle database, int p) {
  if (database->base.mode != 1 && database->base.mode != 2) return false;
  if (database->locks.contains(p)) return true;
  if (locks_remotely(database)) {
    // Whatever comes of it, on purpose: who reads without the lock validates all the same.
    ZtRemoteLock(database);
  } else if (!database->lock.Lock(p, level_of(database))) {
    return false;
  }
  database->locks.insert(p);
  return true;
}

void ZtUnLockPosition(ZtDbHandle database, int p) {
  if (database->locks.erase(p) != 0) give_back(database, p);
}

void ZtUnLock(ZtDbHandle database) {
  for (const long long position : database->locks) give_back(database, static_cast<int>(position));
  database->locks.clear();
}

bool ZtLockDb(ZtDbHandle database, int mode) {
  if (mode != ZT_LOCK_SHARED && mode != ZT_LOCK_EXCLUSIVE) return false;
  return database->flock != nullptr && cachet::file_lock::acquire(*database->flock, mode);
}

void ZtUnLockDb(ZtDbHandle database) {
  if (database->flock != nullptr) cachet::file_lock::release(*database->flock);
}
