// Row handles that go from table to table and from handle to handle. What they keep of a table must never show.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>
#include <utility>

#include "support/schema.h"
#include "support/settings.h"

namespace {

using namespace cachet::test;

constexpr int rows = 20;
constexpr int tables = 2;
constexpr int key = 0;  // field and index of every table

// The second table has its fields elsewhere, and a longer record than the library copies in pieces.
void define(ZtDbHandle db, int widest) {
  define_table(db, "narrow", {{"key", FIELD_INT8, 8, -1}, {"value", FIELD_INT8, 8, -1}},
               {{"by key", ZT_INDEX_UNIQUE, {key}}});
  define_table(db, "wide",
               {{"key", FIELD_INT8, 8, -1}, {"text", FIELD_STRING, widest, -1}, {"value", FIELD_INT8, 8, -1}},
               {{"by key", ZT_INDEX_UNIQUE, {key}}});
}

int value_field(int table) {
  return table + 1;
}
ZTINT8 value_of(int widest, int table, ZTINT8 id) {
  return widest * 1000 + table * 100 + id;
}

// A database, with a handle that writes and one that only reads.
struct Pair {
  explicit Pair(int bytes_of_text) : widest(bytes_of_text) {
    writer = begin_create(directory);
    define(writer, widest);
    finish_create(writer);
    ZtBeginTransaction(writer);
    for (int table = 0; table < tables; ++table) {
      for (ZTINT8 id = 0; id < rows; ++id) {
        Row row(writer);
        EXPECT_TRUE(ZtNewRecord(writer, table, row) && row.set(key, id) &&
                    row.set(value_field(table), value_of(widest, table, id)) && ZtPutRecord(writer, row));
      }
    }
    ZtCommitTransaction(writer);
    reader = begin_open(directory, ZT_MODE_READ_ONLY);
    finish_open(reader);
  }

  int widest;
  TempDirectory directory;
  Database writer, reader;
};

bool get(ZtDbHandle db, int table, ZTINT8 id, ZtRecordHandle row) {
  Condition condition(key);
  condition.add(id);
  return ZtFindRecord(db, table, condition, ZT_OP_EQUAL) && ZtGetRecord(db, condition, row);
}

ZTINT8 number(ZtDbHandle db, ZtRecordHandle row, int field) {
  int type = -1;
  ZTINT8 value = -1;
  const char* const data = ZtGetField(db, row, field, &type);
  EXPECT_NE(data, nullptr);
  EXPECT_EQ(type, FIELD_INT8);
  if (data != nullptr) std::memcpy(&value, data, sizeof value);
  return value;
}

TEST(Rows, AreReadRightWhateverTheyHeldBefore) {
  std::array<Pair, 3> databases = {Pair(4), Pair(40), Pair(400)};
  // As if its segments lay anywhere; put right again before it closes.
  char*& flat_begin = base_of(databases[1].writer)->flat_begin;
  char* const begin = std::exchange(flat_begin, nullptr);
  std::mt19937 random(announced_seed());
  const auto below = [&](int limit) { return static_cast<int>(random() % static_cast<unsigned>(limit)); };
  ZtRecordHandle row = nullptr;
  ZtCreateRecord(&row);
  int widest = 0, table = 0;
  ZtDbHandle db = nullptr;
  for (int read = 0; read < 2000; ++read) {
    if (db == nullptr || below(3) == 0) {
      const Pair& pair = databases[static_cast<std::size_t>(below(3))];
      widest = pair.widest;
      db = below(2) == 0 ? pair.writer : pair.reader;
    }
    if (below(2) == 0) table = below(tables);
    const ZTINT8 id = below(rows);
    ASSERT_TRUE(get(db, table, id, row));
    ASSERT_EQ(number(db, row, key), id);
    ASSERT_EQ(number(db, row, value_field(table)), value_of(widest, table, id));
    EXPECT_EQ(ZtGetCols(db, row), 2 + table);
  }
  flat_begin = begin;
  ASSERT_TRUE(get(databases[0].reader, 0, 1, row));  // a copy, which only its own kind of handle frees
  ZtCloseRecord(databases[0].reader, row);
}

TEST(Rows, KnowTheirFieldsAndNoOthers) {
  Pair pair(4);
  silence(pair.reader);
  Row row(pair.reader);
  int type = -1;
  EXPECT_EQ(ZtGetField(pair.reader, row, key, &type), nullptr) << "before the first record";
  ASSERT_TRUE(get(pair.reader, 0, 1, row));
  for (const int field : {2, 3, -1}) {
    EXPECT_EQ(ZtGetField(pair.reader, row, field, &type), nullptr) << field;
    EXPECT_NE(last_error(pair.reader).code, 0) << field;
  }
}

TEST(Rows, OfAWriterAreNewOnesAsSoonAsTheyAreAskedToBe) {
  Pair pair(4);
  Row row(pair.writer);
  ASSERT_TRUE(get(pair.writer, 1, 7, row));
  ASSERT_TRUE(ZtNewRecord(pair.writer, 0, row));
  EXPECT_EQ(number(pair.writer, row, key), 0);
  EXPECT_EQ(ZtGetCols(pair.writer, row), 2);
  EXPECT_TRUE(row.set(value_field(0), ZTINT8{5}));
  EXPECT_EQ(number(pair.writer, row, value_field(0)), 5);
  EXPECT_TRUE(row.set<ZTINT8>(key, rows) && ZtPutRecord(pair.writer, row));
  EXPECT_EQ(number(pair.writer, row, key), rows);
  ASSERT_TRUE(get(pair.writer, 1, 7, row));
  EXPECT_EQ(number(pair.writer, row, value_field(1)), value_of(4, 1, 7));
}

// A field that comes while a row holds a record of the table.
TEST(Rows, LookAgainWhenTheirTableHasGrown) {
  Pair pair(4);
  Row row(pair.reader);
  ASSERT_TRUE(get(pair.reader, 0, 3, row));
  ZtAddField(pair.reader, 0, "late", FIELD_SHORT, 2, -1);
  int type = -1;
  EXPECT_NE(ZtGetField(pair.reader, row, 2, &type), nullptr);
  EXPECT_EQ(type, FIELD_SHORT);
  ASSERT_TRUE(get(pair.reader, 0, 3, row));
  EXPECT_EQ(number(pair.reader, row, value_field(0)), value_of(4, 0, 3));
}

}  // namespace
