/*
 * The smallest useful program: make a database with one table, put three instruments in, find one by its key.
 *
 * Everything happens in a directory of its own, which is gone at the end, as the database is.
 */
#define _DEFAULT_SOURCE
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "cachet.h"

/* Ids are positions: the first table is 0, its first field 0, its first index 0. */
enum { INSTRUMENT = 0 };
enum { TICKER = 0, PRICE = 1 };
enum { BY_TICKER = 0 };

enum { TICKER_SIZE = 12 };

typedef struct {
  char ticker[TICKER_SIZE];
  double price;
} Instrument;

static void define_tables(ZtDbHandle db) {
  ZtAddTable(db, "instrument");
  ZtAddField(db, INSTRUMENT, "ticker", FIELD_STRING, TICKER_SIZE, -1);
  ZtAddField(db, INSTRUMENT, "price", FIELD_DOUBLE, sizeof(double), 2);
  ZtAddIndex(db, INSTRUMENT, "by_ticker", ZT_INDEX_UNIQUE);
  ZtAddIndexField(db, INSTRUMENT, BY_TICKER, TICKER);
  ZtSaveDbInfo(db);
  ZtLoadDb(db);
  ZtUnLockDb(db); /* from here on, other processes may open it */
}

static bool insert(ZtDbHandle db, const Instrument* instrument) {
  ZtRecordHandle row;
  ZtCreateRecord(&row);
  const bool stored = ZtNewRecord(db, INSTRUMENT, row) && ZtSetField(db, row, TICKER, instrument->ticker) &&
                      ZtSetField(db, row, PRICE, &instrument->price) && ZtPutRecord(db, row);
  ZtCloseRecord(db, row);
  return stored;
}

static bool find(ZtDbHandle db, const char ticker[TICKER_SIZE], Instrument* instrument) {
  ZtConditionHandle condition;
  ZtRecordHandle row;
  ZtCreateCondition(1, &condition);
  ZtCreateRecord(&row);
  ZtSetConditionIndex(condition, BY_TICKER);
  ZtAddConditionIndexItem(condition, FIELD_STRING, TICKER_SIZE, ticker);

  const bool found = ZtFindRecord(db, INSTRUMENT, condition, ZT_OP_EQUAL) && ZtGetRecord(db, condition, row);
  if (found) {
    int type;
    memcpy(instrument->ticker, ZtGetField(db, row, TICKER, &type), TICKER_SIZE);
    memcpy(&instrument->price, ZtGetField(db, row, PRICE, &type), sizeof(double)); /* may lie unaligned */
  }
  ZtCloseRecord(db, row);
  ZtCloseCondition(condition);
  return found;
}

static bool use(ZtDbHandle db) {
  static const Instrument instruments[] = {{"COPPER", 8412.505}, {"GOLD", 2034.1}, {"TIN", 25310}};
  define_tables(db);

  ZtBeginTransaction(db); /* one writer at a time */
  for (size_t i = 0; i < sizeof instruments / sizeof *instruments; ++i) {
    if (!insert(db, &instruments[i])) return false;
  }
  ZtCommitTransaction(db);

  Instrument copper;
  if (!find(db, instruments[0].ticker, &copper)) return false;
  printf("%s costs %.2f\n", copper.ticker, copper.price);
  return true;
}

int main(void) {
  char directory[] = "/tmp/cachet-hello-XXXXXX";
  if (!mkdtemp(directory)) return EXIT_FAILURE;

  ZtDbHandle db;
  const bool good = ZtCreateDb(&db, directory, "hello", "1", 1 << 20, 0) && use(db);
  ZtDeleteDb(db); /* nobody else is attached: this removes the database */

  char lock_file[64];
  snprintf(lock_file, sizeof lock_file, "%s/hello", directory);
  remove(lock_file); /* the lock file is the one thing that stays */
  rmdir(directory);
  return good ? EXIT_SUCCESS : EXIT_FAILURE;
}
