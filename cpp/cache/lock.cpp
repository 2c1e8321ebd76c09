// The two locks of a handle: positions of the cross-process lock page, and the file lock.
#include <utility>

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

// Every transaction takes a position and gives it back: a node of the set goes with it both times.
void add_position(ZtDbHandle database, long long position) {
  if (database->spare_lock.empty()) {
    database->locks.insert(position);
  } else {
    database->spare_lock.value() = position;
    database->locks.insert(std::move(database->spare_lock));
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
  add_position(database, p);
  return true;
}

void ZtUnLockPosition(ZtDbHandle database, int p) {
  if (database->locks.erase(p) != 0) give_back(database, p);
}

void ZtUnLock(ZtDbHandle database) {
  while (!database->locks.empty()) {
    database->spare_lock = database->locks.extract(database->locks.begin());
    give_back(database, static_cast<int>(database->spare_lock.value()));
  }
}

bool ZtLockDb(ZtDbHandle database, int mode) {
  if (mode != ZT_LOCK_SHARED && mode != ZT_LOCK_EXCLUSIVE) return false;
  return database->flock != nullptr && cachet::file_lock::acquire(*database->flock, mode);
}

void ZtUnLockDb(ZtDbHandle database) {
  if (database->flock != nullptr) cachet::file_lock::release(*database->flock);
}
