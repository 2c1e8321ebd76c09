// The write path: what an insert, an update and a delete leave in the shared memory, and that a refused one
// leaves nothing at all.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/ledger.h"
#include "support/lists.h"

namespace {

using namespace cachet::test;
using Id = std::vector<ZTINT8>;

// The whole flat space of a one-segment database.
std::string Memory(const Ledger& ledger) {
  return std::string(ledger.writer()->base.share_memory_begin[0],
                     static_cast<std::size_t>(ledger.header()->size));
}

std::string Header(const Row& row) {
  return std::string(reinterpret_cast<char*>(raw(row).record), 14);
}

struct Write : testing::Test {
  Ledger ledger;
  ZtDbHandle db = ledger.writer();
  Lists lists_of_key(Ledger::Index index, std::initializer_list<int> key) {
    Query query(db, index, key);
    const ZtIndexItem* const item = item_of(db, index, query);
    return item == nullptr ? Lists{} : lists_of(db, item);
  }
};

TEST_F(Write, NumbersRecordsFromZeroAndNeverAgain) {
  Transaction all(db);
  EXPECT_EQ(Ledger::put(db, 100, 1), 0);
  EXPECT_EQ(Ledger::put(db, 101, 1), 1);
  Ledger::erase(db, 0);
  EXPECT_EQ(Ledger::put(db, 102, 1), 2);
  EXPECT_EQ(ledger.catalog()->recordcount, 3);
}

TEST_F(Write, LeavesAClearHeaderAndZeroedFields) {
  Transaction all(db);
  Row row(db);
  ASSERT_TRUE(Ledger::put(db, row, 7, 8));
  EXPECT_EQ(Header(row), std::string(14, '\0'));
  EXPECT_FALSE(raw(row).newrow);
  EXPECT_EQ(row.get<long long>(Ledger::sum), 0);
  const std::int64_t offset = cachet::value_of(cachet::offset_of(&db->base, raw(row).record));
  EXPECT_EQ(offset % 8, 0);
  EXPECT_GE(offset, ledger.header()->dataoffset);
}

TEST_F(Write, PutsAStoredRecordAgainAsANoOp) {
  Transaction all(db);
  Row row(db);
  ASSERT_TRUE(Ledger::put(db, row, 7, 8));
  const std::string before = Memory(ledger);
  EXPECT_TRUE(ZtPutRecord(db, row));
  EXPECT_EQ(Memory(ledger), before);
}

TEST_F(Write, KeepsEqualKeysInOneItemInInsertionOrder) {
  Transaction all(db);
  for (int id : {5, 3, 4}) Ledger::put(db, id, 9);
  Ledger::put(db, 6, 10);
  EXPECT_EQ(lists_of_key(Ledger::by_group, {9}), (Lists{{0, 1, 2}, {0, 1, 2}, true}));
  EXPECT_EQ(lists_of_key(Ledger::by_group, {10}), (Lists{{3}, {3}, true}));
  Query all_groups(db, Ledger::by_group);
  ASSERT_TRUE(all_groups.list());
  EXPECT_EQ(rb_prev(&db->base, all_groups->begin), all_groups->end) << "two keys, two tree entries";
}

TEST_F(Write, StoresKeysThatPointIntoTheFirstRecord) {
  Transaction all(db);
  Row first(db), second(db);
  ASSERT_TRUE(Ledger::put(db, first, 1, 9, "tag"));
  ASSERT_TRUE(Ledger::put(db, second, 2, 9, "tag"));
  Query query(db, Ledger::by_group_and_tag);
  query.add(9);
  query.add("tag");
  const ZtIndexItem* const item = item_of(db, Ledger::by_group_and_tag, query);
  ASSERT_NE(item, nullptr);
  EXPECT_EQ(item->sharememory, 1);
  EXPECT_EQ(item->point, 2);
  EXPECT_EQ(item->count, 2);
  ZtIndexField fields[2];
  std::memcpy(fields,
              cachet::address_of(&db->base, cachet::FlatOffset{reinterpret_cast<std::int64_t>(item->index)}),
              sizeof fields);
  const int types[] = {FIELD_INT, FIELD_STRING}, lengths[] = {4, 8}, offsets[] = {4, 8};
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(fields[i].type, types[i]);
    EXPECT_EQ(fields[i].length, lengths[i]);
    EXPECT_EQ(
        cachet::address_of(&db->base, cachet::FlatOffset{reinterpret_cast<std::int64_t>(fields[i].data)}),
        raw(first).record->data + offsets[i]);
  }
}

