// Creating and deleting a database, by real processes that wait for one another and
// die.
#include <gtest/gtest.h>

#include <deque>
#include <filesystem>

#include "support/child_process.h"
#include "support/raw_memory.h"
#include "support/schema.h"
#include "support/texts.h"

namespace cachet::test {
namespace {

namespace text = cachet::message;

using CreateDb = DatabaseTest;
using DeleteDb = DatabaseTest;

TEST_F(DeleteDb, OfTheLastProcessRemovesEverything) {
  Child other([&](Gate& gate) {
    gate.wait_for('c');
    Database db = open_items(directory);
    gate.tell('o');
    gate.wait_for('d');
    Row row(db);
    EXPECT_TRUE(commit_item(db, 1) && find_item(db, 1, row));
    return 0;
  });
  Database creator = create_items(directory);
  other.tell('c');
  ASSERT_TRUE(other.wait_for('o'));
  creator.close();
  EXPECT_NE(directory.leftovers(), std::vector<std::string>{}) << "somebody is still attached";
  other.tell('d');
  EXPECT_EQ(other.exit_status(), 0);
  EXPECT_EQ(directory.leftovers(), std::vector<std::string>{});
  EXPECT_EQ(error_of([&] { return begin_open(directory); }),
            failure(text::open_file_failed, (directory.base() + "00.data").c_str(), ENOENT));
}

TEST_F(DeleteDb, InsideATransactionRollsBackAndLetsTheNextWriterIn) {
  Database creator = create_items(directory);
  ASSERT_TRUE(commit_item(creator, 1, "kept"));
  Child writer([&](Gate&) {
    Database db = open_items(directory);
    ZtBeginTransaction(db);
    Row row(db);
    EXPECT_TRUE(put_item(db, 2) && find_item(db, 1, row) && row.set(item_price, 9.0));
    return 0;
  });
  ASSERT_EQ(writer.exit_status(), 0);
  ZtBeginTransaction(creator);
  Row row(creator);
  EXPECT_FALSE(find_item(creator, 2, row));
  EXPECT_TRUE(find_item(creator, 1, row));
  EXPECT_EQ(row.get<double>(item_price), 0);
  ZtCommitTransaction(creator);
}

TEST_F(DeleteDb, OfAnInheritedHandleReleasesNothingOfItsParents) {
  Database parent = create_items(directory);
  ASSERT_TRUE(ZtLockDb(parent, ZT_LOCK_EXCLUSIVE));
  ZtBeginTransaction(parent);
  ASSERT_TRUE(put_item(parent, 1));
  Child heir([&](Gate&) {
    parent.close();
    return 0;
  });
  ASSERT_EQ(heir.exit_status(), 0);
  Child writer([&](Gate& gate) {
    Database db = open_items(directory);  // waits for the parent's file lock
    gate.tell('o');
    ZtBeginTransaction(db);  // waits for the parent's transaction
    gate.tell('b');
    Row row(db);
    EXPECT_TRUE(find_item(db, 1, row));
    ZtCommitTransaction(db);
    return 0;
  });
  writer.wait_until_blocked_at_record_lock();
  EXPECT_FALSE(writer.has_sign());
  ZtUnLockDb(parent);
  ASSERT_TRUE(writer.wait_for('o'));
  writer.wait_until_asleep();
  EXPECT_FALSE(writer.has_sign());
  ZtCommitTransaction(parent);
  EXPECT_TRUE(writer.wait_for('b'));
  EXPECT_EQ(writer.exit_status(), 0);
}

TEST_F(DeleteDb, OfAnInheritedHandleRemovesTheDatabaseWhenItIsTheLast) {
  Database db = create_items(directory);
  Child heir([&](Gate& gate) {
    gate.wait_for('d');
    db.close();
    return 0;
  });
  db.close();
  EXPECT_NE(directory.leftovers(), std::vector<std::string>{});
  heir.tell('d');
  EXPECT_EQ(heir.exit_status(), 0);
}

TEST_F(CreateDb, ReplacesWhatAKilledProcessLeft) {
  for (const ZTINT8 size_bytes : {ZTINT8{1000}, ZTINT8{small_bytes}, ZTINT8{200}}) {
    Child victim([&](Gate& gate) {
      Database db = begin_create(directory, size_bytes);
      define_items(db);
      if (size_bytes == small_bytes) {
        finish_create(db);
        ZtBeginTransaction(db);
        EXPECT_TRUE(put_item(db, 1));
      }
      gate.tell(db.opened ? 'c' : '-');
      gate.wait_for('-');
      return 0;
    });
    ASSERT_TRUE(victim.wait_for('c'));
    victim.kill();
    EXPECT_NE(segment_id(directory.base() + "00.data"), -1);
  }
  Database db = create_items(directory);
  Row row(db);
  EXPECT_FALSE(find_item(db, 1, row));
  EXPECT_TRUE(commit_item(db, 1)) << "the dead process's transaction is gone too";
}

TEST_F(CreateDb, RefusesADatabaseInUse) {
  Database creator = create_items(directory);
  ASSERT_TRUE(commit_item(creator, 1));
  const auto create = [&] { return begin_create(directory); };
  Child rival([&](Gate&) {
    EXPECT_EQ(error_of(create), failure(text::create_lock_failed, directory.base().c_str()));
    return 0;
  });
  EXPECT_EQ(rival.exit_status(), 0);
  Database other = open_items(directory);
  Row row(other);
  EXPECT_TRUE(find_item(other, 1, row)) << "untouched by the failed creation";
}

TEST_F(CreateDb, RefusesADataSegmentThatIsStillAttached) {
  Child victim([&](Gate& gate) {
    Database db = begin_create(directory);
    gate.tell('c');
    gate.wait_for('-');
    return 0;
  });
  ASSERT_TRUE(victim.wait_for('c'));
  const RawMemory attachment(directory.base());
  victim.kill();
  const std::string file = directory.base() + "00.data";
  EXPECT_EQ(error_of([&] { return begin_create(directory); }), failure(text::segment_exists, file.c_str()));
  Cztshamem small, intruder;
  EXPECT_FALSE(intruder.Create(file.c_str(), 1, 8192, false));
  EXPECT_TRUE(std::filesystem::exists(file)) << "a failed creation leaves the key file alone";
  shmctl(segment_id(file), IPC_RMID, nullptr);
  ASSERT_TRUE(small.Create(file.c_str(), 1, 4095, false));
  EXPECT_FALSE(intruder.Open(file.c_str(), 1, false)) << "only 4 KiB or more";
  small.Close(false);
  std::filesystem::remove(file);
}

TEST_F(CreateDb, CutsTheSpaceIntoSegmentsOfOneGibibyte) {
  constexpr std::size_t gibibyte = std::size_t{1} << 30;
  Database creator = begin_create(directory, 2 * gibibyte + 1);
  finish_create(creator);
  EXPECT_TRUE(begin_open(directory).opened);
  EXPECT_EQ(RawMemory(directory.base()).sizes, (std::vector<std::size_t>{gibibyte, gibibyte, 1}));
}

TEST_F(CreateDb, RefusesWhatTheHeaderCannotHold) {
  const std::string longest(79 - directory.path().size() - 2, 'n');
  const struct {
    std::string name;
    ZTINT8 size_bytes;
    bool accepted;
  } cases[] = {{longest, small_bytes, true},
               {longest + "n", small_bytes, false},
               {"d", (100LL << 30) + 1, false},
               {"d", -1, false},
               {"d", 191, false}};
  for (const auto& c : cases) {
    ::testing::internal::CaptureStdout();
    Database db = begin_create(directory, c.size_bytes, c.name.c_str());
    std::fflush(stdout);
    ::testing::internal::GetCapturedStdout();
    EXPECT_EQ(db.opened, c.accepted) << c.name << " " << c.size_bytes;
    EXPECT_EQ(last_error(db).code, c.accepted ? ZT_OK : ZT_ERR_GENERAL);
    db.close();
    EXPECT_EQ(directory.leftovers(), std::vector<std::string>{});
  }
}

// Processes that open the database if it is there, make it if not, use it and leave, all at once. Refusals
// are part of it; a crash, a process that hangs, or anything left behind is not.
TEST(Lifecycle, SurvivesProcessesThatComeAndGo) {
  TempDirectory directory;
  const auto visit = [&](int visitor) {
    for (int round = 0; round < 100; ++round) {
      const int mode = (round + visitor) % 3 == 0 ? ZT_MODE_READ_ONLY : ZT_MODE_READ_WRITE;
      Database db = begin_open(directory, mode);
      bool writes = mode == ZT_MODE_READ_WRITE;
      if (db.opened) {
        finish_open(db);
      } else {
        db = begin_create(directory, 1 << 20);
        if (!db.opened) continue;
        define_items(db);
        finish_create(db);
        writes = true;
      }
      Row row(db);
      EXPECT_TRUE(!writes || commit_item(db, 1000 * visitor + round));
      EXPECT_EQ(find_item(db, 1000 * visitor + round, row), writes);
    }
    return 0;
  };
  std::deque<Child> visitors;
  for (int i = 0; i < 4; ++i) {
    visitors.emplace_back([&, i](Gate&) { return visit(i); }, Child::Output::captured);
  }
  for (Child& visitor : visitors) EXPECT_EQ(visitor.exit_status(), 0) << visitor.output();
  EXPECT_EQ(directory.leftovers(), std::vector<std::string>{});
}

}  // namespace
}  // namespace cachet::test
