#include "ztmanager/session.h"

#include <utility>

namespace manager {

namespace {

constexpr int writers_position = 0;

// More than a client has positions; a bound so that nobody counts for ever.
constexpr int most_lock_requests = 1024;

}  // namespace

Session::Session(Database& database, int mode) : database_(database), handle_(database.open(mode)) {}

// The lock goes before the handle, whose ending may have to wait for others.
Session::~Session() {
  roll_back();
  ZtUnLock(handle());
}

const ZtTable* Session::table(int id) const {
  if (id >= 0 && static_cast<std::size_t>(id) < handle_->database.size()) {
    return &handle_->database[static_cast<std::size_t>(id)];
  }
  ZtRecordRow row;
  row.tableid = id;
  ZtGetCols(handle(), &row);  // the database's own report
  return nullptr;
}

void Session::forget_error() const {
  handle_->lasterrno = ZT_OK;
  handle_->lasterrmsg[0] = 0;
}

bool Session::refuse(int code, const char* reason) const {
  ZtSetError(handle(), code, "%s", reason);
  return false;
}

void Session::begin() {
  commit();
  ZtBeginTransaction(handle());
  lock_requests_ = 0;
  if (may_write()) handle_->shm_recordcopyset = database_.shared_store();
}

// The store is another thread's as soon as the lock is given back. Until then it is empty again, and from then on this
// handle does not look at it before it has the lock.
void Session::end(void (*how)(ZtDbHandle)) {
  how(handle());
  handle_->shm_recordcopyset = nullptr;
}

void Session::commit() {
  if (!in_transaction()) return;
  end(ZtCommitTransaction);
  lock_requests_ = 0;
}

void Session::roll_back() {
  if (!in_transaction()) return;
  end(ZtRollbackTransaction);
  lock_requests_ = 0;
}

bool Session::lock() {
  if (lock_requests_ == most_lock_requests) return refuse(ZT_ERR_GENERAL, "too many locks");
  if (!ZtLockPosition(handle(), writers_position)) return refuse(ZT_ERR_GENERAL, "no lock");
  ++lock_requests_;
  return true;
}

void Session::unlock() {
  if (lock_requests_ == 0 || --lock_requests_ > 0 || in_transaction()) return;
  ZtUnLockPosition(handle(), writers_position);
}

// With the client's own lock held, beginning takes none.
Session::OwnTransaction::OwnTransaction(Session& owner) : session(owner) {
  ZtBeginTransaction(session.handle());
  if (session.may_write()) session.handle_->shm_recordcopyset = session.database_.shared_store();
}

// The end would give the client's own lock back: it is hidden meanwhile.
Session::OwnTransaction::~OwnTransaction() {
  std::set<long long> kept;
  if (session.lock_requests_ > 0) kept = std::exchange(session.handle_->locks, {});
  session.end(succeeded ? ZtCommitTransaction : ZtRollbackTransaction);
  session.handle_->locks.merge(kept);
}

// A validating handle gives all its locks back at the end of every read: the client's are hidden from it.
Session::Reading::Reading(Session& owner) : session(owner), locked_here(false) {
  ZtDb& handle = *session.handle_;
  if (!session.may_write()) {
    clients_locks = std::exchange(handle.locks, {});
  } else if (!handle.locks.contains(writers_position)) {
    locked_here = ZtLockPosition(&handle, writers_position);
  }
}

Session::Reading::~Reading() {
  if (locked_here) ZtUnLockPosition(session.handle(), writers_position);
  session.handle_->locks.merge(clients_locks);
}

}  // namespace manager
