// Opening a database: what it waits for, checks, refuses and finds.
#include <gtest/gtest.h>

#include <filesystem>

#include "support/child_process.h"
#include "support/raw_memory.h"
#include "support/schema.h"
#include "support/texts.h"

namespace cachet::test {
namespace {

namespace text = cachet::message;
using std::filesystem::rename;

using OpenDb = DatabaseTest;

TEST_F(OpenDb, WaitsForTheCreatorsUnlockUnlessItOnlyConnects) {
  Database creator = begin_create(directory);
  Child opener([&](Gate& gate) {
    Database db = open_items(directory);
    gate.tell('o');
    Row row(db);
    EXPECT_TRUE(find_item(db, 7, row));
    return 0;
  });
  opener.wait_until_blocked_at_record_lock();
  define_items(creator);
  ZtSaveDbInfo(creator);
  ZtLoadDb(creator);
  EXPECT_TRUE(commit_item(creator, 7));
  Child connector([&](Gate&) {
    for (const int mode : {ZT_MODE_READ_ONLY, ZT_MODE_READ_WRITE}) {
      Database db;
      EXPECT_TRUE(ZtConnectDb(db.out(), directory.path().c_str(), "d", mode));
      Row row(db);
      EXPECT_TRUE(find_item(db, 7, row));
    }
    return 0;
  });
  EXPECT_EQ(connector.exit_status(), 0);
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
    const char *created, *kept;
    std::vector<const char*> refused;
  } cases[] = {{"V1.0", "V1.0", {"V1.", "V1.00", "v1.0", ""}},
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

TEST_F(OpenDb, TellsWhichFileIsMissingOrWrongAndAdmitsReadersWithoutALockPage) {
  Database creator = begin_create(directory, (1LL << 30) + 1);
  finish_create(creator);
  const std::string base = directory.base();
  const Error no_lock = failure(text::create_lock_failed, base.c_str());
  const struct {
    std::string file;
    const char* put_there;  // another key file, a link to the right one, or nothing
    Error expected;
  } cases[] = {
      {base + "00.data", nullptr, failure(text::open_file_failed, (base + "00.data").c_str(), ENOENT)},
      {base + "00.data", "link", failure(text::open_file_failed, (base + "00.data").c_str(), ELOOP)},
      {base + "01.data", nullptr, failure(text::create_file_failed, (base + "01.data").c_str(), ENOENT)},
      {base + ".lk", nullptr, no_lock},
      {base + "_session_shmname", ".lk", no_lock}};  // too small a table
  for (const auto& c : cases) {
    rename(c.file, c.file + ".away");
    if (c.put_there != nullptr && c.put_there == std::string("link")) {
      std::filesystem::create_symlink(c.file + ".away", c.file);
    } else if (c.put_there != nullptr) {
      std::filesystem::create_hard_link(base + c.put_there, c.file);
    }
    EXPECT_EQ(error_of([&] { return begin_open(directory); }), c.expected) << c.file;
    if (c.file == base + ".lk") {
      Database reader = begin_open(directory, ZT_MODE_READ_ONLY);
      EXPECT_TRUE(reader.opened);
      EXPECT_FALSE(ZtLockPosition(reader, 0));
    }
    rename(c.file + ".away", c.file);
    EXPECT_EQ(attachments(base), 1);
  }
}

}  // namespace
}  // namespace cachet::test
