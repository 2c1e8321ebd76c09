// The write path: what an insert, an update and a delete leave in the shared memory.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cache/copies.h"
#include "support/ledger.h"
#include "support/lists.h"

namespace {

using namespace cachet::test;
using Id = std::vector<ZTINT8>;

struct Write : testing::Test {
  Ledger ledger;
  ZtDbHandle db = ledger.writer();
  Lists lists_of_key(Ledger::Index index, int key) {
    return lists_of(db, item_of(db, index, Query(db, index, {key})));
  }
  int copies_kept() {
    int count = 0;
    cachet::for_each_copy(db, [&](const cachet::Copy&) { ++count; });
    return count;
  }
};

TEST_F(Write, RefusesASecondLiveRecordUnderAUniqueKey) {
  Transaction all(db);
  ASSERT_EQ(Ledger::put(db, 1, 10), 0);
  const std::string before = memory_of(ledger);
  Row row(db);
  EXPECT_FALSE(Ledger::put(db, row, 1, 11));
  EXPECT_EQ(take_error(db), -1009);
  EXPECT_EQ(memory_of(ledger), before);
  EXPECT_TRUE(Ledger::put(db, row, 2, 11)) << "a new row in the same handle is welcome";
}

TEST_F(Write, MakesARecordHeadAndTailOfBothListsWhenTheCurrentOneIsEmpty) {
  Transaction all(db);
  for (int id : {1, 2}) Ledger::put(db, id, 10);
  for (int id : {0, 1}) Ledger::erase(db, id);
  EXPECT_TRUE(Ledger::ids(db, Ledger::by_group, ZT_OP_EQUAL, {10}).empty()) << "this walk empties the list";
  Ledger::put(db, 3, 10);
  EXPECT_EQ(lists_of_key(Ledger::by_group, 10), (Lists{{2}, {2}, true}));
}

TEST_F(Write, MarksTheTableOnceForInsertsAndTheRecordAloneForUpdatesUntilTheCommit) {
  const int updateno = ledger.catalog()->updateno;
  Row row(db);
  ASSERT_TRUE(Ledger::put(db, row, 1, 1) && Ledger::put(db, row, 2, 1));
  EXPECT_EQ(ledger.catalog()->duty, 1) << "also outside a transaction";
  { Transaction commit(db); }
  for (int cycle = 1; cycle <= 2; ++cycle) {
    Transaction update(db);
    EXPECT_TRUE(row.set(Ledger::amount, 1.0) && row.set(Ledger::sum, 2LL));
    EXPECT_EQ(raw(row).record->duty, 1);
    EXPECT_EQ(raw(row).record->updateno, cycle);
    EXPECT_EQ(ledger.catalog()->duty, 0);
  }
  EXPECT_EQ(raw(row).record->duty, 0);
  EXPECT_EQ(ledger.catalog()->updateno, updateno + 1);
  std::string expected = memory_of(ledger);
  expected[static_cast<std::size_t>(&raw(row).record->deleted - db->base.share_memory_begin[0])] = 1;
  Transaction erasing(db);
  for (int time = 0; time < 2; ++time) ZtDeleteRecord(db, row);
  expected.replace(0, 192, memory_of(ledger), 0, 192);
  EXPECT_EQ(memory_of(ledger), expected) << "a delete marks nothing";
  EXPECT_EQ(copies_kept(), 1);
}

// Two rows whose buffers lie in the data area already.
TEST_F(Write, StoresOrRegistersARecordInPlaceWithoutAUniqueCheck) {
  ASSERT_EQ(Ledger::put(db, 1, 0), 0);
  Transaction all(db);
  for (const bool load : {false, true}) {
    auto* const record = reinterpret_cast<ZtRecord*>(Rb_data_malloc(&db->base, 46, 8, true));
    record->data[0] = 1;
    record->updateno = 9;
    record->duty = record->deleted = 1;
    Row row(db);
    raw(row) = {record, 0, true, 0, {}};
    ASSERT_TRUE(load ? ZtLoadRecord(db, row) : ZtPutRecord2(db, row));
    EXPECT_EQ(raw(row).record, record);
    EXPECT_EQ(raw(row).newrow, load) << "left as it was, when loaded";
    EXPECT_EQ(record->updateno, load ? 9 : 0);
    EXPECT_EQ(record->deleted, 0);
    EXPECT_EQ(copies_kept(), 2) << "nothing to take back of a loaded one";
  }
  EXPECT_EQ(lists_of_key(Ledger::on_id, 1).current, (Id{0, 1, 2}));
}

}  // namespace
