// Images of a database that others are changing, and of writers that die.
#include <gtest/gtest.h>

#include "cachetx.h"
#include "support/child_process.h"
#include "support/files.h"
#include "support/schema.h"

namespace cachet::test {
namespace {

using LiveImage = DatabaseTest;

constexpr double total = 100;

void move_one(ZtDbHandle db, int from, int to) {
  ZtBeginTransaction(db);
  Row source(db);
  Row destination(db);
  EXPECT_TRUE(find_item(db, from, source) && find_item(db, to, destination));
  source.set(item_price, source.get<double>(item_price) - 1);
  destination.set(item_price, destination.get<double>(item_price) + 1);
  ZtCommitTransaction(db);
}

int move_until_told(const TempDirectory& directory, Gate& gate) {
  Database db = open_items(directory);
  for (int round = 0; !gate.has_sign(); ++round) {
    move_one(db, round % 2 + 1, 2 - round % 2);
    if (round == 0) gate.tell('r');
  }
  return 0;
}

double sum_of(ZtDbHandle db) {
  double sum = 0;
  for (const int id : {1, 2}) {
    Row row(db);
    EXPECT_TRUE(find_item(db, id, row));
    sum += row.get<double>(item_price);
  }
  return sum;
}

TEST_F(LiveImage, IsConsistentUnderTheWritersLock) {
  const Folder folder;
  const std::string image = folder.file("image");
  Database db = create_items(directory);
  EXPECT_TRUE(commit_item(db, 1, "", 0, total) && commit_item(db, 2));
  TempDirectory elsewhere;
  Database copy = create_items(elsewhere);
  Child writer([&](Gate& gate) { return move_until_told(directory, gate); });
  ASSERT_TRUE(writer.wait_for('r'));
  Database reader = open_items(directory, ZT_MODE_READ_ONLY);
  silence(reader);
  EXPECT_FALSE(ZtxWriteDbFileLocked(reader, image.c_str())) << "a reader's lock keeps no writer out";
  for (int round = 0; round < 30; ++round) {
    ASSERT_TRUE(ZtxWriteDbFileLocked(db, image.c_str()));
    ASSERT_TRUE(ZtReadDbFile(copy, image.c_str()));
    EXPECT_EQ(sum_of(copy), total) << "no image holds half a transaction";
  }
  ZtBeginTransaction(db);
  EXPECT_TRUE(ZtxWriteDbFileLocked(db, image.c_str()));
  EXPECT_TRUE(db.operator ZtDbHandle()->lock.WriterHolds(0)) << "a transaction keeps its lock";
  ZtCommitTransaction(db);
  writer.tell('e');
  EXPECT_EQ(writer.exit_status(), 0);
  copy.close();
  EXPECT_EQ(elsewhere.leftovers(), std::vector<std::string>{});
}

TEST_F(LiveImage, IsWholeWhenItsWriterIsKilled) {
  const Folder folder;
  const std::string image = folder.file("image");
  constexpr ZTINT8 size_bytes = 64 << 20;
  Database db = create_items(directory, size_bytes);
  EXPECT_TRUE(commit_item(db, 1, "old"));
  ASSERT_TRUE(ZtWriteDbFile(db, image.c_str()));
  EXPECT_TRUE(commit_item(db, 2, "new"));
  for (int round = 0; round < 5; ++round) {
    Child writer([&](Gate& gate) -> int {
      Database own = open_items(directory);
      gate.tell('r');
      for (;;) ZtWriteDbFile(own, image.c_str());
    });
    ASSERT_TRUE(writer.wait_for('r'));
    const std::size_t names = folder.names().size();
    while (folder.names().size() == names) {  // until a temporary is there
    }
    writer.kill();
    EXPECT_EQ(std::filesystem::file_size(image), static_cast<std::uintmax_t>(size_bytes));
    EXPECT_TRUE(ZtxCheckDbFile(db, image.c_str()));
  }
  ASSERT_TRUE(ZtReadDbFile(db, image.c_str()));
  Row row(db);
  EXPECT_TRUE(find_item(db, 1, row));
}

// A reader that was there all the time sees the loaded records without opening the database anew.
TEST_F(LiveImage, ShowsInEveryProcessOnceItIsLoaded) {
  const Folder folder;
  const std::string image = folder.file("image");
  Database db = create_items(directory);
  EXPECT_TRUE(commit_item(db, 1, "in the image"));
  ASSERT_TRUE(ZtWriteDbFile(db, image.c_str()));
  ZtResetDb(db);
  Child reader([&](Gate& gate) {
    Database own = open_items(directory, ZT_MODE_READ_ONLY);
    Row row(own);
    EXPECT_FALSE(find_item(own, 1, row));
    gate.tell('r');
    gate.wait_for('g');
    EXPECT_TRUE(find_item(own, 1, row));
    EXPECT_EQ(row.text(item_name), "in the image");
    return 0;
  });
  ASSERT_TRUE(reader.wait_for('r'));
  ASSERT_TRUE(ZtReadDbFile(db, image.c_str()));
  reader.tell('g');
  EXPECT_EQ(reader.exit_status(), 0);
}

// Two segments: the image is their concatenation. By a symbolic link, so that a gigabyte need not reach the disk.
TEST_F(LiveImage, RunsOverTheEdgeOfASegment) {
  const Folder folder;
  const std::string image = folder.file("link");
  constexpr ZTINT8 size_bytes = (ZTINT8{1} << 30) + (1 << 20);
  std::filesystem::create_symlink("target", image);
  Database db = create_items(directory, size_bytes);
  EXPECT_TRUE(commit_item(db, 1, "in the second segment"));
  ASSERT_TRUE(ZtWriteDbFile(db, image.c_str()));
  EXPECT_EQ(std::filesystem::file_size(image), static_cast<std::uintmax_t>(size_bytes));
  ZtResetDb(db);
  ASSERT_TRUE(ZtReadDbFile(db, image.c_str()));
  Row row(db);
  EXPECT_TRUE(find_item(db, 1, row));
  EXPECT_EQ(row.text(item_name), "in the second segme");
}

}  // namespace
}  // namespace cachet::test
