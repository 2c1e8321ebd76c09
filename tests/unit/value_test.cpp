// Fields of rows: what is stored of a value, what a column tells about itself, and handles that hold nothing.
#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "support/guarded.h"
#include "support/ledger.h"

namespace {

using namespace cachet::test;
using namespace std::string_literals;

struct Column {
  const char* name;
  int type;
  int length;
  int decimal;
  std::string given;   // the bytes handed to ZtSetField
  std::string stored;  // the bytes found afterwards
};

template <class T>
std::string Bytes(T value) {
  return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}

const std::vector<Column>& Columns() {
  static const std::vector<Column> columns = {
      {"raw", 0, 3, 0, "a\0b"s, "a\0b"s},
      {"short", FIELD_SHORT, 2, 0, Bytes(short{-2}), Bytes(short{-2})},
      {"int", FIELD_INT, 4, 0, Bytes(-70000), Bytes(-70000)},
      {"char", FIELD_CHAR, 1, 0, "x", "x"},
      {"nothing", FIELD_STRING, 0, 0, "", ""},
      {"ushort", FIELD_USHORT, 2, 0, Bytes(short{-1}), Bytes(short{-1})},
      {"uint", FIELD_UINT, 4, 0, Bytes(0xfedcba98u), Bytes(0xfedcba98u)},
      {"uchar", FIELD_UCHAR, 1, 0, "\xff", "\xff"},
      {"full text", FIELD_STRING, 4, 0, "abcd", "abc\0"s},
      {"short text", FIELD_STRING, 4, 0, "a\0zz"s, "a\0z\0"s},
      {"whole double", FIELD_DOUBLE, 8, 0, Bytes(2.5), Bytes(3.0)},
      {"negative double", FIELD_DOUBLE, 8, 0, Bytes(-2.5), Bytes(-3.0)},
      {"unrounded", FIELD_DOUBLE, 8, -1, Bytes(2.675000001), Bytes(2.675000001)},
      {"short double", FIELD_DOUBLE, 4, 0, Bytes(2.5), Bytes(3.0).substr(0, 4)},
      {"long double", FIELD_DOUBLE, 12, 0, Bytes(2.5), Bytes(3.0) + "\0\0\0\0"s},
      {"long unrounded", FIELD_DOUBLE, 12, -1, Bytes(2.5), Bytes(2.5) + "\0\0\0\0"s},
      {"int8", FIELD_INT8, 8, 0, Bytes(LLONG_MIN), Bytes(LLONG_MIN)},
      {"unknown", 42, 2, 0, "pq", "pq"},
  };
  return columns;
}

struct Values : testing::Test {
  Values() {
    ZtCreateDb(&db, directory.path().c_str(), "db", "1.0", 1 << 20, 0);
    silence(db);
    ZtAddTable(db, "values");
    for (const Column& c : Columns()) ZtAddField(db, 0, c.name, c.type, c.length, c.decimal);
    ZtSaveDbInfo(db);
    ZtLoadDb(db);
    ZtUnLockDb(db);
  }
  ~Values() override { ZtDeleteDb(db); }
  TempDirectory directory;
  ZtDbHandle db = nullptr;
};

std::string Stored(ZtDbHandle db, const Row& row, int field) {
  int type = -1;
  const char* bytes = ZtGetField(db, row, field, &type);
  EXPECT_EQ(type, Columns()[static_cast<std::size_t>(field)].type);
  return std::string(bytes, static_cast<std::size_t>(Columns()[static_cast<std::size_t>(field)].length));
}

void ExpectEveryValue(ZtDbHandle db, const Row& row) {
  for (int field = 0; field < static_cast<int>(Columns().size()); ++field) {
    const Column& c = Columns()[static_cast<std::size_t>(field)];
    EXPECT_EQ(Stored(db, row, field), c.stored) << c.name;
  }
}

TEST_F(Values, AreStoredAsTheirTypeSaysInNewAndInStoredRows) {
  Row row(db);
  ASSERT_TRUE(ZtNewRecord(db, 0, row));
  for (int pass = 0; pass < 2; ++pass) {
    for (int field = 0; field < static_cast<int>(Columns().size()); ++field) {
      const GuardedBytes given(Columns()[static_cast<std::size_t>(field)].given);
      EXPECT_TRUE(ZtSetField(db, row, field, given.data()))
          << Columns()[static_cast<std::size_t>(field)].name;
    }
    ExpectEveryValue(db, row);
    ASSERT_TRUE(ZtPutRecord(db, row));
  }
  ExpectEveryValue(db, row);
}

TEST_F(Values, AreDescribedByTheirColumnsEvenWithoutARecord) {
  Row row(db);
  ASSERT_EQ(ZtGetCols(db, row), static_cast<int>(Columns().size()));
  for (int col = 0; col < ZtGetCols(db, row); ++col) {
    const Column& c = Columns()[static_cast<std::size_t>(col)];
    EXPECT_STREQ(ZtGetColName(db, row, col), c.name);
    EXPECT_EQ(ZtGetColType(db, row, col), c.type) << c.name;
    EXPECT_EQ(ZtGetColSize(db, row, col), c.length) << c.name;
    EXPECT_EQ(ZtGetColDecimal(db, row, col), c.decimal) << c.name;
  }
  EXPECT_EQ(take_error(db), 0);
  ASSERT_TRUE(ZtNewRecord(db, 0, row));
  int type = 0, offset = 0;
  for (int col = 0; col < ZtGetCols(db, row); ++col) {
    char* const expected = reinterpret_cast<char*>(raw(row).record) + 14 + offset;
    EXPECT_EQ(ZtGetColData(db, row, col), expected);
    EXPECT_EQ(ZtGetField(db, row, col, &type), expected);
    offset += ZtGetColSize(db, row, col);
  }
  ZtPutRecord(db, row);
}

TEST_F(Values, OfBadColumnsAreRefusedWithoutTouchingTheRow) {
  Row row(db);
  ASSERT_TRUE(ZtNewRecord(db, 0, row));
  ASSERT_TRUE(ZtPutRecord(db, row));
  const std::string before(reinterpret_cast<char*>(raw(row).record), 14);
  for (int bad : {-1, static_cast<int>(Columns().size()), INT_MAX, INT_MIN}) {
    int type = 77;
    EXPECT_FALSE(ZtSetField(db, row, bad, "12345678"));
    EXPECT_EQ(take_error(db), -1008) << bad;
    EXPECT_EQ(ZtGetField(db, row, bad, &type), nullptr);
    EXPECT_EQ(take_error(db), -1008) << bad;
    EXPECT_EQ(ZtGetColData(db, row, bad), nullptr);
    EXPECT_EQ(take_error(db), -1008) << bad;
    EXPECT_EQ(ZtGetColName(db, row, bad), nullptr);
    EXPECT_EQ(take_error(db), -1008) << bad;
    for (auto* describe : {ZtGetColType, ZtGetColSize, ZtGetColDecimal}) {
      EXPECT_EQ(describe(db, row, bad), 0);
      EXPECT_EQ(take_error(db), -1008) << bad;
    }
  }
  EXPECT_EQ(std::string(reinterpret_cast<char*>(raw(row).record), 14), before) << "nor marked it changed";
}

TEST_F(Values, AreRefusedByHandlesThatHoldNoRecord) {
  Row row(db);
  int type = 77;
  EXPECT_EQ(ZtGetField(db, row, 0, &type), nullptr);
  EXPECT_EQ(type, 77);
  EXPECT_EQ(take_error(db), 0) << "a missing record is no error here";
  EXPECT_FALSE(ZtSetField(db, row, 0, "abc"));
  EXPECT_EQ(take_error(db), -1008);
  EXPECT_EQ(ZtGetColData(db, row, 0), nullptr);
  EXPECT_EQ(take_error(db), -1008);
  EXPECT_EQ(ZtGetRecordId(db, row), 0);
  EXPECT_EQ(take_error(db), -1008);
  ZtDeleteRecord(db, row);
  EXPECT_EQ(take_error(db), -1008);
  EXPECT_TRUE(ZtPutRecord(db, row)) << "nothing new, nothing to store";
  EXPECT_FALSE(ZtNewRecord(db, 1, row));
  EXPECT_EQ(take_error(db), -1008);
  EXPECT_EQ(raw(row).record, nullptr);
}

TEST_F(Values, StartAllZeroUnderTheIdMinusOne) {
  Row row(db), twin(db);
  ASSERT_TRUE(ZtNewRecord(db, 0, row));
  EXPECT_EQ(ZtGetRecordId(db, row), -1);
  const int length = db->database[0].recordlength + 14 - 8;
  EXPECT_EQ(std::string(reinterpret_cast<char*>(raw(row).record) + 8, static_cast<std::size_t>(length)),
            std::string(static_cast<std::size_t>(length), '\0'));
  ZtDupRecord(row, twin);
  EXPECT_EQ(raw(twin).record, raw(row).record);
  EXPECT_TRUE(raw(twin).newrow);
  EXPECT_EQ(raw(twin).tableid, raw(row).tableid);
  ASSERT_TRUE(ZtPutRecord(db, row));
}

TEST(ReadOnlyHandle, RefusesEveryChangeOfARow) {
  Ledger ledger;
  {
    Transaction all(ledger.writer());
    ASSERT_EQ(Ledger::put(ledger.writer(), 1, 10), 0);
  }
  Database reader = ledger.open(ZT_MODE_READ_ONLY);
  Row row(reader);
  EXPECT_FALSE(ZtNewRecord(reader, 0, row));
  EXPECT_EQ(take_error(reader), -1004);
  EXPECT_EQ(raw(row).record, nullptr);
  Query query(reader, Ledger::by_id, {1});
  ASSERT_TRUE(query.find(ZT_OP_EQUAL));
  ASSERT_TRUE(query.fetch(row));
  EXPECT_FALSE(row.set(Ledger::amount, 2.0));
  EXPECT_EQ(take_error(reader), -1004);
  ZtDeleteRecord(reader, row);
  EXPECT_EQ(take_error(reader), -1004);
  EXPECT_FALSE(ZtPutRecord(reader, row));
  EXPECT_EQ(take_error(reader), -1004);
  EXPECT_EQ(row.get<double>(Ledger::amount), 0.0);
  EXPECT_TRUE(query.find(ZT_OP_EQUAL));
}

TEST(StoredRow, KeepsItsIndexedFields) {
  Ledger ledger;
  Row row(ledger.writer());
  Transaction all(ledger.writer());
  ASSERT_TRUE(Ledger::put(ledger.writer(), row, 1, 10, "a"));
  const int updateno = raw(row).record->updateno;
  for (int field : {Ledger::id, Ledger::group, Ledger::tag}) {
    EXPECT_FALSE(ZtSetField(ledger.writer(), row, field, "1234567"));
    EXPECT_EQ(take_error(ledger.writer()), -1004);
  }
  EXPECT_EQ(row.get<int>(Ledger::id), 1);
  EXPECT_EQ(raw(row).record->updateno, updateno);
  EXPECT_EQ(raw(row).record->duty, 0);
}

}  // namespace
