// Opening a database: what it waits for, checks, refuses and finds.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

#include "support/child_process.h"
#include "support/raw_memory.h"
#include "support/schema.h"
#include "support/texts.h"

namespace cachet::test {
namespace {

namespace text = cachet::message;

using OpenDb = DatabaseTest;

TEST_F(OpenDb, WaitsForTheCreatorsUnlock) {
  Database creator = begin_create(directory);
  Child opener([&](Gate& gate) {
    Database db = open_items(directory);
    gate.tell('o');
    Row row(db);
    return db.opened && find_item(db, 7, row) ? 0 : 1;
  });
  opener.wait_until_blocked_at_record_lock();
  EXPECT_FALSE(opener.has_sign());
  define_items(creator);
  ZtSaveDbInfo(creator);
  ZtLoadDb(creator);
  EXPECT_TRUE(put_item(creator, 7));
  ZtBeginTransaction(creator);
  ZtCommitTransaction(creator);
  EXPECT_FALSE(opener.has_sign());
  ZtUnLockDb(creator);
  EXPECT_TRUE(opener.wait_for('o'));
  EXPECT_EQ(opener.exit_status(), 0);
}

TEST_F(OpenDb, FindsNothingWhenTheCreatorGivesUpInstead) {
  Child opener([&](Gate& gate) {  // made first: a later one would inherit the creator's attachment
    gate.wait_for('c');
    const Error expected = failure(text::open_file_failed, (directory.base() + "00.data").c_str(), ENOENT);
    EXPECT_EQ(error_of([&] { return begin_open(directory); }), expected);
    return 0;
  });
  Database creator = begin_create(directory);
  opener.tell('c');
  opener.wait_until_blocked_at_record_lock();
  creator.close();
  EXPECT_EQ(opener.exit_status(), 0);
}

TEST_F(OpenDb, ComparesTheWholeVersionWithTheTwentyTwoBytesKept) {
  const struct {
    const char* created;
    const char* kept;
    std::vector<const char*> refused;
  } cases[] = {{"V1.0", "V1.0", {"V1.1", "V1.", "V1.00", "v1.0", ""}},
               {"", "", {"V"}},
               {"1234567890123456789012", "1234567890123456789012", {"123456789012345678901"}},
               {"12345678901234567890123", "1234567890123456789012", {"12345678901234567890123"}}};
  for (const auto& c : cases) {
    Database creator;
    ASSERT_TRUE(ZtCreateDb(creator.out(), directory.path().c_str(), "d", c.created, small_bytes, 0));
    finish_create(creator);
    EXPECT_STREQ(ZtGetDbVersion(creator), c.kept);
    for (const char* given : c.refused) {
      EXPECT_EQ(error_of([&] { return begin_open(directory, ZT_MODE_READ_ONLY, "d", given); }),
                failure(text::version_mismatch, c.kept, given));
    }
    EXPECT_EQ(attachments(directory.base()), 1) << "a refused handle detaches";
    EXPECT_TRUE(begin_open(directory, ZT_MODE_READ_WRITE, "d", c.kept).opened);
  }
}

TEST_F(OpenDb, NamesTheKeyFileThatIsMissing) {
  Database creator = begin_create(directory, (1LL << 30) + 1);
  finish_create(creator);
  const std::string file0 = directory.base() + "00.data";
  const std::string file1 = directory.base() + "01.data";
  const auto open = [&] { return begin_open(directory); };
  std::filesystem::rename(file0, file0 + ".away");
  EXPECT_EQ(error_of(open), failure(text::open_file_failed, file0.c_str(), ENOENT));
  std::filesystem::rename(file0 + ".away", file0);
  std::filesystem::rename(file1, file1 + ".away");
  EXPECT_EQ(error_of(open), failure(text::create_file_failed, file1.c_str(), ENOENT))
      << "the create text, deliberately";
  EXPECT_EQ(attachments(directory.base()), 1);
  std::filesystem::rename(file1 + ".away", file1);
  EXPECT_TRUE(open().opened);
}

TEST_F(OpenDb, WithoutALockPageAdmitsOnlyReaders) {
  Database creator = create_items(directory);
  const std::string page = directory.base() + ".lk";
  std::filesystem::rename(page, page + ".away");
  EXPECT_EQ(error_of([&] { return begin_open(directory, ZT_MODE_READ_WRITE); }),
            failure(text::create_lock_failed, directory.base().c_str()));
  {
    Database reader = open_items(directory, ZT_MODE_READ_ONLY);
    EXPECT_TRUE(reader.opened);
    EXPECT_FALSE(ZtLockPosition(reader, 0));
  }
  std::filesystem::rename(page + ".away", page);
}

// Key files come and go while others open: a key may stand for another segment by the time it is looked up.
TEST_F(OpenDb, RefusesALockWhoseSessionTableIsTooSmall) {
  Database creator = create_items(directory);
  const std::string table = directory.base() + "_session_shmname";
  std::filesystem::rename(table, table + ".away");
  std::filesystem::create_hard_link(directory.base() + ".lk", table);  // the key of the lock page
  Child writer([&](Gate&) {
    EXPECT_EQ(error_of([&] { return begin_open(directory, ZT_MODE_READ_WRITE); }),
              failure(text::create_lock_failed, directory.base().c_str()));
    return 0;
  });
  EXPECT_EQ(writer.exit_status(), 0);
  std::filesystem::rename(table + ".away", table);
}

TEST_F(OpenDb, InIsolationNeedsAManager) {
  Database creator = create_items(directory);
  const auto open = [&] {
    Database db;
    db.opened =
        ZtOpenDb(db.out(), directory.path().c_str(), "d", version_text, ZT_MODE_READ_WRITE, 1, true, 0, 0, 0);
    return db;
  };
  EXPECT_EQ(error_of(open), failure(text::connect_manager_failed));
  EXPECT_EQ(attachments(directory.base()), 1);
}

TEST_F(OpenDb, FindsWhatAKilledProcessCommitted) {
  Child victim([&](Gate& gate) {
    Database db = create_items(directory);
    EXPECT_TRUE(commit_item(db, 1, "kept"));
    EXPECT_TRUE(ZtLockDb(db, ZT_LOCK_EXCLUSIVE));
    gate.tell('c');
    gate.wait_for('-');
    return 0;
  });
  ASSERT_TRUE(victim.wait_for('c'));
  victim.kill();
  Database db = open_items(directory);
  directory.note_objects();
  Row row(db);
  EXPECT_TRUE(find_item(db, 1, row));
  EXPECT_EQ(row.text(item_name), "kept");
  EXPECT_TRUE(commit_item(db, 2));
}

TEST_F(OpenDb, ThatFailedLeavesAHandleThatRefusesEverything) {
  ::testing::internal::CaptureStdout();
  const Database db = begin_open(directory);
  std::fflush(stdout);
  ::testing::internal::GetCapturedStdout();
  ASSERT_FALSE(db.opened);
  silence(db);
  ZTINT8 size = 1;
  ZTINT8 used = 1;
  ZtMemoryInfo(db, &size, &used);
  EXPECT_EQ(size + used, 0);
  EXPECT_EQ(ZtGetDbVersion(db), nullptr);
  Row row(db);
  Condition key(by_id, 1);
  const std::function<bool()> calls[] = {
      [&] { return ZtNewRecord(db, items, row); },
      [&] { return ZtPutRecord(db, row); },
      [&] { return ZtFindRecord(db, items, key, ZT_OP_EQUAL); },
      [&] { return ZtListRecord(db, items, key); },
      [&] { return ZtGotoRecord(db, items, 0, key); },
      [&] { return ZtNextRecord(db, key); },
      [&] { return ZtGetRecord(db, key, row); },
      [&] { return ZtLockPosition(db, 0); },
      [&] { return ZtSaveDbInfo(db), false; },
      [&] { return ZtLoadDbInfo(db), false; },
      [&] { return ZtLoadDb(db), false; },
      [&] { return ZtResetDb(db), false; },
      [&] { return ZtBeginTransaction(db), ZtCommitTransaction(db), ZtRollbackTransaction(db), false; },
  };
  for (int i = 0; const auto& call : calls) {
    SCOPED_TRACE(i++);
    EXPECT_FALSE(call());
  }
}

}  // namespace
}  // namespace cachet::test