TEST_F(Write, RefusesASecondLiveRecordUnderAUniqueKey) {
  Transaction all(db);
  ASSERT_EQ(Ledger::put(db, 1, 10), 0);
  const std::string before = Memory(ledger);
  Row row(db);
  EXPECT_FALSE(Ledger::put(db, row, 1, 11));
  EXPECT_EQ(take_error(db), -1009);
  EXPECT_EQ(Memory(ledger), before);
  EXPECT_TRUE(Ledger::put(db, row, 2, 11)) << "a new row in the same handle is welcome";
}

TEST_F(Write, AllowsAKeyAgainAfterDelete) {
  Transaction all(db);
  Ledger::put(db, 1, 10);
  Ledger::erase(db, 0);
  EXPECT_EQ(Ledger::put(db, 1, 11), 1);
  EXPECT_EQ(lists_of_key(Ledger::by_id, {1}).origin, (Id{0, 1})) << "the deleted one first";
  EXPECT_EQ(Ledger::put(db, 1, 12), -1);
  EXPECT_EQ(take_error(db), -1009);
  EXPECT_EQ(Ledger::ids(db, Ledger::by_id, ZT_OP_EQUAL, {1}), std::vector<int>{1});
}

TEST_F(Write, MakesARecordHeadAndTailOfBothListsWhenTheCurrentOneIsEmpty) {
  Transaction all(db);
  Ledger::put(db, 1, 10);
  Ledger::put(db, 2, 10);
  Ledger::erase(db, 0);
  Ledger::erase(db, 1);
  EXPECT_TRUE(Ledger::ids(db, Ledger::by_group, ZT_OP_EQUAL, {10}).empty()) << "this walk empties the list";
  ASSERT_EQ(lists_of_key(Ledger::by_group, {10}).current, Id{});
  Ledger::put(db, 3, 10);
  EXPECT_EQ(lists_of_key(Ledger::by_group, {10}), (Lists{{2}, {2}, true}));
}

TEST_F(Write, MarksTheTableOnceBetweenCommits) {
  const int updateno = ledger.catalog()->updateno;
  {
    Transaction first(db);
    Ledger::put(db, 1, 1);
    EXPECT_EQ(ledger.catalog()->duty, 1);
    Ledger::put(db, 2, 1);
    EXPECT_EQ(ledger.catalog()->updateno, updateno + 1);
  }
  EXPECT_EQ(ledger.catalog()->duty, 0);
  EXPECT_EQ(ledger.catalog()->updateno, updateno + 1);
  Ledger::put(db, 3, 1);
  EXPECT_EQ(ledger.catalog()->duty, 1) << "outside a transaction the mark stays";
  EXPECT_EQ(ledger.catalog()->updateno, updateno + 2);
  { Transaction next(db); }
  EXPECT_EQ(ledger.catalog()->duty, 0) << "until the next commit";
}

