// Usage: insert_rows ROWS random|sorted
//
// One side of bench_recovery: inserts ROWS rows into a new table with three indexes, 1000 to a transaction, and prints
// nanoseconds per row. Built twice, with the library as it is and without what makes an insert recoverable.
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "cachet.h"

namespace {

constexpr int name_bytes = 24;
constexpr int rows_per_transaction = 1000;

void define_table(ZtDbHandle db) {
  ZtAddTable(db, "rows");
  ZtAddField(db, 0, "id", FIELD_INT8, 8, -1);
  ZtAddField(db, 0, "name", FIELD_STRING, name_bytes, -1);
  ZtAddField(db, 0, "grp", FIELD_INT, 4, -1);
  ZtAddField(db, 0, "price", FIELD_DOUBLE, 8, 2);
  for (const int field : {0, 1, 2}) {
    ZtAddIndex(db, 0, "index", field == 2 ? ZT_INDEX_DUPLICATES : ZT_INDEX_UNIQUE);
    ZtAddIndexField(db, 0, field, field);
  }
}

bool insert(ZtDbHandle db, ZtRecordHandle row, ZTINT8 id) {
  char name[name_bytes] = {};
  std::snprintf(name, sizeof name, "name-%08lld", id);
  const int group = static_cast<int>(id % 1000);
  const double price = static_cast<double>(id) * 1.5;
  ZtNewRecord(db, 0, row);
  ZtSetField(db, row, 0, &id);
  ZtSetField(db, row, 1, name);
  ZtSetField(db, row, 2, &group);
  ZtSetField(db, row, 3, &price);
  return ZtPutRecord(db, row);
}

bool insert_all(ZtDbHandle db, const std::vector<ZTINT8>& ids) {
  ZtRecordHandle row;
  ZtCreateRecord(&row);
  int in_transaction = 0;
  for (const ZTINT8 id : ids) {
    if (in_transaction == 0) ZtBeginTransaction(db);
    if (!insert(db, row, id)) return false;
    in_transaction = (in_transaction + 1) % rows_per_transaction;
    if (in_transaction == 0) ZtCommitTransaction(db);
  }
  ZtCommitTransaction(db);
  ZtCloseRecord(db, row);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  std::vector<ZTINT8> ids(std::stoul(argv[1]));
  std::iota(ids.begin(), ids.end(), 0);
  std::mt19937 random(1);
  if (std::strcmp(argv[2], "random") == 0) std::shuffle(ids.begin(), ids.end(), random);

  char directory[] = "/tmp/cachet-insert.XXXXXX";
  if (mkdtemp(directory) == nullptr) return 1;
  ZtDbHandle db;
  bool done = ZtCreateDb(&db, directory, "d", "1", ZTINT8{2} << 29, 1);
  if (done) {
    define_table(db);
    ZtSaveDbInfo(db);
    ZtLoadDb(db);
    ZtUnLockDb(db);
    const auto start = std::chrono::steady_clock::now();
    done = insert_all(db, ids);
    const std::chrono::duration<double, std::nano> time = std::chrono::steady_clock::now() - start;
    std::printf("%.1f\n", time.count() / static_cast<double>(ids.size()));
  }
  ZtDeleteDb(db);
  std::filesystem::remove_all(directory);
  return done ? 0 : 1;
}
