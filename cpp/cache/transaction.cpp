// Transactions: the writers' lock from begin to commit or rollback, and the marks that the changes left.
//
// Order of a commit: it says so in the lock page, so that a survivor finishes it and does not roll it back; the marks of
// records and tables go (read-only readers may come in); the copies go; then the lock.
#include "cache/transaction.h"

#include <utility>

#include "base/fatal.h"
#include "base/features.h"
#include "cache/error.h"
#include "cache/heads.h"
#include "cache/rollback.h"
#include "cache/work.h"

using namespace cachet;

namespace {

constexpr int writers_position = 0;

auto copies_of(ZtDbHandle database) {
  return [database](const auto& each) { for_each_copy(database, each); };
}

// Marks of tables whose copies are gone.
void unmark_other_tables(ZtDbHandle database) {
  for (const int tableid : database->tables_to_unmark) unmark_table(catalog_of(database, tableid));
  database->tables_to_unmark.clear();
}

void make_own_changes_final(ZtDbHandle database) {
  if (!has_copies(database) && database->tables_to_unmark.empty()) return;
  const Work work(database, work_commit);
  make_final(database, copies_of(database));
  unmark_other_tables(database);
  forget_copies(database);
}

// The manager holds the lock and the copies.
void end_remotely(ZtDbHandle database, bool done) {
  if (!done) fatal::remote_change_failed();
  database->base.intransaction = false;
}

void end_transaction(ZtDbHandle database) {
  ZtUnLock(database);
  database->base.intransaction = false;
}

}  // namespace

void cachet::take_marks_off(ZtDbHandle database) {
  if (writes_locally(database) && !database->lock.WriterHolds(writers_position))
    make_own_changes_final(database);
}

void ZtBeginTransaction(ZtDbHandle database) {
  ZtCommitTransaction(database);
  if (forwards_changes(database) && !ZtRemoteBeginTransaction(database)) fatal::remote_change_failed();
  if (writes_locally(database) && ZtLockPosition(database, writers_position)) {
    settle_dead_work(database);
    if (features::nonces && !std::exchange(database->has_provided_nonces, true)) provide_nonces(database);
  }
  database->base.intransaction = true;
}

void ZtCommitTransaction(ZtDbHandle database) {
  if (!database->base.intransaction) return;
  if (forwards_changes(database)) return end_remotely(database, ZtRemoteCommitTransaction(database));
  if (writes_locally(database)) make_own_changes_final(database);
  end_transaction(database);
}

void ZtRollbackTransaction(ZtDbHandle database) {
  if (!database->base.intransaction) return;
  if (forwards_changes(database)) return end_remotely(database, ZtRemoteRollbackTransaction(database));
  if (writes_locally(database)) {
    roll_back(database, copies_of(database), Suspects::deleted_ones);
    unmark_other_tables(database);
    forget_copies(database);
  }
  end_transaction(database);
}
