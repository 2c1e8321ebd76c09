// Cspinlock: a spin lock on a 32-bit word in shared memory, 0 = free, 1 = taken.
//
// The word carries no owner: a lock held by a process that died stays held. A contender changes the word only
// from 0 to 1, so one that dies while it tries leaves nothing behind.
#ifndef CACHET_SPINLOCK_H
#define CACHET_SPINLOCK_H

#include <cstdint>

#include "cachet.h"

class CACHET_API Cspinlock {
 public:
  Cspinlock();
  virtual ~Cspinlock();

  // Binds the lock to the word at `p`, 4-byte aligned, which the caller keeps mapped.
  void Set(char* p);
  // Waits without limit until the word is this caller's. False only when no word is bound.
  bool Lock();
  // The same within a microsecond or so, without giving the processor away. False when the word stayed taken, or none
  // is bound.
  bool TryLock();
  // Gives the word back; only by the holder.
  void Unlock();
  // Yields the processor once.
  void Snap();

  std::int32_t* m_p;
};

#endif
