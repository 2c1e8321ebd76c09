// RWLock: a POSIX record lock on one byte of a lock file.
//
// The lock belongs to the process: any of its threads holds it, and closing any descriptor of the file drops
// it. Whoever opens several RWLocks on one file in one process must mind that (the database handles do).
#ifndef CACHET_RWLOCK_H
#define CACHET_RWLOCK_H

#include "cachet.h"

class CACHET_API RWLock {
 public:
  // Opens the lock file, making it (mode 0666) if it is missing. m_hfile is -1 when that failed.
  explicit RWLock(char* name);
  ~RWLock();
  RWLock(const RWLock&) = delete;
  RWLock& operator=(const RWLock&) = delete;

  // Locks byte `offset`, shared for level 1, exclusive for level 2, and waits for it. `timeout` is not used.
  // False for another level, or when the system refuses; an interrupted wait is such a refusal (errno EINTR).
  bool lock(int level, long offset, int timeout);
  // Unlocks byte `offset`; always true.
  bool unlock(long offset);

  int m_hfile;
};

#endif
