// An insert into nearly full memory: refused as a whole, before anything changes, or stored as a whole. The
// allocator's own way out, the end of the process, must never come in the middle of it.
#include <gtest/gtest.h>

#include "support/child_process.h"
#include "support/schema.h"
#include "support/texts.h"

namespace cachet::test {
namespace {

constexpr int went_through = 42;  // an exit of the allocator has status 0

// Records of 95 KiB: an insert needs more than the 81920 bytes that are asked for first.
void define_large(ZtDbHandle db) {
  ZtAddTable(db, "large");
  ZtAddField(db, 0, "id", FIELD_INT, 4, -1);
  ZtAddField(db, 0, "first", FIELD_STRING, 32000, -1);
  ZtAddField(db, 0, "second", FIELD_STRING, 65000, -1);
  for (const int type : {ZT_INDEX_UNIQUE, ZT_INDEX_DUPLICATES, ZT_INDEX_DUPLICATES}) {
    ZtAddIndex(db, 0, "by id", type);
    const int index = static_cast<int>(db->database[0].indexdescrible.size()) - 1;
    for (int i = 0; i < 40; ++i) ZtAddIndexField(db, 0, index, 0);
  }
}

struct InsertRoom : DatabaseTest {
  std::string bytes_in_use() const {
    const Rb_memory* const header = base_of(db)->memory;
    const char* const begin = reinterpret_cast<const char*>(header);
    return std::string(begin, static_cast<std::size_t>(header->nodeoffset)) +
           std::string(begin + header->dataoffset,
                       static_cast<std::size_t>(header->size - header->dataoffset));
  }
  void leave_free(ZTINT8 bytes) { base_of(db)->memory->dataoffset = base_of(db)->memory->nodeoffset + bytes; }
  void create_large() {
    db = begin_create(directory, 256 << 10);
    define_large(db);
    finish_create(db);
    silence(db);
  }

  void TearDown() override {
    db.close();
    DatabaseTest::TearDown();
  }

  Database db;
};

TEST_F(InsertRoom, IsFoundOutBeforeAnythingChanges) {
  create_large();
  ASSERT_TRUE([&] {
    Row row(db);
    return ZtNewRecord(db, 0, row) && row.set(0, -1) && ZtPutRecord(db, row);
  }());
  Child child([&](Gate&) {
    int stored = 0;
    int refused = 0;
    for (ZTINT8 free_bytes = 95000; free_bytes < 100500; free_bytes += 4) {
      SCOPED_TRACE(free_bytes);
      leave_free(free_bytes);
      const std::string before = bytes_in_use();
      Row row(db);
      EXPECT_TRUE(ZtNewRecord(db, 0, row) && row.set(0, stored));
      if (ZtPutRecord(db, row)) {
        ++stored;
        const Rb_memory* const now = base_of(db)->memory;
        EXPECT_LE(now->nodeoffset, now->dataoffset);
        break;
      }
      ++refused;
      EXPECT_EQ(last_error(db),
                (Error{ZT_ERR_NO_MEMORY, gbk(message::memory_low, static_cast<int>(free_bytes))}));
      EXPECT_EQ(bytes_in_use(), before);
      EXPECT_EQ(ZtGetRecordId(db, row), -1) << "the row stays in the handle";
    }
    EXPECT_EQ(stored, 1);
    EXPECT_GT(refused, 10);
    return HasFailure() ? 1 : went_through;
  });
  EXPECT_EQ(child.exit_status(), went_through);
}

TEST_F(InsertRoom, OfEightyKibibytesIsAskedForFirst) {
  const struct {
    ZTINT8 free_bytes;
    int id;
    int code;
  } cases[] = {{81919, 1, ZT_ERR_NO_MEMORY},
               {81919, 7, ZT_ERR_NO_MEMORY},
               {81920, 7, ZT_ERR_DUPLICATE_KEY},  // comes before the room for the record itself
               {81920, 1, ZT_ERR_NO_MEMORY}};
  create_large();
  Row first(db);
  ASSERT_TRUE(ZtNewRecord(db, 0, first) && first.set(0, 7) && ZtPutRecord(db, first));
  for (const auto& c : cases) {
    leave_free(c.free_bytes);
    Child child([&](Gate&) {
      Row row(db);
      EXPECT_TRUE(ZtNewRecord(db, 0, row) && row.set(0, c.id));
      EXPECT_FALSE(ZtPutRecord(db, row));
      EXPECT_EQ(last_error(db).code, c.code) << c.free_bytes << " " << c.id;
      return HasFailure() ? 1 : went_through;
    });
    EXPECT_EQ(child.exit_status(), went_through);
  }
}

// With 81920 bytes free a small insert always fits: the rule that callers know.
TEST_F(InsertRoom, OfEightyKibibytesIsEnoughForASmallRecord) {
  db = create_items(directory);
  silence(db);
  leave_free(81920);
  EXPECT_TRUE(put_item(db, 1));
  Row row(db);
  EXPECT_FALSE(put_item(db, row, 2, "waits", 0, 0));
  EXPECT_EQ(last_error(db).code, ZT_ERR_NO_MEMORY);
  ZtResetDb(db);
  EXPECT_TRUE(ZtPutRecord(db, row)) << "the row stayed in the handle";
  EXPECT_EQ(row.text(item_name), "waits");
}

}  // namespace
}  // namespace cachet::test
