// A database larger than one segment, filled until its records have crossed the boundary, and read by other
// processes. Large records: the memory is sparse, but an allocated block is zeroed, so the upper segment is
// kept small.
#include <gtest/gtest.h>

#include "support/child_process.h"
#include "support/raw_memory.h"
#include "support/schema.h"

namespace cachet::test {
namespace {

constexpr ZTINT8 gibibyte = 1LL << 30;
constexpr int text_bytes = 65000;
enum : int { number = 0, blob = 1 };

class TwoSegments : public DatabaseTest {
 protected:
  static std::string text_of_record(int i) { return "record " + std::to_string(i * 7); }

  static bool put(ZtDbHandle db, int i) {
    static char slot[text_bytes];
    std::strcpy(slot + text_bytes - 40, text_of_record(i).c_str());
    std::strcpy(slot, text_of_record(i).c_str());
    Row row(db);
    return ZtNewRecord(db, 0, row) && row.set(number, i) && ZtSetField(db, row, blob, slot) &&
           ZtPutRecord(db, row);
  }

  static void expect_all(ZtDbHandle db, int count) {
    Row row(db);
    Condition all(0);
    int seen = 0;
    for (bool more = ZtListRecord(db, 0, all); more; more = ZtNextRecord(db, all), ++seen) {
      ASSERT_TRUE(ZtGetRecord(db, all, row));
      ASSERT_EQ(row.get<int>(number), seen);
      int type = 0;
      const char* const text = ZtGetField(db, row, blob, &type);
      ASSERT_EQ(text, text_of_record(seen));
      ASSERT_EQ(text + text_bytes - 40, text_of_record(seen));
    }
    EXPECT_EQ(seen, count);
  }
};

constexpr std::int64_t data_front = 136, record_count = 192 + 88;
// A record with its list item, key item and key field, in multiples of 8.
constexpr std::int64_t insert_bytes = 65024 + 16 + 32 + 16;

TEST_F(TwoSegments, HoldTheRecordsOfEveryProcess) {
  const auto read_all_in_mode = [&](int mode) {
    return [&, mode](Gate& gate) {
      gate.wait_for('g');
      const Database db = open_items(directory, mode);
      expect_all(db, RawMemory(directory.base()).i32(record_count));
      return 0;
    };
  };
  Child reader(read_all_in_mode(ZT_MODE_READ_ONLY));  // made first: they inherit no attachment
  Child writer(read_all_in_mode(ZT_MODE_READ_WRITE));

  Database db = begin_create(directory, gibibyte + (64 << 20));
  ASSERT_TRUE(db.opened);
  define_table(db, "large", {{"number", FIELD_INT, 4, -1}, {"blob", FIELD_STRING, text_bytes, -1}},
               {{"by number", ZT_INDEX_UNIQUE, {number}}});
  finish_create(db);

  const RawMemory memory(directory.base());
  ZtBeginTransaction(db);
  bool crossed = false;
  for (int i = 0; memory.i64(data_front) > gibibyte - 3 * insert_bytes; ++i) {
    const bool was_above = memory.i64(data_front) > gibibyte;
    ASSERT_TRUE(put(db, i));
    if (!was_above || memory.i64(data_front) > gibibyte) continue;
    crossed = true;
    EXPECT_EQ(memory.i64(data_front), gibibyte - insert_bytes)
        << "the record lies directly below the boundary";
  }
  ZtCommitTransaction(db);
  EXPECT_TRUE(crossed);
  EXPECT_GT(memory.i32(record_count), 1000);
  for (Child* child : {&reader, &writer}) {
    child->tell('g');
    EXPECT_EQ(child->exit_status(), 0);
  }
}

}  // namespace
}  // namespace cachet::test
