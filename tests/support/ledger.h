// Ledger: a database with one table of bookings, for tests of records, searches and transactions, and Query,
// a condition that can be walked.
//
//   table 0 "ledger":  id INT | group INT | tag STRING[8] | amount DOUBLE, 2 places | sum INT8
//   indexes:           0 by id (unique) | 1 by group | 2 by group and tag
#ifndef CACHET_TESTS_SUPPORT_LEDGER_H
#define CACHET_TESTS_SUPPORT_LEDGER_H

#include <initializer_list>
#include <vector>

#include "caches.h"
#include "support/schema.h"
#include "support/temp_database.h"

namespace cachet::test {

// The code of a handle's last error, which is forgotten with it.
inline int take_error(ZtDbHandle db) {
  return std::exchange(db->lasterrno, 0);
}

inline ZtRecordRow& raw(const Row& row) {
  return *static_cast<ZtRecordHandle>(row);
}

class Query : public Condition {
 public:
  Query(ZtDbHandle db, int index, std::initializer_list<int> key = {}) : Condition(index), db_(db) {
    for (int value : key) add(value);
  }
  ZtCondition* operator->() const { return static_cast<ZtConditionHandle>(*this); }

  bool find(int op) { return ZtFindRecord(db_, 0, *this, op); }
  bool list() { return ZtListRecord(db_, 0, *this); }
  bool go_to(int rowid) { return ZtGotoRecord(db_, 0, rowid, *this); }
  bool first() { return ZtFirstRecord(db_, *this); }
  bool last() { return ZtLastRecord(db_, *this); }
  bool next() { return ZtNextRecord(db_, *this); }
  bool prev() { return ZtPrevRecord(db_, *this); }
  bool fetch(ZtRecordHandle row) { return ZtGetRecord(db_, *this, row); }

  // The record id under the cursor.
  int id() {
    Row row(db_);
    return fetch(row) ? ZtGetRecordId(db_, row) : -1;
  }
  // The record ids from here to the end; `placed` is what the call that placed the cursor returned.
  std::vector<int> rest(bool placed) {
    std::vector<int> ids;
    for (; placed; placed = next()) ids.push_back(id());
    return ids;
  }
  std::vector<int> rest_backward(bool placed) {
    std::vector<int> ids;
    for (; placed; placed = prev()) ids.push_back(id());
    return ids;
  }

 private:
  ZtDbHandle db_;
};

// Commits when it goes out of scope, also past a failed assertion.
class Transaction {
 public:
  explicit Transaction(ZtDbHandle db) : db_(db) { ZtBeginTransaction(db); }
  ~Transaction() { ZtCommitTransaction(db_); }
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  void rollback() { ZtRollbackTransaction(db_); }

 private:
  ZtDbHandle db_;
};

class Ledger {
 public:
  enum Field { id, group, tag, amount, sum };
  enum Index { on_id, by_group, by_group_and_tag };

  explicit Ledger(ZTINT8 size_bytes = small_bytes) : writer_(begin_create(directory_, size_bytes)) {
    silence(writer_);
    define_table(writer_, "ledger",
                 {{"id", FIELD_INT, 4, 0},
                  {"group", FIELD_INT, 4, 0},
                  {"tag", FIELD_STRING, 8, 0},
                  {"amount", FIELD_DOUBLE, 8, 2},
                  {"sum", FIELD_INT8, 8, 0}},
                 {{"by id", ZT_INDEX_UNIQUE, {id}},
                  {"by group", ZT_INDEX_DUPLICATES, {group}},
                  {"by group and tag", ZT_INDEX_DUPLICATES, {group, tag}}});
    finish_create(writer_);
  }
  ~Ledger() {
    writer_.close();
    EXPECT_EQ(directory_.leftovers(), std::vector<std::string>{});
  }

  ZtDbHandle writer() const { return writer_; }
  Database open(int mode) const {
    Database db = begin_open(directory_, mode);
    EXPECT_TRUE(db.opened);
    silence(db);
    finish_open(db);
    return db;
  }
  Rb_tablename* catalog() const { return writer()->base.table; }
  Rb_memory* header() const { return writer()->base.memory; }

  static bool put(ZtDbHandle db, Row& row, int id_value, int group_value, const char* tag_text = "") {
    char slot[8] = {};
    std::memcpy(slot, tag_text, strnlen(tag_text, sizeof slot - 1));
    return ZtNewRecord(db, 0, row) && row.set(id, id_value) && row.set(group, group_value) &&
           ZtSetField(db, row, tag, slot) && ZtPutRecord(db, row);
  }
  // The new record's id, or -1.
  static int put(ZtDbHandle db, int id_value, int group_value, const char* tag_text = "") {
    Row row(db);
    return put(db, row, id_value, group_value, tag_text) ? ZtGetRecordId(db, row) : -1;
  }
  // Puts the record with this record id into `row`; false when it is deleted or was never there.
  static bool get(ZtDbHandle db, int record_id, Row& row) {
    Query query(db, -1);
    return query.go_to(record_id) && query.fetch(row) && ZtGetRecordId(db, row) == record_id;
  }
  static void erase(ZtDbHandle db, int record_id) {
    Row row(db);
    if (get(db, record_id, row)) ZtDeleteRecord(db, row);
  }
  static std::vector<int> ids(ZtDbHandle db, int index, int op, std::initializer_list<int> key) {
    Query query(db, index, key);
    return query.rest(query.find(op));
  }

 private:
  TempDirectory directory_;
  Database writer_;
};

// The whole flat space of a one-segment ledger.
inline std::string memory_of(const Ledger& ledger) {
  return {ledger.writer()->base.share_memory_begin[0], static_cast<std::size_t>(ledger.header()->size)};
}

}  // namespace cachet::test

#endif
