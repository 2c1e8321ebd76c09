// The critical section of a slot: its robust mutex, then its documented spin word.
//
// The word goes from 0 to 1 + mark in one step, and back in one. The mark tells the heir of a dead holder that the word
// still holds the dead's 1, whatever processes that know only the word add and take off meanwhile.
#ifndef CACHET_LOCK_SECTION_H
#define CACHET_LOCK_SECTION_H

#include "lock_page.h"
#include "spinlock.h"

namespace cachet {

// Leaves a slot as if its dead holder neither held nor waited there. Both are called while the dead's spin
// word still keeps others out, and may be called again.
class SlotHeir {
 public:
  virtual ~SlotHeir() = default;
  virtual void finish(int lockid, const SectionRecord& record) = 0;
  // Posts where the waiters may go on: the dead may have been about to, or have swallowed a post.
  virtual void wake(int lockid) = 0;
};

class Section {
 public:
  // Enters; finishes the work of a holder that died inside first. Without a recoverable page only `word` is
  // used.
  Section(LockPage& page, int lockid, Cspinlock& word, SlotHeir& heir);
  ~Section();
  Section(const Section&) = delete;
  Section& operator=(const Section&) = delete;

  // Publishes what the heir is to do, before the first change; and takes it back behind the last one.
  void announce(const SectionRecord& record);
  void done();

  // Outside for the time of a wait.
  void leave();
  void enter();

 private:
  LockPage& page_;
  int lockid_;
  Cspinlock& word_;
  SlotHeir& heir_;
};

// Locks a mutex whose owner may die, spinning a little before it sleeps. True when its last owner died holding
// it: the caller sees to what that one left and then calls pthread_mutex_consistent.
bool lock_robust(pthread_mutex_t& mutex);

}  // namespace cachet

#endif
