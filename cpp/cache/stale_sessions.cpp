// The clearing of dead sessions. Every step may be repeated: a cleaner that dies leaves a state that the next one
// finishes. For a dead writer the order is: finish its work on shared structures, roll its transaction back (or finish
// its commit), empty its store, release its lock, and only then remove the store.
#include "cache/stale_sessions.h"

#include <algorithm>
#include <cstdio>
#include <vector>

#include "base/thread_identity.h"
#include "cache/error.h"
#include "cache/rollback.h"
#include "cache/shared_store.h"
#include "cache/work.h"

namespace cachet {

namespace {

constexpr int writers_slot = 0;
constexpr int read_level = 0;
constexpr int write_level = 1;

auto copies_in(ZtDbHandle database, ShmRecordcopySet& store, bool& whole) {
  return [database, &store, &whole](const auto& each) {
    whole = for_each_shared_copy(database, store, each) && whole;
  };
}

// The dead writer's transaction, from its store, while its lock still keeps others out.
bool undo_transaction(ZtDbHandle database, ShmRecordcopySet& store, unsigned long pid) {
  if (!store.Open(database->lock_name.c_str(), pid)) return false;
  if (!finish_work_of_dead(database)) return false;
  bool whole = true;
  roll_back(database, copies_in(database, store, whole), Suspects::all);
  // A reset in the transaction dropped the copies that told which tables were marked. No writer is inside.
  for (std::size_t id = 0; id < database->database.size(); ++id) {
    unmark_table(catalog_of(database, static_cast<int>(id)));
  }
  if (whole) store.Clear();
  return whole;
}

template <class Release>
bool clear_dead_writer(ZtDbHandle database, unsigned long pid, const Release& release) {
  if (!writes_locally(database)) return false;
  ShmRecordcopySet store;
  if (!undo_transaction(database, store, pid)) return false;
  release();
  store.Delete();
  return true;
}

bool clear_dead_session(ZtDbHandle database, SessionType type, const TransInfo& session) {
  const auto pid = static_cast<unsigned long>(DBSessions::OwnerOf(session.sid).pid);
  const auto release = [&] { database->lock.UnlockOfDead(type, session); };
  if (type == INWRITE && DBSessions::SlotOf(session) == writers_slot) {
    return clear_dead_writer(database, pid, release);
  }
  release();
  return true;
}

bool clear_dead_sessions(ZtDbHandle database, SessionType type) {
  std::vector<TransInfo> sessions;
  database->lock.GetSessions(sessions, type);
  for (const TransInfo& session : sessions) {
    const auto pid = static_cast<unsigned long>(DBSessions::OwnerOf(session.sid).pid);
    if (is_gone(pid) && !clear_dead_session(database, type, session)) return false;
  }
  return true;
}

// A writer without session tracking, which may be dead: its lock would be waited for in vain.
bool is_held_by_unknown(ZtDbHandle database) {
  if (!database->lock.WriterHolds(writers_slot)) return false;
  std::vector<TransInfo> writers;
  database->lock.GetSessions(writers, INWRITE);
  return std::none_of(writers.begin(), writers.end(),
                      [](const TransInfo& each) { return DBSessions::SlotOf(each) == writers_slot; });
}

// Work of a dead process that held no writer's lock, or whose session is cleared already.
bool clear_dead_work(ZtDbHandle database) {
  if (work_of_dead(database) == work_none) return true;
  if (!writes_locally(database)) return false;
  const bool held_already = database->locks.contains(writers_slot);
  if (!held_already && is_held_by_unknown(database)) return false;
  if (!held_already && !ZtLockPosition(database, writers_slot)) return false;
  settle_dead_work(database);
  if (!held_already) ZtUnLockPosition(database, writers_slot);
  return work_of_dead(database) == work_none;
}

}  // namespace

bool finish_commit_of(ZtDbHandle database, unsigned long pid) {
  ShmRecordcopySet store;
  if (!store.Open(database->lock_name.c_str(), pid)) return false;
  bool whole = true;
  make_final(database, copies_in(database, store, whole));
  if (whole) store.Clear();
  return whole;
}

}  // namespace cachet

using namespace cachet;

bool ZtClearWildTrans(ZtDbHandle database, int stype, unsigned long pid, unsigned long tid) {
  if (database->lock.m_dbsessions.ProcessIsAlive(pid)) return true;
  char sid[sizeof TransInfo::sid + 1];
  std::snprintf(sid, sizeof sid, "%024lu%024lu", pid, tid);
  const auto unlock = [&](int level, int type) { database->lock.Unlock(writers_slot, level, type, sid); };
  switch (stype) {
    case WTREAD:
      unlock(read_level, WTREAD);
      return true;
    case INREAD:
      unlock(read_level, INREAD);
      return true;
    case WTWRITE:
      unlock(write_level, WTWRITE);
      return true;
    case INWRITE: {
      const CleanerLock only_cleaner(database->lock.RecoverablePage());
      return clear_dead_writer(database, pid, [&] { unlock(write_level, INWRITE); });
    }
    default:
      return true;
  }
}

bool ZtClearDBWildTrans(ZtDbHandle database) {
  if (!database->lock.IsOpen()) return report(database, ZT_ERR_GENERAL, message::database_not_open);
  {
    const CleanerLock only_cleaner(database->lock.RecoverablePage());
    database->lock.Settle();
    for (const SessionType type : {WTREAD, INREAD, WTWRITE, INWRITE}) {
      if (!clear_dead_sessions(database, type)) return false;
    }
  }
  if (!clear_dead_work(database)) return false;
  remove_stores_of_dead(database);
  return true;
}
