// Recovery for handles that were not opened with it.
#include "cache/copies.h"
#include "cache/error.h"
#include "cache/shared_store.h"
#include "cachetx.h"

using namespace cachet;

bool ZtxEnableRecovery(ZtDbHandle database) {
  if (!require_writable(database)) return false;
  // A lock that is held is not in the session table, and copies that are kept lie in process memory.
  const bool is_idle = !database->base.intransaction && database->locks.empty() && !has_copies(database);
  if (!database->lock.IsOpen() || !is_idle) return report(database, ZT_ERR_GENERAL, message::not_idle);
  if (database->shm_recordcopyset == nullptr && !provide_shared_store(database)) {
    return report(database, ZT_ERR_GENERAL, message::create_copies_failed, database->lock_name.c_str());
  }
  database->lock.m_dbsessions.db_session_mode_ = 1;
  return true;
}
