// The levels at which the handles of this process hold the file locks of its databases.
//
// A POSIX record lock belongs to the process, and closing any descriptor of the file drops it. So the process
// holds the highest level that any of its handles wants, and a descriptor of a file that some handle still
// locks is kept open until no handle does.
#ifndef CACHET_CPP_CACHE_FILE_LOCK_H
#define CACHET_CPP_CACHE_FILE_LOCK_H

#include "rwlock.h"

namespace cachet::file_lock {

enum : int { unlocked = 0, shared = 1, exclusive = 2 };

// Gives the handle that owns `lock` this level, waiting for other processes. False when the system refuses.
bool acquire(RWLock& lock, int level);
// Takes the handle's level back.
void release(RWLock& lock);
// Releases, and destroys the lock as soon as that drops no other handle's level.
void retire(RWLock* lock);

}  // namespace cachet::file_lock

#endif
