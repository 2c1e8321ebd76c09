// The bytes of a fixed database, as any other program on the host sees them. Every expected position was worked
// out from the documented rules (docs/memory-layout.md), never with the library's own arithmetic.
//
//   table 0 "alpha": a INT | s STRING[5] | d DOUBLE, 2 places | n SHORT      19 bytes a record
//   index 0 "by a" (unique), index 1 "by s, d";      table 1 "beta": k INT8, no index
#include <gtest/gtest.h>

#include <array>
#include <optional>

#include "base/features.h"
#include "support/raw_memory.h"
#include "support/schema.h"

namespace cachet::test {
namespace {

enum Status : std::uint8_t { red = 1, internal = 2, left = 4, root = 8, head = 16 };
using Four = std::array<std::uint32_t, 4>;

// 2 tables, 2 index names, 5 fields, 3 index fields.
enum : std::int64_t {
  tables = 192,
  index_names = 384,
  fields = 576,
  index_fields = 1096,
  catalog_end = 1144
};
// The first record (33 bytes, 40 rounded) would start 4 bytes below a page boundary: it moves down to 8 bytes.
constexpr ZTINT8 size_bytes = 64 * 4096 - 4 + 40;
constexpr std::int64_t records[] = {262136, 261976, 261872, 261728};
constexpr std::int64_t list_items[] = {262120, 261960, 261856, 261712};

struct Alpha {
  int a;
  char s[5];
  double d;
};

class GoldenBytes : public DatabaseTest {
 protected:
  void SetUp() override {
    define_table(db, "alpha",
                 {{"a", FIELD_INT, 4, -1},
                  {"s", FIELD_STRING, 5, -1},
                  {"d", FIELD_DOUBLE, 8, 2},
                  {"n", FIELD_SHORT, 2, 0}},
                 {{"by a", ZT_INDEX_UNIQUE, {0}}, {"by s, d", ZT_INDEX_DUPLICATES, {1, 2}}});
    define_table(db, "beta", {{"k", FIELD_INT8, 8, -1}}, {});
    finish_create(db);
    ZtBeginTransaction(db);
    Row row(db);
    for (const Alpha& values : {Alpha{10, "bb", 1.5}, {20, "bb", 1.5}, {5, "aa", -1}}) {
      ASSERT_TRUE(ZtNewRecord(db, 0, row) && row.set(0, values.a) && ZtSetField(db, row, 1, values.s) &&
                  row.set(2, values.d) && ZtPutRecord(db, row));
    }
    ASSERT_TRUE(ZtNewRecord(db, 1, row) && row.set(0, 7LL) && ZtPutRecord(db, row));
    ZtBeginTransaction(db);
    delete_second_and_walk_over_it(row);
    Condition by_a(0, 10);
    ASSERT_TRUE(ZtFindRecord(db, 0, by_a, ZT_OP_EQUAL) && ZtGetRecord(db, by_a, row));
    EXPECT_TRUE(row.set<short>(3, -2) && row.set<short>(3, -3)) << "one change cycle";
    ZtCommitTransaction(db);
    memory.emplace(directory.base());
  }
  void TearDown() override {
    memory.reset();
    db.close();
    DatabaseTest::TearDown();
  }

  // Unlinks record 1 from the current list of "bb", 1.5; its entry under a = 20 is never passed.
  void delete_second_and_walk_over_it(Row& row) {
    Condition by_a(0, 20), by_s_and_d(1, "bb");
    ASSERT_TRUE(ZtFindRecord(db, 0, by_a, ZT_OP_EQUAL) && ZtGetRecord(db, by_a, row));
    ZtDeleteRecord(db, row);
    const double d = 1.5;
    ZtAddConditionIndexItem(by_s_and_d, FIELD_DOUBLE, sizeof d, &d);
    ASSERT_TRUE(ZtFindRecord(db, 0, by_s_and_d, ZT_OP_EQUAL));
    EXPECT_FALSE(ZtNextRecord(db, by_s_and_d));
  }

