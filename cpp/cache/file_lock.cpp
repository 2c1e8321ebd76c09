#include "cache/file_lock.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace cachet::file_lock {

namespace {

constexpr long locked_byte = 1;
constexpr int without_limit = -1;

using FileId = std::pair<dev_t, ino_t>;

struct LockFile {
  std::map<const RWLock*, int> levels;           // of the handles that hold one
  std::vector<std::unique_ptr<RWLock>> retired;  // their descriptors stay open while somebody holds a level
  int held = unlocked;                           // what the system gave this process
  unsigned changes = 0;                          // raised with every change of `held`

  int highest_but(const RWLock* lock) const {
    int level = unlocked;
    for (const auto& [holder, its_level] : levels) {
      if (holder != lock) level = std::max(level, its_level);
    }
    return level;
  }
};

struct Registry {
  std::mutex mutex;
  std::map<FileId, LockFile> files;
  pid_t owner = getpid();
  const Registry* inherited = nullptr;  // the parent's; kept in sight of leak checkers, and never touched
};

// Never destroyed: a program may delete its handles from the destructors of its own globals. A forked child starts with
// a new one: it inherits none of the locks, and maybe a mutex that some thread of the parent held.
Registry& registry() {
  static std::atomic<Registry*> current{new Registry};
  Registry* all = current.load();
  if (all->owner != getpid()) {
    auto* const fresh = new Registry;
    fresh->inherited = all;
    if (current.compare_exchange_strong(all, fresh)) return *fresh;
    delete fresh;
  }
  return *all;
}

LockFile& file_of(Registry& all, const RWLock& lock) {
  struct stat status = {};
  fstat(lock.m_hfile, &status);
  return all.files[{status.st_dev, status.st_ino}];
}

bool lock_resuming(RWLock& lock, int level) {
  while (!lock.lock(level, locked_byte, without_limit)) {
    if (errno != EINTR) return false;
  }
  return true;
}

// Lowers what the process holds to what its handles still want. Never waits.
void lower(LockFile& file, RWLock& through) {
  const int wanted = file.highest_but(nullptr);
  if (wanted < file.held) {
    if (wanted == unlocked) {
      through.unlock(locked_byte);
    } else {
      lock_resuming(through, wanted);
    }
    file.held = wanted;
  }
  ++file.changes;
}

}  // namespace

bool acquire(RWLock& lock, int level) {
  Registry& all = registry();
  std::unique_lock guard(all.mutex);
  for (;;) {
    LockFile& file = file_of(all, lock);
    const int wanted = std::max(level, file.highest_but(&lock));
    if (wanted <= file.held) {
      file.levels[&lock] = level;
      lower(file, lock);
      return true;
    }
    // Waiting for other processes must not hold up this process's other threads. If one of them changed the
    // level meanwhile, it may have dropped what was granted here: start again.
    const unsigned changes_before = file.changes;
    guard.unlock();
    const bool granted = lock_resuming(lock, wanted);
    guard.lock();
    if (!granted) return false;
    if (file.changes != changes_before) continue;
    file.held = wanted;
    ++file.changes;
    file.levels[&lock] = level;
    return true;
  }
}

void release(RWLock& lock) {
  Registry& all = registry();
  const std::lock_guard guard(all.mutex);
  LockFile& file = file_of(all, lock);
  file.levels.erase(&lock);
  lower(file, lock);
}

void retire(RWLock* lock) {
  if (lock == nullptr) return;
  release(*lock);
  Registry& all = registry();
  const std::lock_guard guard(all.mutex);
  LockFile& file = file_of(all, *lock);
  file.retired.emplace_back(lock);
  if (file.levels.empty()) {
    file.retired.clear();
    ++file.changes;
  }
}

}  // namespace cachet::file_lock
