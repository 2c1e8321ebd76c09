// A transaction that is kept, one that is taken back, and a walk through an index: orders of three traders.
//
// The handles of the library become C++ objects in a few lines each, so that nothing is left behind on any
// path.
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "cachet.h"

namespace {

// Ids are positions: the first table is 0, its first field 0, its first index 0.
constexpr int orders = 0;
constexpr int trader_field = 0;
constexpr int quantity_field = 1;
constexpr int by_trader = 0;

using Trader = std::array<char, 16>;

class Database {
 public:
  explicit Database(const std::string& directory) {
    const bool created = ZtCreateDb(&handle_, directory.c_str(), "orders", "1", 1 << 20, 0);
    if (!created) {
      ZtDeleteDb(handle_);
      throw std::runtime_error("the database cannot be created");
    }
  }
  ~Database() { ZtDeleteDb(handle_); }
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;
  operator ZtDbHandle() const { return handle_; }

 private:
  ZtDbHandle handle_ = nullptr;
};

class Row {
 public:
  explicit Row(ZtDbHandle db) : db_(db) { ZtCreateRecord(&handle_); }
  ~Row() { ZtCloseRecord(db_, handle_); }
  Row(const Row&) = delete;
  Row& operator=(const Row&) = delete;
  operator ZtRecordHandle() const { return handle_; }

 private:
  ZtDbHandle db_;
  ZtRecordHandle handle_ = nullptr;
};

class Condition {
 public:
  explicit Condition(int index) {
    ZtCreateCondition(1, &handle_);
    ZtSetConditionIndex(handle_, index);
  }
  ~Condition() { ZtCloseCondition(handle_); }
  Condition(const Condition&) = delete;
  Condition& operator=(const Condition&) = delete;
  operator ZtConditionHandle() const { return handle_; }

 private:
  ZtConditionHandle handle_ = nullptr;
};

// Commits when told to; otherwise everything since its beginning is taken back.
class Transaction {
 public:
  explicit Transaction(ZtDbHandle db) : db_(db) { ZtBeginTransaction(db_); }
  ~Transaction() {
    if (!committed_) ZtRollbackTransaction(db_);
  }
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  void commit() {
    ZtCommitTransaction(db_);
    committed_ = true;
  }

 private:
  ZtDbHandle db_;
  bool committed_ = false;
};

void define_tables(ZtDbHandle db) {
  ZtAddTable(db, "orders");
  ZtAddField(db, orders, "trader", FIELD_STRING, sizeof(Trader), -1);
  ZtAddField(db, orders, "quantity", FIELD_INT, sizeof(int), -1);
  ZtAddIndex(db, orders, "by_trader", ZT_INDEX_DUPLICATES);
  ZtAddIndexField(db, orders, by_trader, trader_field);
  ZtSaveDbInfo(db);
  ZtLoadDb(db);
  ZtUnLockDb(db);  // from here on, other processes may open it
}

void insert(ZtDbHandle db, const Trader& trader, int quantity) {
  Row row(db);
  const bool stored = ZtNewRecord(db, orders, row) && ZtSetField(db, row, trader_field, trader.data()) &&
                      ZtSetField(db, row, quantity_field, &quantity) && ZtPutRecord(db, row);
  if (!stored) throw std::runtime_error("the order cannot be stored");
}

// Sets the quantity of the trader's first order.
void change_first(ZtDbHandle db, const Trader& trader, int quantity) {
  Condition condition(by_trader);
  Row row(db);
  ZtAddConditionIndexItem(condition, FIELD_STRING, sizeof(Trader), trader.data());
  const bool changed = ZtFindRecord(db, orders, condition, ZT_OP_EQUAL) && ZtGetRecord(db, condition, row) &&
                       ZtSetField(db, row, quantity_field, &quantity);
  if (!changed) throw std::runtime_error("the order cannot be changed");
}

// Prints every order in the order of the index, and returns the sum of their quantities.
int list(ZtDbHandle db, const char* title) {
  std::printf("%s\n", title);
  int sum = 0;
  Condition condition(by_trader);
  Row row(db);
  for (bool more = ZtListRecord(db, orders, condition); more; more = ZtNextRecord(db, condition)) {
    if (!ZtGetRecord(db, condition, row)) break;
    int type = 0;
    int quantity = 0;
    std::memcpy(&quantity, ZtGetField(db, row, quantity_field, &type), sizeof quantity);  // may lie unaligned
    std::printf("  %-8s %5d\n", ZtGetField(db, row, trader_field, &type), quantity);
    sum += quantity;
  }
  return sum;
}

bool use(const std::string& directory) {
  const Database db(directory);
  define_tables(db);
  {
    Transaction transaction(db);
    insert(db, {"Noor"}, 300);
    insert(db, {"Ada"}, 100);
    insert(db, {"Ada"}, 250);
    transaction.commit();
  }
  {
    const Transaction transaction(db);
    change_first(db, {"Ada"}, 9999);
    insert(db, {"Mallory"}, 1);
    list(db, "inside a transaction:");
  }  // never committed: taken back
  return list(db, "after the rollback:") == 300 + 100 + 250;
}

}  // namespace

int main() {
  std::string directory = "/tmp/cachet-hello-XXXXXX";
  if (!mkdtemp(directory.data())) return EXIT_FAILURE;
  bool good = false;
  try {
    good = use(directory);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
  }
  std::filesystem::remove_all(directory);
  return good ? EXIT_SUCCESS : EXIT_FAILURE;
}