TEST_F(Write, MarksAnUpdatedRecordOnceAndNotItsTable) {
  Row row(db);
  {
    Transaction insert(db);
    ASSERT_TRUE(Ledger::put(db, row, 1, 1));
  }
  const int updateno = ledger.catalog()->updateno;
  for (int cycle = 1; cycle <= 2; ++cycle) {
    Transaction update(db);
    EXPECT_TRUE(row.set(Ledger::amount, 1.0));
    EXPECT_TRUE(row.set(Ledger::sum, 2LL));
    EXPECT_EQ(raw(row).record->duty, 1);
    EXPECT_EQ(raw(row).record->updateno, cycle);
    EXPECT_EQ(ledger.catalog()->duty, 0);
  }
  EXPECT_EQ(raw(row).record->duty, 0);
  EXPECT_EQ(ledger.catalog()->updateno, updateno);
}

TEST_F(Write, MarksNothingForADelete) {
  Row row(db);
  {
    Transaction insert(db);
    ASSERT_TRUE(Ledger::put(db, row, 1, 1));
  }
  std::string expected = Memory(ledger);
  expected[static_cast<std::size_t>(&raw(row).record->deleted - db->base.share_memory_begin[0])] = 1;
  ZtDeleteRecord(db, row);
  EXPECT_EQ(Memory(ledger), expected);
  const std::size_t copies = db->recordcopy.m_index.size();
  ZtDeleteRecord(db, row);
  EXPECT_EQ(Memory(ledger), expected);
  EXPECT_EQ(db->recordcopy.m_index.size(), copies);
  Transaction commit(db);
}

TEST_F(Write, KeepsOneBeforeImagePerRecord) {
  Transaction all(db);
  Row row(db);
  ASSERT_TRUE(Ledger::put(db, row, 1, 1));
  ASSERT_EQ(db->recordcopy.m_index.size(), 1u);
  const ZtRecordCopy copy = *db->recordcopy.m_index.begin();
  EXPECT_EQ(copy.offset, reinterpret_cast<ZTINT8>(raw(row).record));
  EXPECT_EQ(copy.length, 46);
  EXPECT_EQ(copy.data[13], 1) << "an insert is rolled back to a deleted record";
  row.set(Ledger::sum, 5LL);
  ZtDeleteRecord(db, row);
  EXPECT_EQ(db->recordcopy.m_index.size(), 1u);
  EXPECT_EQ(db->recordcopy.m_index.begin()->data, copy.data);
}

// Sets how many bytes are free by moving the front of the nodes up.
void LeaveFree(const Ledger& ledger, ZTINT8 free_bytes) {
  ledger.header()->nodeoffset = ledger.header()->dataoffset - free_bytes;
}

TEST_F(Write, NeedsEightyKibibytesFree) {
  Transaction all(db);
  Row row(db);
  LeaveFree(ledger, 81919);
  const std::string before = Memory(ledger);
  EXPECT_FALSE(Ledger::put(db, row, 1, 1));
  EXPECT_EQ(take_error(db), -1003);
  EXPECT_EQ(Memory(ledger), before);
  EXPECT_TRUE(raw(row).newrow);
  EXPECT_EQ(row.get<int>(Ledger::id), 1) << "the row stays in the handle";
  LeaveFree(ledger, 81920);
  EXPECT_TRUE(ZtPutRecord(db, row));
}

