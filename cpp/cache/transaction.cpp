// Transactions: the writers' lock from begin to commit or rollback, and the marks that the changes left.
//
// Order of a commit: the records' marks, then the tables' (read-only readers may come in), then the lock.
#include "cache/transaction.h"

#include "cache/error.h"
#include "cache/record.h"

using namespace cachet;

namespace {

constexpr int writers_position = 0;

void unmark_tables(ZtDbHandle database) {
  for (const ZtRecordCopy& copy : database->recordcopy.m_index)
    unmark_table(catalog_of(database, copy.tableid));
  for (const int tableid : database->tables_to_unmark) unmark_table(catalog_of(database, tableid));
  database->tables_to_unmark.clear();
}

void make_final(ZtDbHandle database) {
  for (const ZtRecordCopy& copy : database->recordcopy.m_index) {
    set_duty(reinterpret_cast<ZtRecord*>(copy.offset), false);
  }
  unmark_tables(database);
  forget_copies(database);
}

void end_transaction(ZtDbHandle database) {
  ZtUnLock(database);
  database->base.intransaction = false;
}

}  // namespace

void cachet::take_marks_off(ZtDbHandle database) {
  if (writes_locally(database) && !database->lock.WriterHolds(writers_position)) make_final(database);
}

void ZtBeginTransaction(ZtDbHandle database) {
  ZtCommitTransaction(database);
  if (writes_locally(database)) ZtLockPosition(database, writers_position);
  database->base.intransaction = true;
}

void ZtCommitTransaction(ZtDbHandle database) {
  if (!database->base.intransaction) return;
  if (writes_locally(database)) make_final(database);
  end_transaction(database);
}

void ZtRollbackTransaction(ZtDbHandle database) {
  if (!database->base.intransaction) return;
  if (writes_locally(database)) {
    restore_copies(database);
    unmark_tables(database);
    forget_copies(database);
  }
  end_transaction(database);
}
