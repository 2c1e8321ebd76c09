// Crwspinlock: the cross-process reader/writer lock of a database, kept in a small shared page.
//
// The page ("<name>.lk", 8192 bytes) holds two slots of five 32-bit words; the rest is the library's own.
//
//   byte   0       4         8         12        16
//          +-------+---------+---------+---------+---------+
//   slot 0 | spin  | writers | writers | readers | readers |     slot 1 the same, from byte 20
//          | word  | holding | waiting | holding | waiting |
//          +-------+---------+---------+---------+---------+
//
// Writers exclude one another; a reader waits while a writer holds, a writer never waits for readers (they
// validate what they read). A waiter sleeps on the slot's reader or writer semaphore; a wake-up is only a
// hint.
#ifndef CACHET_RWSPINLOCK_H
#define CACHET_RWSPINLOCK_H

#include <cstdint>
#include <string>
#include <vector>

#include "cachet.h"
#include "dbsessions.h"
#include "shared_word.h"
#include "spinlock.h"
#include "ztmem.h"
#include "ztsema.h"

namespace cachet {
struct LockPage;
}

class CACHET_API Crwspinlock {
 public:
  Crwspinlock();

  // Makes page, session table and the four semaphores. False when one of them fails.
  bool Create(char* name, int dbsesion_mode);
  // Attaches what Create made. False when one of them is missing.
  bool Open(char* name, int dbsesion_mode);

  // Maps the page read-only, for nothing but the epoch: what an isolated handle may see of the lock. False when there
  // is no page.
  bool Watch(char* name);

  // Takes slot `lockid` (0, 1) for reading (level 0) or writing (level 1), waiting without limit.
  // False for another slot or level, or when the lock is not open.
  bool Lock(int lockid, int locklevel);
  // Releases. `stype` -1 is the ordinary release; 0 or 2 takes a waiter's count and session back instead.
  // `sid` names the session to erase (48 characters; null: the calling thread's own).
  void Unlock(int lockid, int locklevel, int stype, char* sid);

  // Detaches; the last user removes page, session table and semaphores.
  void Close();
  // Removes the key files.
  void Delete();
  bool GetSessions(std::vector<TransInfo>& sessions, int stype);

  // Whether page and semaphores are there to lock with.
  bool IsOpen() const;
  // Whether the page is the one that others open now, and not one that its last users have left.
  bool IsCurrent() const;
  // Whether some process holds the slot for writing right now.
  bool WriterHolds(int lockid) const;

  // A counter of the whole database, in the page, for what the tables' and records' own marks do not show: a
  // rollback, which takes their counters back, raises it by 2; a reset makes it odd before its first store
  // and even behind its last. 0 for ever when the lock is neither open nor watched.
  std::uint64_t Epoch() const { return cachet::load_acquire<std::uint64_t>(m_epoch); }
  // Where it lies, until the lock is closed.
  const std::uint64_t* EpochWord() const { return m_epoch; }
  void RaiseEpoch();
  void MakeEpochOdd();
  void MakeEpochEven();

  // Finishes what a process left that died inside a slot's section.
  void Settle();
  // Takes back what a dead thread holds or waits for, if its session is still in the table; its slot is the
  // session's.
  bool UnlockOfDead(SessionType type, const TransInfo& session);
  // The page, when dead processes' work can be finished through it; null otherwise.
  cachet::LockPage* RecoverablePage() const;

  Cztshamem m_lockpage;
  Cztsema m_r_sema[2];
  Cztsema m_w_sema[2];
  Cspinlock m_lock[2];
  DBSessions m_dbsessions;

 private:
  void CloseWatch();

  bool m_open = false;
  const std::uint64_t* m_epoch;  // in the page that is open or watched, else one that stays 0
  const cachet::LockPage* m_watched = nullptr;
  std::string m_watched_name;
};

#endif
