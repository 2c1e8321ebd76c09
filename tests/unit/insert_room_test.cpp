// An insert into nearly full memory: refused as a whole, before anything changes, or stored as a whole. The
// allocator's own way out, the end of the process, must never come in the middle of it.
#include <gtest/gtest.h>

#include "support/child_process.h"
#include "support/schema.h"
#include "support/texts.h"

namespace cachet::test {
namespace {

constexpr int went_through = 42;  // an exit of the allocator has status 0

// Records of 95 KiB under keys of 40 fields: an insert needs more than the 81920 bytes that are asked for first.
struct InsertRoom : DatabaseTest {
  void SetUp() override {
    db = begin_create(directory, 256 << 10);
    const std::vector<int> key(40, 0);
    define_table(
        db, "large",
        {{"id", FIELD_INT, 4, -1}, {"a", FIELD_STRING, 32000, -1}, {"b", FIELD_STRING, 65000, -1}},
        {{"i", ZT_INDEX_UNIQUE, key}, {"j", ZT_INDEX_DUPLICATES, key}, {"k", ZT_INDEX_DUPLICATES, key}});
    finish_create(db);
    silence(db);
    Row row(db);
    ASSERT_TRUE(ZtNewRecord(db, 0, row) && row.set(0, 7) && ZtPutRecord(db, row));
  }
  void TearDown() override {
    db.close();
    DatabaseTest::TearDown();
  }
  std::string bytes_in_use() const {
    const Rb_memory* const header = base_of(db)->memory;
    const char* const begin = reinterpret_cast<const char*>(header);
    return std::string(begin, begin + header->nodeoffset) +
           std::string(begin + header->dataoffset, begin + header->size);
  }
  // Puts a new row with so much free and returns the error code; the rest runs in a process of its own.
  int put_with_free(ZTINT8 bytes, int id) {
    base_of(db)->memory->dataoffset = base_of(db)->memory->nodeoffset + bytes;
    const std::string before = bytes_in_use();
    Row row(db);
    EXPECT_TRUE(ZtNewRecord(db, 0, row) && row.set(0, id));
    if (ZtPutRecord(db, row)) return ZT_OK;
    EXPECT_EQ(bytes_in_use(), before);
    const Error error = last_error(db);
    if (error.code != ZT_ERR_NO_MEMORY) return error.code;
    EXPECT_EQ(error.text, gbk(message::memory_low, static_cast<int>(bytes)));
    EXPECT_EQ(row.get<int>(0), id) << "the row stays in the handle";
    return error.code;
  }

  Database db;
};

TEST_F(InsertRoom, IsFoundOutBeforeAnythingChanges) {
  Child child([&](Gate&) {
    ZTINT8 free_bytes = 95000;
    while (put_with_free(free_bytes, 1) == ZT_ERR_NO_MEMORY) free_bytes += 4;
    EXPECT_GT(free_bytes, 97032) << "the record alone takes so much, its keys more";
    EXPECT_LE(base_of(db)->memory->nodeoffset, base_of(db)->memory->dataoffset);
    return HasFailure() ? 1 : went_through;
  });
  EXPECT_EQ(child.exit_status(), went_through);
}

TEST_F(InsertRoom, OfEightyKibibytesIsAskedForFirst) {
  const struct {
    ZTINT8 free_bytes;
    int id, code;
  } cases[] = {{81919, 1, ZT_ERR_NO_MEMORY},
               {81919, 7, ZT_ERR_NO_MEMORY},
               {81920, 7, ZT_ERR_DUPLICATE_KEY},  // comes before the room for the record itself
               {81920, 1, ZT_ERR_NO_MEMORY}};
  for (const auto& c : cases) {
    Child child([&](Gate&) {
      EXPECT_EQ(put_with_free(c.free_bytes, c.id), c.code) << c.free_bytes << " " << c.id;
      return HasFailure() ? 1 : went_through;
    });
    EXPECT_EQ(child.exit_status(), went_through);
  }
}

}  // namespace
}  // namespace cachet::test
