#include "zt/transaction.h"

#include <cachetx.h>

#include "zt/endless_wait.h"
#include "zt/status.h"
#include "zt/stop.h"

namespace zt {

Transaction::Transaction(const Context& context, const Database& database) : database_(database) {
  refuse_endless_write(context, database);
  if (!ZtxEnableRecovery(database)) database.fail(tr("cannot prepare a transaction"));
  release_stop_signals();
  ZtBeginTransaction(database);
  catch_stop_signals();
}

Transaction::~Transaction() {
  if (open_) ZtRollbackTransaction(database_);
}

void Transaction::go_on() const {
  if (stop_asked()) throw Failure(tr("interrupted: nothing was changed"));
}

void Transaction::commit() {
  ZtCommitTransaction(database_);
  open_ = false;
}

}  // namespace zt
