// The bytes of a fixed database, as any other program on the host sees them. Every expected position is
// worked out here from the documented rules (docs/memory-layout.md), never with the library's own arithmetic.
//
//   table 0 "alpha": a INT | s STRING[5] | d DOUBLE, 2 places | n SHORT      19 bytes a record
//   index 0 "by a" (unique), index 1 "by s, d";      table 1 "beta": k INT8, no index
#include <gtest/gtest.h>

#include <array>
#include <optional>

#include "support/raw_memory.h"
#include "support/schema.h"

namespace cachet::test {
namespace {

// Where the documented rules put the next node slot and the next data block.
struct Fronts {
  std::int64_t node;
  std::int64_t data;

  std::uint32_t slot() {
    if (node / 4096 != (node + 32) / 4096) node = (node / 4096 + 1) * 4096;
    node += 32;
    return static_cast<std::uint32_t>((node - 32) / 32);
  }
  std::int64_t block(std::int64_t bytes, bool starts_in_one_page = false) {
    data -= (bytes + 7) / 8 * 8;
    if (starts_in_one_page && data / 4096 != (data + 8) / 4096) data = (data + 8) / 4096 * 4096 - 8;
    return data;
  }
};

enum Status : std::uint8_t { red = 1, internal = 2, left = 4, root = 8, head = 16 };

// 2 tables, 2 index names, 5 fields, 3 index fields.
constexpr std::int64_t tables = 192;
constexpr std::int64_t index_names = tables + 2 * 96;
constexpr std::int64_t fields = index_names + 2 * 96;
constexpr std::int64_t index_fields = fields + 5 * 104;
constexpr std::int64_t catalog_end = index_fields + 3 * 16;
constexpr std::int64_t first_head = (catalog_end + 31) / 32 * 32;
// The first record (33 bytes, 40 rounded) would start 4 bytes below a page boundary.
constexpr ZTINT8 size_bytes = 64 * 4096 - 4 + 40;

struct Alpha {
  int a;
  char s[5];
  double d;
};

class GoldenBytes : public DatabaseTest {
 protected:
  void SetUp() override {
    db = begin_create(directory, size_bytes);
    ASSERT_TRUE(db.opened);
    define();
    finish_create(db);
    ZtBeginTransaction(db);
    put({10, "bb", 1.5});
    put({20, "bb", 1.5});
    put({5, "aa", -1});
    put_beta(7);
    ZtCommitTransaction(db);
    ZtBeginTransaction(db);
    delete_second_and_walk_over_it();
    change_first();
    ZtCommitTransaction(db);
    memory.emplace(directory.base());
    expect_places();
  }
  void TearDown() override {
    memory.reset();
    db.close();
    DatabaseTest::TearDown();
  }

  void define() {
    define_table(
        db, "alpha",
        {{"a", FIELD_INT, 4, -1}, {"s", FIELD_STRING, 5, -1}, {"d", FIELD_DOUBLE, 8, 2}, {"n", FIELD_SHORT, 2, 0}},
        {{"by a", ZT_INDEX_UNIQUE, {0}}, {"by s, d", ZT_INDEX_DUPLICATES, {1, 2}}});
    define_table(db, "beta", {{"k", FIELD_INT8, 8, -1}}, {});
  }

  void put(const Alpha& values) {
    Row row(db);
    ASSERT_TRUE(ZtNewRecord(db, 0, row) && row.set(0, values.a) && ZtSetField(db, row, 1, values.s) &&
                row.set(2, values.d) && ZtPutRecord(db, row));
  }
  void put_beta(long long k) {
    Row row(db);
    ASSERT_TRUE(ZtNewRecord(db, 1, row) && row.set(0, k) && ZtPutRecord(db, row));
  }

  // Unlinks record 1 from the current list of "bb", 1.5; its entry under a = 20 is never passed.
  void delete_second_and_walk_over_it() {
    Row row(db);
    Condition by_a(0, 20);
    ASSERT_TRUE(ZtFindRecord(db, 0, by_a, ZT_OP_EQUAL) && ZtGetRecord(db, by_a, row));
    ZtDeleteRecord(db, row);
    Condition by_s_and_d(1, "bb");
    const double d = 1.5;
    ZtAddConditionIndexItem(by_s_and_d, FIELD_DOUBLE, sizeof d, &d);
    ASSERT_TRUE(ZtFindRecord(db, 0, by_s_and_d, ZT_OP_EQUAL));
    EXPECT_FALSE(ZtNextRecord(db, by_s_and_d));
  }

