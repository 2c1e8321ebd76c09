// Fields of rows: what is stored of a value, what a column tells about itself, and handles that hold nothing.
#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "support/keys.h"
#include "support/ledger.h"

namespace {

using namespace cachet::test;
using namespace std::string_literals;

struct Column {
  Field field;
  std::string given;   // the bytes handed to ZtSetField
  std::string stored;  // the bytes found afterwards
};

template <class T>
std::string Bytes(T value) {
  return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}

const std::vector<Column> columns = {
    {{"raw", 0, 3, 0}, "a\0b"s, "a\0b"s},
    {{"short", FIELD_SHORT, 2, 0}, Bytes(short{-2}), Bytes(short{-2})},
    {{"int", FIELD_INT, 4, 0}, Bytes(-70000), Bytes(-70000)},
    {{"char", FIELD_CHAR, 1, 0}, "x", "x"},
    {{"nothing", FIELD_STRING, 0, 0}, "", ""},
    {{"full text", FIELD_STRING, 4, 0}, "abcd", "abc\0"s},
    {{"short text", FIELD_STRING, 4, 0}, "a\0zz"s, "a\0z\0"s},
    {{"whole double", FIELD_DOUBLE, 8, 0}, Bytes(2.5), Bytes(3.0)},
    {{"unrounded", FIELD_DOUBLE, 8, -1}, Bytes(2.675000001), Bytes(2.675000001)},
    {{"short double", FIELD_DOUBLE, 4, 0}, Bytes(2.5), Bytes(3.0).substr(0, 4)},
    {{"long double", FIELD_DOUBLE, 12, 0}, Bytes(2.5), Bytes(3.0) + "\0\0\0\0"s},
    {{"int8", FIELD_INT8, 8, 0}, Bytes(LLONG_MIN), Bytes(LLONG_MIN)},
    {{"unknown", 42, 2, 0}, "pq", "pq"},
};

struct Values : DatabaseTest {
  void SetUp() override {
    std::vector<Field> fields;
    for (const Column& c : columns) fields.push_back(c.field);
    define_table(db, "values", fields, {});
    finish_create(db);
    silence(db);
  }
  void TearDown() override {
    db.close();
    DatabaseTest::TearDown();
  }
  Database db = begin_create(directory);
};

TEST_F(Values, AreStoredAsTheirTypeSaysAndDescribedByTheirColumns) {
  Row row(db);
  ASSERT_EQ(ZtGetCols(db, row), static_cast<int>(columns.size())) << "even without a record";
  ASSERT_TRUE(ZtNewRecord(db, 0, row));
  EXPECT_EQ(ZtGetRecordId(db, row), -1);
  const std::string fresh(reinterpret_cast<char*>(raw(row).record) + 8, 6);
  EXPECT_EQ(fresh, "\0\0\0\0\0\0"s) << "the rest of the header";
  for (int offset = 14, col = 0; const Column& c : columns) {
    SCOPED_TRACE(c.field.name);
    EXPECT_STREQ(ZtGetColName(db, row, col), c.field.name);
    EXPECT_EQ(ZtGetColType(db, row, col), c.field.type);
    EXPECT_EQ(ZtGetColSize(db, row, col), c.field.length);
    EXPECT_EQ(ZtGetColDecimal(db, row, col), c.field.decimals);
    EXPECT_TRUE(ZtSetField(db, row, col, GuardedBytes(c.given).data()));
    EXPECT_EQ(ZtGetColData(db, row, col++), reinterpret_cast<char*>(raw(row).record) + offset);
    offset += c.field.length;
  }
  ASSERT_TRUE(ZtPutRecord(db, row));
  for (int col = 0; const Column& c : columns) {
    int type = -1;
    const char* const bytes = ZtGetField(db, row, col++, &type);
    EXPECT_EQ(std::string(bytes, bytes + c.field.length), c.stored) << c.field.name;
    EXPECT_EQ(type, c.field.type);
  }
}

TEST_F(Values, OfBadColumnsAndOfHandlesWithoutARecordAreRefused) {
  Row row(db);
  int type = 77;
  EXPECT_EQ(ZtGetField(db, row, 0, &type), nullptr);
  EXPECT_EQ(type, 77);
  EXPECT_TRUE(ZtPutRecord(db, row)) << "nothing new, nothing to store";
  EXPECT_EQ(take_error(db), 0) << "a missing record is no error to these two";
  const auto expect_refused = [&](bool refused) { EXPECT_TRUE(refused && take_error(db) == -1008); };
  expect_refused(!ZtSetField(db, row, 0, "abc"));
  expect_refused(ZtGetColData(db, row, 0) == nullptr);
  expect_refused(ZtGetRecordId(db, row) == 0);
  expect_refused((ZtDeleteRecord(db, row), true));
  expect_refused(!ZtNewRecord(db, 1, row) && raw(row).record == nullptr);
  ASSERT_TRUE(ZtNewRecord(db, 0, row) && ZtPutRecord(db, row));
  for (int bad : {-1, static_cast<int>(columns.size()), INT_MAX, INT_MIN}) {
    SCOPED_TRACE(bad);
    expect_refused(!ZtSetField(db, row, bad, "12345678"));
    expect_refused(ZtGetField(db, row, bad, &type) == nullptr);
    expect_refused(ZtGetColData(db, row, bad) == nullptr);
    expect_refused(ZtGetColName(db, row, bad) == nullptr);
    for (auto* describe : {ZtGetColType, ZtGetColSize, ZtGetColDecimal}) {
      expect_refused(describe(db, row, bad) == 0);
    }
  }
  EXPECT_EQ(raw(row).record->updateno + raw(row).record->duty, 0);
}

TEST(StoredRow, KeepsItsIndexedFieldsAndIsNotChangedByReaders) {
  Ledger ledger;
  Row stored(ledger.writer());
  {
    Transaction all(ledger.writer());
    ASSERT_TRUE(Ledger::put(ledger.writer(), stored, 1, 10));
  }
  const std::string before = memory_of(ledger);
  for (int field : {Ledger::id, Ledger::group, Ledger::tag}) {
    EXPECT_FALSE(ZtSetField(ledger.writer(), stored, field, "1234567"));
    EXPECT_EQ(take_error(ledger.writer()), -1004);
  }
  Database reader = ledger.open(ZT_MODE_READ_ONLY);
  Row row(reader);
  const auto expect_refused = [&](bool refused) { EXPECT_TRUE(refused && take_error(reader) == -1004); };
  expect_refused(!ZtNewRecord(reader, 0, row));
  ASSERT_TRUE(Ledger::get(reader, 0, row));
  expect_refused(!row.set(Ledger::amount, 2.0));
  expect_refused((ZtDeleteRecord(reader, row), true));
  expect_refused(!ZtPutRecord(reader, row));
  EXPECT_EQ(memory_of(ledger), before);
}

}  // namespace
