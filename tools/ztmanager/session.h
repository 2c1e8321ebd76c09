// Session: what one client has of the database: a handle of its own access mode, its transaction, its lock.
//
// Made, used and ended by one thread, since the lock knows its holders by their threads. Every change is made under the
// writers' lock (position 0): in the client's transaction, or in one of its own. So are all reads of a writing client,
// whose handle does not validate what it reads.
#ifndef CACHET_TOOLS_ZTMANAGER_SESSION_H
#define CACHET_TOOLS_ZTMANAGER_SESSION_H

#include "ztmanager/database.h"

namespace manager {

class Session {
 public:
  // Throws a Refusal.
  Session(Database& database, int mode);
  // Rolls back, and releases what is held.
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  ZtDbHandle handle() const { return handle_.get(); }
  bool may_write() const { return handle_->base.mode == ZT_MODE_READ_WRITE; }
  // Null, reported, for an id out of range.
  const ZtTable* table(int id) const;

  // Each begins with a clean error, and leaves one that failed in the handle.
  void forget_error() const;
  bool has_failed() const { return handle_->lasterrno != ZT_OK; }
  // Reports a refusal that the database itself does not know. Returns false.
  bool refuse(int code, const char* reason) const;

  // As the local calls: beginning commits what is open; an end gives every lock back.
  void begin();
  void commit();
  void roll_back();
  bool in_transaction() const { return handle_->base.intransaction; }

  // The client's own lock of position 0, of its mode's level, which counts. In a transaction it ends with that.
  bool lock();
  void unlock();

  // Runs `work`, which returns whether it succeeded, so that it happens whole or not at all; inside the client's
  // transaction it becomes a part of that.
  template <class Work>
  bool change(const Work& work) {
    if (in_transaction()) return work();
    OwnTransaction own(*this);
    own.succeeded = work();
    return own.succeeded;
  }

  // Runs `work`, which reads, while no writer is at work, or with a handle that validates.
  template <class Work>
  bool read(const Work& work) {
    const Reading reading(*this);
    return work();
  }

 private:
  struct OwnTransaction {
    explicit OwnTransaction(Session& owner);
    ~OwnTransaction();
    Session& session;
    bool succeeded = false;
  };
  struct Reading {
    explicit Reading(Session& owner);
    ~Reading();
    Session& session;
    bool locked_here;
    std::set<long long> clients_locks;
  };

  void end(void (*how)(ZtDbHandle));

  Database& database_;
  Database::Handle handle_;
  int lock_requests_ = 0;
};

}  // namespace manager

#endif