  // Twice in one transaction: one change cycle.
  void change_first() {
    Row row(db);
    Condition by_a(0, 10);
    ASSERT_TRUE(ZtFindRecord(db, 0, by_a, ZT_OP_EQUAL) && ZtGetRecord(db, by_a, row));
    EXPECT_TRUE(row.set<short>(3, -2) && row.set<short>(3, -3));
  }

  // Replays the inserts on the two fronts.
  void expect_places() {
    for (std::uint32_t& slot : heads) slot = fronts.slot();
    take_record(0, 33);
    take_key(0, a10, 1);
    take_key(0, bb, 2);
    id0 = fronts.slot();
    take_record(1, 33);
    take_key(1, a20, 1);
    bb_second_entry = fronts.slot();
    take_external(id1);
    take_record(2, 33);
    take_key(1, a5, 1);
    take_key(1, aa, 2);
    take_external(id2);
    take_record(3, 22);
    beta0 = fronts.slot();
  }

  struct Key {
    std::int64_t item, fields;
    std::uint32_t entry, external, internal;
  };
  struct Branch {
    std::uint32_t external, internal;
  };

  void take_record(int i, std::int64_t bytes) {
    records[i] = fronts.block(bytes, true);
    list_items[i] = fronts.block(16);
  }
  void take_key(bool tree_has_nodes, Key& key, int field_count) {
    key.item = fronts.block(28);
    key.fields = fronts.block(12 * field_count);
    key.entry = fronts.slot();
    key.external = fronts.slot();
    key.internal = tree_has_nodes ? fronts.slot() : 0;
  }
  void take_external(Branch& branch) {
    branch.external = fronts.slot();
    branch.internal = fronts.slot();
  }

  struct Words {
    std::uint32_t first, second, parent;
    int status;
    bool operator==(const Words&) const = default;
    friend std::ostream& operator<<(std::ostream& out, const Words& w) {
      return out << w.first << ' ' << w.second << " parent " << w.parent << " status " << w.status;
    }
  };
  Words node(std::uint32_t n) const {
    const std::int64_t at = std::int64_t{n} * 32;
    return {memory->u32(at), memory->u32(at + 4), memory->u32(at + 8), memory->at<std::uint8_t>(at + 12)};
  }
  // A key: its fields, how many twice, whether they lie in shared memory, not reversed; then its lists.
  void expect_item(const Key& key, std::int8_t count, std::array<std::uint32_t, 4> lists) const {
    EXPECT_EQ(memory->i64(key.item), key.fields);
    EXPECT_EQ((memory->at<std::array<std::int8_t, 4>>(key.item + 8)), (std::array<std::int8_t, 4>{count, count, 1}));
    EXPECT_EQ((memory->at<std::array<std::uint32_t, 4>>(key.item + 12)), lists);
  }
  void expect_key_field(std::int64_t at, std::int64_t data, std::int8_t type, std::int8_t length) const {
    EXPECT_EQ(memory->i64(at), data);
    EXPECT_EQ((memory->at<std::array<std::int8_t, 4>>(at + 8)), (std::array<std::int8_t, 4>{type, 0, length}));
  }
  // Links: origin next and previous, current next and previous.
  void expect_entry(std::uint32_t n, std::int64_t record, std::array<std::uint32_t, 4> links) const {
    EXPECT_EQ(memory->i64(std::int64_t{n} * 32), record);
    EXPECT_EQ((memory->at<std::array<std::uint32_t, 4>>(std::int64_t{n} * 32 + 8)), links);
  }