  Database db = begin_create(directory, size_bytes);
  std::optional<RawMemory> memory;
};

TEST_F(GoldenBytes, HeaderFillsTheFirst192Bytes) {
  EXPECT_EQ(memory->sizes, std::vector<std::size_t>{size_bytes});
  EXPECT_EQ(memory->bytes(0, 80), directory.base() + std::string(80 - directory.base().size(), '\0'));
  EXPECT_EQ(memory->bytes(80, 32), version_text + std::string(32 - std::strlen(version_text), '\0'));
  const std::array<std::int64_t, 10> expected = {0, size_bytes, 1920, list_items[3], 4, 2,
                                                 5, 2,          3,    catalog_end};
  EXPECT_EQ((memory->at<std::array<std::int64_t, 10>>(112)), expected);
  ZTINT8 size = 0, used = 0;
  ZtMemoryInfo(db, &size, &used);
  EXPECT_EQ(size, size_bytes);
  EXPECT_EQ(used, 1920 + size_bytes - list_items[3]);
}

TEST_F(GoldenBytes, CatalogLiesBehindTheHeaderWithoutGaps) {
  const struct {
    std::int64_t name_at;
    const char* name;
    std::int64_t words_at;
    std::vector<int> words;
  } cases[] = {{tables, "alpha", tables + 80, {1, 0, 3, 0}},
               {tables + 96, "beta", tables + 176, {1, 1, 1, 0}},
               {index_names, "by a", index_names + 80, {1, 0, 0, 0}},
               {index_names + 96, "by s, d", index_names + 176, {0, 1, 0, 0}},
               {fields + 8, "a", fields + 88, {2, 4, -1, 0, 0, 1}},  // and the next field's ids
               {fields + 112, "s", fields + 192, {7, 5, -1, 0, 0, 2}},
               {fields + 216, "d", fields + 296, {8, 8, 2, 0, 0, 3}},
               {fields + 320, "n", fields + 400, {1, 2, 0, 0, 1, 0}},
               {fields + 424, "k", fields + 504, {9, 8, -1, 0}},
               {fields + 8, "a", index_fields, {0, 0, 0, 0, 0, 1, 1, 0, 0, 1, 2, 0}}};
  for (const auto& c : cases) {
    EXPECT_EQ(memory->text(c.name_at), c.name);
    std::vector<int> words(c.words.size());
    std::memcpy(words.data(), memory->address(c.words_at), 4 * words.size());
    EXPECT_EQ(words, c.words) << c.name;
  }
  for (int i : {0, 1}) EXPECT_EQ(memory->i8(tables + 96 * i + 79), 0) << "duty, after the commit";
}

// Index "by a", inserted 10, 20, 5: the list runs 20, 10, 5, the largest key first. Record ids, inserted 0, 1, 2,
// each in front: the new internal node replaces the left child.
TEST_F(GoldenBytes, NodesHoldTheTreesAndTheirThreads) {
  const struct {
    const char* name;
    std::int64_t number;
    Four words;
    std::int64_t key, value;  // external: the item, twice; internal: greatest on the left, least on the right
  } nodes[] = {{"head of alpha's records", 36, {57, 44, 50, head}, 0, 0},
               {"head of by a", 37, {46, 52, 47, head}, 0, 0},
               {"head of by s, d", 38, {43, 55, 56, head}, 0, 0},
               {"head of beta's records", 39, {59, 59, 59, head}, 0, 0},
               {"a = 20", 46, {41, 37, 47, left}, 261928, 261928},
               {"a = 10", 41, {52, 46, 53, left}, 262088, 262088},
               {"a = 5", 52, {37, 41, 53, 0}, 261824, 261824},
               {"above 20", 47, {46, 53, 37, internal | root}, 46, 41},
               {"above 10 and 5", 53, {41, 52, 47, internal | red}, 41, 52},
               {"record 2", 57, {49, 36, 58, left}, list_items[2], list_items[2]},
               {"record 1", 49, {44, 57, 58, 0}, list_items[1], list_items[1]},
               {"record 0", 44, {36, 49, 50, 0}, list_items[0], list_items[0]},
               {"above 0", 50, {58, 44, 36, internal | root}, 49, 44},
               {"above 2 and 1", 58, {57, 49, 50, internal | red | left}, 57, 49},
               {"beta's record 0", 59, {39, 39, 39, root}, list_items[3], list_items[3]}};
  for (const auto& node : nodes) {
    SCOPED_TRACE(node.name);
    const std::int64_t at = node.number * 32;
    EXPECT_EQ((memory->at<std::array<std::uint32_t, 3>>(at)),
              (std::array{node.words[0], node.words[1], node.words[2]}));
    EXPECT_EQ(memory->at<std::uint8_t>(at + 12), node.words[3]) << "status";
    if (node.words[3] == head) continue;
    if ((node.words[3] & internal) != 0) {
      EXPECT_EQ(memory->at<std::uint32_t>(at + 13), node.key);
      EXPECT_EQ(memory->at<std::uint32_t>(at + 21), node.value);
    } else {
      EXPECT_EQ(memory->i64(at + 13), node.key);
      EXPECT_EQ(memory->i64(at + 21), node.value);
    }
  }
}

// What an internal node keeps, in bytes that its layout leaves unused, of the key it compares with.
TEST_F(GoldenBytes, InternalNodesHoldTheirSeparators) {
  const struct {
    std::int64_t number;
    std::array<std::uint8_t, 4> front;  // bytes 17 to 20
    std::array<std::uint8_t, 7> rest;   // bytes 25 to 31
  } nodes[] = {{47, {0x80, 0, 0, 20}, {0, 0, FIELD_INT << 4 | 4, 1}},
               {53, {0x80, 0, 0, 10}, {0, 0, FIELD_INT << 4 | 4, 1}},
               {50, {0x80, 0, 0, 0}, {1, 0, FIELD_INT8 << 4 | 8, 1}},
               {58, {0x80, 0, 0, 0}, {2, 0, FIELD_INT8 << 4 | 8, 1}}};
  for (const auto& node : nodes) {
    const std::int64_t at = node.number * 32;
    const bool here = features::separators;
    EXPECT_EQ((memory->at<decltype(node.front)>(at + 17)), here ? node.front : decltype(node.front){})
        << node.number;
    EXPECT_EQ((memory->at<decltype(node.rest)>(at + 25)), here ? node.rest : decltype(node.rest){})
        << node.number;
  }
}

TEST_F(GoldenBytes, ItemsHeadTheOriginListAndTheCurrentList) {
  const struct {
    std::int64_t item, key_fields;
    std::int8_t count;
    Four lists;
  } items[] = {{262088, 262072, 1, {40, 40, 40, 40}},
               {261928, 261912, 1, {45, 45, 45, 45}},  // deleted, and not unlinked
               {261776, 261752, 2, {54, 54, 54, 54}},
               {262040, 262016, 2, {42, 48, 42, 42}}};
  for (const auto& i : items) {
    EXPECT_EQ(memory->i64(i.item), i.key_fields);
    EXPECT_EQ((memory->at<std::array<std::int8_t, 4>>(i.item + 8)),
              (std::array<std::int8_t, 4>{i.count, i.count, 1, 0}))
        << "twice the count, sharememory, reverse";
    EXPECT_EQ(memory->at<Four>(i.item + 12), i.lists) << i.item;
  }
  const struct {
    std::int64_t at, data;
    std::int8_t type, length;
  } key_fields[] = {{262072, records[0] + 14, FIELD_INT, 4},
                    {262016, records[0] + 18, FIELD_STRING, 5},
                    {262028, records[0] + 23, FIELD_DOUBLE, 8}};
  for (const auto& f : key_fields) {
    EXPECT_EQ(memory->i64(f.at), f.data);
    EXPECT_EQ((memory->at<std::array<std::int8_t, 4>>(f.at + 8)),
              (std::array<std::int8_t, 4>{f.type, 0, f.length}));
  }
  const struct {
    std::int64_t number, record;
    Four links;  // origin next and previous, current next and previous
  } entries[] = {{45, records[1], {}}, {42, records[0], {48}}, {48, records[1], {0, 42, 0, 42}}};
  for (const auto& e : entries) {
    EXPECT_EQ(memory->i64(e.number * 32), e.record);
    EXPECT_EQ(memory->at<Four>(e.number * 32 + 8), e.links) << e.number;
  }
}

TEST_F(GoldenBytes, RecordsArePackedBehindAFourteenByteHeader) {
  static_assert(records[0] % 4096 == 4088, "the first 8 bytes end exactly at the page boundary");
  const struct {
    int updateno, deleted;
    Alpha values;
    short n;
  } expected[] = {{1, 0, {10, "bb", 1.5}, -3}, {0, 1, {20, "bb", 1.5}, 0}, {0, 0, {5, "aa", -1}, 0}};
  for (int i = 0; i < 3; ++i) {
    const std::int64_t at = records[i];
    EXPECT_EQ(memory->i64(at), i);
    EXPECT_EQ(memory->i32(at + 8), expected[i].updateno) << i;
    EXPECT_EQ(memory->i16(at + 12), expected[i].deleted << 8) << "duty 0; deleted";
    EXPECT_EQ(memory->i32(at + 14), expected[i].values.a);
    EXPECT_EQ(memory->bytes(at + 18, 5), std::string(expected[i].values.s, 5));
    EXPECT_EQ(memory->at<double>(at + 23), expected[i].values.d);
    EXPECT_EQ(memory->i16(at + 31), expected[i].n);
  }
  EXPECT_EQ(memory->i64(records[3] + 14), 7);
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(memory->i64(list_items[i]), i == 3 ? 0 : i) << "record id";
    EXPECT_EQ(memory->i64(list_items[i] + 8), records[i]);
  }
}

// 130 tables: the heads begin 384 bytes into page 3, and its last slot stays unused.
TEST_F(DatabaseTest, HeadsSkipTheLastSlotOfAPageForCreatorAndOpener) {
  constexpr int table_count = 130;
  constexpr std::int64_t heads_begin = 192 + table_count * 96;
  constexpr std::int64_t heads_in_first_page = (4 * 4096 - heads_begin) / 32 - 1;
  Database creator = begin_create(directory);
  for (int i = 0; i < table_count; ++i) ZtAddTable(creator, "t");
  finish_create(creator);
  Database opener = open_items(directory);
  const RawMemory memory(directory.base());
  for (int table : {0, 113, 114, 115, 116, 129}) {
    Row row(opener);
    ASSERT_TRUE(ZtNewRecord(opener, table, row) && ZtPutRecord(opener, row));
    const std::int64_t head_offset = table < heads_in_first_page
                                         ? heads_begin + 32 * table
                                         : 4 * 4096 + 32 * (table - heads_in_first_page);
    EXPECT_EQ(memory.at<std::uint8_t>(head_offset + 12), head) << table;
    EXPECT_NE(memory.u32(head_offset), head_offset / 32) << "the opener's record hangs here, table " << table;
  }
  EXPECT_EQ(memory.bytes(4 * 4096 - 32, 32), std::string(32, '\0'));
}

}  // namespace
}  // namespace cachet::test
