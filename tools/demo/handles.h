// Owners for what the library hands out, so that nothing is left open on any way out of a function.
//
// A Record and a Condition end before the Database they are used with.
#ifndef CACHET_TOOLS_DEMO_HANDLES_H
#define CACHET_TOOLS_DEMO_HANDLES_H

#include <cstring>
#include <memory>
#include <string>
#include <type_traits>

#include "cachet.h"

namespace demo {

struct DeleteDb {
  void operator()(ZtDbHandle handle) const { ZtDeleteDb(handle); }
};
using Database = std::unique_ptr<std::remove_pointer_t<ZtDbHandle>, DeleteDb>;

class Record {
 public:
  explicit Record(const Database& database) : database_(database.get()) { ZtCreateRecord(&handle_); }
  ~Record() { ZtCloseRecord(database_, handle_); }
  Record(const Record&) = delete;
  Record& operator=(const Record&) = delete;
  operator ZtRecordHandle() const { return handle_; }

 private:
  ZtDbHandle database_;
  ZtRecordHandle handle_ = nullptr;
};

// A search key and the cursor of its results. select() empties the key, add() appends a key field.
class Condition {
 public:
  explicit Condition(int index, int capacity = 2) {
    ZtCreateCondition(capacity, &handle_);
    ZtSetConditionIndex(handle_, index);
  }
  ~Condition() { ZtCloseCondition(handle_); }
  Condition(const Condition&) = delete;
  Condition& operator=(const Condition&) = delete;
  operator ZtConditionHandle() const { return handle_; }

  void select(int index) { ZtSetConditionIndex(handle_, index); }
  void add(const std::string& text) {
    ZtAddConditionIndexItem(handle_, FIELD_STRING, static_cast<int>(text.size()) + 1, text.c_str());
  }

 private:
  ZtConditionHandle handle_ = nullptr;
};

// A transaction, rolled back unless it was committed.
class Transaction {
 public:
  explicit Transaction(const Database& database) : database_(database.get()) {
    ZtBeginTransaction(database_);
  }
  ~Transaction() { roll_back(); }  // does nothing after a commit
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  void commit() { ZtCommitTransaction(database_); }
  void roll_back() { ZtRollbackTransaction(database_); }

 private:
  ZtDbHandle database_;
};

}  // namespace demo

#endif