  Database db;
  std::optional<RawMemory> memory;
  Fronts fronts{first_head, size_bytes};
  std::uint32_t heads[4];  // alpha's record list, by a, by s and d; beta's record list
  std::int64_t records[4], list_items[4];
  Key a10, a20, a5, bb, aa;
  std::uint32_t id0, bb_second_entry, beta0;
  Branch id1, id2;
};

TEST_F(GoldenBytes, HeaderFillsTheFirst192Bytes) {
  EXPECT_EQ(memory->sizes, std::vector<std::size_t>{size_bytes});
  EXPECT_EQ(memory->bytes(0, 80), directory.base() + std::string(80 - directory.base().size(), '\0'));
  EXPECT_EQ(memory->bytes(80, 32), version_text + std::string(32 - std::strlen(version_text), '\0'));
  const std::array<std::int64_t, 10> expected = {0, size_bytes, fronts.node, fronts.data, 4,
                                                 2, 5,          2,           3,           catalog_end};
  EXPECT_EQ((memory->at<std::array<std::int64_t, 10>>(112)), expected);
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

TEST_F(GoldenBytes, HeadsFollowTheCatalogInTheOrderOfTheTables) {
  EXPECT_EQ(heads[0] * 32, first_head);
  EXPECT_EQ(node(heads[0]), (Words{id2.external, id0, id1.internal, head}));
  EXPECT_EQ(node(heads[1]), (Words{a20.external, a5.external, a20.internal, head}));
  EXPECT_EQ(node(heads[2]), (Words{bb.external, aa.external, aa.internal, head}));
  EXPECT_EQ(node(heads[3]), (Words{beta0, beta0, beta0, head}));
}

// Index "by a", inserted 10, 20, 5: the list runs 20, 10, 5, the largest key first. Record ids, inserted 0, 1, 2,
// each in front: the new internal node replaces the left child.
TEST_F(GoldenBytes, TreesAreThreadedFromTheLargestKeyToTheSmallest) {
  const struct {
    std::uint32_t number;
    Words words;
    std::int64_t key, value;  // external: the item, twice; internal: greatest on the left, least on the right
  } nodes[] = {
      {a20.external, {a10.external, heads[1], a20.internal, left}, a20.item, a20.item},
      {a10.external, {a5.external, a20.external, a5.internal, left}, a10.item, a10.item},
      {a5.external, {heads[1], a10.external, a5.internal, 0}, a5.item, a5.item},
      {a20.internal, {a20.external, a5.internal, heads[1], internal | root}, a20.external, a10.external},
      {a5.internal, {a10.external, a5.external, a20.internal, internal | red}, a10.external, a5.external},
      {id2.external, {id1.external, heads[0], id2.internal, left}, list_items[2], list_items[2]},
      {id1.external, {id0, id2.external, id2.internal, 0}, list_items[1], list_items[1]},
      {id0, {heads[0], id1.external, id1.internal, 0}, list_items[0], list_items[0]},
      {id1.internal, {id2.internal, id0, heads[0], internal | root}, id1.external, id0},
      {id2.internal,
       {id2.external, id1.external, id1.internal, internal | red | left},
       id2.external,
       id1.external},
      {beta0, {heads[3], heads[3], heads[3], root}, list_items[3], list_items[3]},
  };
  for (int i = 0; const auto& n : nodes) {
    SCOPED_TRACE(i++);
    EXPECT_EQ(node(n.number), n.words);
    EXPECT_EQ(memory->i64(std::int64_t{n.number} * 32 + 13), n.key);
    EXPECT_EQ(memory->i64(std::int64_t{n.number} * 32 + 21), n.value);
  }
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(memory->i64(list_items[i]), i == 3 ? 0 : i) << "record id";
    EXPECT_EQ(memory->i64(list_items[i] + 8), records[i]);
  }
}

TEST_F(GoldenBytes, ItemsHeadTheOriginListAndTheCurrentList) {
  expect_item(a10, 1, {a10.entry, a10.entry, a10.entry, a10.entry});
  expect_key_field(a10.fields, records[0] + 14, FIELD_INT, 4);
  expect_item(a20, 1, {a20.entry, a20.entry, a20.entry, a20.entry});  // deleted, and not unlinked
  expect_entry(a20.entry, records[1], {0, 0, 0, 0});
  expect_item(aa, 2, {aa.entry, aa.entry, aa.entry, aa.entry});

  expect_item(bb, 2, {bb.entry, bb_second_entry, bb.entry, bb.entry});
  expect_key_field(bb.fields, records[0] + 14 + 4, FIELD_STRING, 5);
  expect_key_field(bb.fields + 12, records[0] + 14 + 9, FIELD_DOUBLE, 8);
  expect_entry(bb.entry, records[0], {bb_second_entry, 0, 0, 0});
  expect_entry(bb_second_entry, records[1], {0, bb.entry, 0, bb.entry});  // keeps its own links
}

TEST_F(GoldenBytes, RecordsArePackedBehindAFourteenByteHeader) {
  EXPECT_EQ(records[0] % 4096, 4088) << "the first 8 bytes end exactly at the page boundary";
  EXPECT_EQ(list_items[0], records[0] - 16);
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
}

// 130 tables: the heads begin 384 bytes into page 3, and its last slot stays unused.
using TreeHeads = DatabaseTest;

TEST_F(TreeHeads, SkipTheLastSlotOfAPageForCreatorAndOpener) {
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