// A record larger than the margin passes the first check and is caught by the dry run, at whichever of its
// pieces.
TEST(WriteOfALargeRow, ChangesNothingWhenAnyPieceDoesNotFit) {
  constexpr int width = 100000;
  TempDirectory directory;
  ZtDbHandle db = nullptr;
  ASSERT_TRUE(ZtCreateDb(&db, directory.path().c_str(), "db", "1.0", 1 << 20, 0));
  silence(db);
  ZtAddTable(db, "large");
  ZtAddField(db, 0, "key", FIELD_INT, 4, 0);
  ZtAddField(db, 0, "blob", FIELD_STRING, width, 0);
  for (int index = 0; index < 3; ++index) {
    ZtAddIndex(db, 0, "key", ZT_INDEX_UNIQUE);
    ZtAddIndexField(db, 0, index, 0);
  }
  ZtSaveDbInfo(db);
  ZtLoadDb(db);
  ZtUnLockDb(db);
  ZtBeginTransaction(db);
  ZtRecordHandle row = nullptr;
  ZtCreateRecord(&row);
  int key = 0;
  ASSERT_TRUE(ZtNewRecord(db, 0, row) && ZtSetField(db, row, 0, &key) && ZtPutRecord(db, row));
  ASSERT_TRUE(ZtNewRecord(db, 0, row) && ZtSetField(db, row, 0, &++key));
  const ZTINT8 record_bytes = (width + 4 + 14 + 7) / 8 * 8;
  Rb_memory* const header = db->base.memory;
  header->nodeoffset = (header->dataoffset - record_bytes) / 32 * 32 + 32;
  int refused = 0;
  for (std::string before; before.assign(db->base.share_memory_begin[0], 1 << 20), !ZtPutRecord(db, row);
       ++refused) {
    ASSERT_EQ(take_error(db), -1003) << refused;
    ASSERT_EQ(std::string(db->base.share_memory_begin[0], 1 << 20), before) << refused;
    ASSERT_TRUE(row->newrow);
    header->nodeoffset -= 32;
  }
  EXPECT_GE(refused, 16) << "160 bytes of items and 11 node slots do not fit sooner";
  EXPECT_LE(db->base.memory->nodeoffset, db->base.memory->dataoffset);
  ZtCommitTransaction(db);
  ZtCloseRecord(db, row);
  ZtDeleteDb(db);
}

// A row whose buffer lies in the data area already.
ZtRecord* RecordInPlace(ZtDbHandle db, int id_value) {
  auto* const record = reinterpret_cast<ZtRecord*>(Rb_data_malloc(&db->base, 46, 8, true));
  std::memcpy(record->data, &id_value, sizeof id_value);
  return record;
}

TEST_F(Write, StoresARecordInPlaceWithoutAUniqueCheck) {
  ASSERT_EQ(Ledger::put(db, 1, 0), 0);
  Transaction all(db);
  Row row(db);
  ZtRecord* const record = RecordInPlace(db, 1);
  record->updateno = 9;
  record->duty = 1;
  raw(row) = {record, 0, true, false};
  ASSERT_TRUE(ZtPutRecord2(db, row));
  EXPECT_EQ(raw(row).record, record);
  EXPECT_FALSE(raw(row).newrow);
  EXPECT_EQ(record->recordid, 1);
  EXPECT_EQ(Header(row).substr(8), std::string(6, '\0'));
  EXPECT_EQ(lists_of_key(Ledger::by_id, {1}).current, (Id{0, 1}));
  EXPECT_EQ(db->recordcopy.m_index.count({reinterpret_cast<ZTINT8>(record), 0, 0, nullptr}), 1u);
  all.rollback();
  EXPECT_EQ(record->deleted, 1);
}

TEST_F(Write, RegistersALoadedRecordWithoutMarks) {
  Row row(db);
  ZtRecord* const record = RecordInPlace(db, 5);
  record->updateno = 9;
  record->deleted = 1;
  raw(row) = {record, 0, true, false};
  ASSERT_TRUE(ZtLoadRecord(db, row));
  EXPECT_TRUE(raw(row).newrow) << "left as it was";
  EXPECT_EQ(record->recordid, 0);
  EXPECT_EQ(record->updateno, 9);
  EXPECT_EQ(record->deleted, 0);
  EXPECT_EQ(ledger.catalog()->duty, 0);
  EXPECT_EQ(ledger.catalog()->recordcount, 1);
  EXPECT_TRUE(db->recordcopy.m_index.empty());
  EXPECT_EQ(Ledger::ids(db, Ledger::by_id, ZT_OP_EQUAL, {5}), std::vector<int>{0});
  raw(row).newrow = false;
  EXPECT_TRUE(ZtLoadRecord(db, row));
  EXPECT_EQ(ledger.catalog()->recordcount, 1);
}

}  // namespace
