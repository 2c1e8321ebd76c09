// A database for tests in which processes die: accounts whose balances add up to a constant, and whose rows show by a
// check number whether they were read whole.
//
//   table 0 "accounts":  id INT | name STRING[12] | team INT | amount INT8 | check INT8
//   indexes:             0 by id (unique) | 1 by name | 2 by team
#ifndef CACHET_TESTS_SUPPORT_BANK_H
#define CACHET_TESTS_SUPPORT_BANK_H

#include <cstdio>
#include <map>
#include <optional>

#include "support/schema.h"
#include "support/whole_check.h"

namespace cachet::test::bank {

enum : int { accounts = 0 };
enum : int { f_id, f_name, f_team, f_amount, f_check };
enum : int { i_id, i_name, i_team, indexes };
inline constexpr int name_width = 12;
inline constexpr int teams = 3;
inline constexpr int names = 20;

using Balances = std::map<int, long long>;

inline long long check_number(int id, long long amount) {
  return amount * 1000003 + id;
}

inline void define(ZtDbHandle db) {
  ZtAddTable(db, "accounts");
  ZtAddField(db, accounts, "id", FIELD_INT8, 8, -1);
  ZtAddField(db, accounts, "name", FIELD_STRING, name_width, -1);
  ZtAddField(db, accounts, "team", FIELD_INT, 4, -1);
  ZtAddField(db, accounts, "amount", FIELD_INT8, 8, -1);
  ZtAddField(db, accounts, "check", FIELD_INT8, 8, -1);
  ZtAddIndex(db, accounts, "by id", ZT_INDEX_UNIQUE);
  ZtAddIndexField(db, accounts, i_id, f_id);
  ZtAddIndex(db, accounts, "by name", ZT_INDEX_DUPLICATES);
  ZtAddIndexField(db, accounts, i_name, f_name);
  ZtAddIndex(db, accounts, "by team", ZT_INDEX_DUPLICATES);
  ZtAddIndexField(db, accounts, i_team, f_team);
}

// With session tracking, and for a writer with the shared store.
inline Database open(const TempDirectory& directory, int mode = ZT_MODE_READ_WRITE) {
  Database db;
  const int shared_store = mode == ZT_MODE_READ_WRITE ? 1 : 0;
  EXPECT_TRUE(
      ZtOpenDb(db.out(), directory.path().c_str(), "d", version_text, mode, 0, false, 0, shared_store, 1));
  finish_open(db);
  return db;
}

inline bool put(ZtDbHandle db, int id, long long amount) {
  Row row(db);
  char name[name_width] = {};
  std::snprintf(name, sizeof name, "n%d", id % names);
  return ZtNewRecord(db, accounts, row) && row.set<ZTINT8>(f_id, id) && ZtSetField(db, row, f_name, name) &&
         row.set(f_team, id % teams) && row.set(f_amount, amount) &&
         row.set(f_check, check_number(id, amount)) && ZtPutRecord(db, row);
}

inline bool find(ZtDbHandle db, int id, Row& row) {
  Condition condition(i_id);
  condition.add(ZTINT8{id});
  return ZtFindRecord(db, accounts, condition, ZT_OP_EQUAL) && ZtGetRecord(db, condition, row);
}

inline bool is_whole(const Row& row) {
  return row.get<long long>(f_check) ==
         check_number(static_cast<int>(row.get<ZTINT8>(f_id)), row.get<long long>(f_amount));
}

inline std::optional<long long> amount_of(ZtDbHandle db, int id) {
  Row row(db);
  if (!find(db, id, row)) return std::nullopt;
  return row.get<long long>(f_amount);
}

inline void set_amount(ZtDbHandle db, int id, long long amount) {
  Row row(db);
  if (!find(db, id, row)) return;
  row.set(f_amount, amount);
  row.set(f_check, check_number(id, amount));
}

inline void erase(ZtDbHandle db, int id) {
  Row row(db);
  if (find(db, id, row)) ZtDeleteRecord(db, row);
}

// The balances after a walk over an index, which unlinks what is deleted.
inline Balances walk(ZtDbHandle db, int index, bool forward) {
  Balances seen;
  Condition condition(index);
  Row row(db);
  bool more = ZtListRecord(db, accounts, condition);
  if (more && !forward) more = ZtLastRecord(db, condition);
  while (more && ZtGetRecord(db, condition, row)) {
    seen[static_cast<int>(row.get<ZTINT8>(f_id))] = row.get<long long>(f_amount);
    more = forward ? ZtNextRecord(db, condition) : ZtPrevRecord(db, condition);
  }
  return seen;
}

inline long long total(const Balances& balances) {
  long long sum = 0;
  for (const auto& [id, amount] : balances) sum += amount;
  return sum;
}

// The whole check, and what is there. Nobody may write meanwhile.
inline Balances check_everything(ZtDbHandle db) {
  Balances found;
  const LiveRecords live = check_table(db, accounts);
  for (const auto& [recordid, record] : live) {
    const int id = static_cast<int>(field_of<ZTINT8>(db, accounts, record, f_id));
    found[id] = field_of<long long>(db, accounts, record, f_amount);
    EXPECT_EQ(field_of<long long>(db, accounts, record, f_check), check_number(id, found[id])) << id;
  }
  EXPECT_EQ(found.size(), live.size()) << "an id twice";
  check_unmarked(db, accounts);
  return found;
}

// A database with these accounts, held by nobody but the handle that comes back.
inline Database create(TempDirectory& directory, const Balances& balances, ZTINT8 size_bytes = small_bytes) {
  Database creator = begin_create(directory, size_bytes);
  EXPECT_TRUE(creator.opened);
  define(creator);
  finish_create(creator);
  Database db = open(directory);
  creator.close();
  ZtBeginTransaction(db);
  for (const auto& [id, amount] : balances) EXPECT_TRUE(put(db, id, amount));
  ZtCommitTransaction(db);
  return db;
}

}  // namespace cachet::test::bank

#endif
