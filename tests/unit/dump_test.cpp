// The dump, character for character.
#include <gtest/gtest.h>

#include "support/all_types.h"
#include "support/files.h"

namespace cachet::test {
namespace {

class DumpTable : public DatabaseTest {
 protected:
  std::string dumped(ZtDbHandle db) const {
    EXPECT_TRUE(ZtDumpTable(db, 0, folder.file("dump").c_str()));
    return contents_of(folder.file("dump"));
  }

  Folder folder;
};

TEST_F(DumpTable, ShowsIndexesTwiceAndThenTheRecords) {
  Database db = create_all(directory);
  const std::string names = "s,i,c,us,u,uc,t,d0,d2,d,big,raw";
  EXPECT_EQ(dumped(db),
            "origin_index_name=pair(i,t)\ncurent_index_name=pair(i,t)\ntablename=all(" + names + ")\n");
  ZtBeginTransaction(db);
  Row deleted(db);
  EXPECT_TRUE(put(db, {-7, 5, 'x', 65535, 4000000000U, 200, "b,", 2.5, 2.675, 0.125, -9, {'a', 'b', 'c'}}));
  EXPECT_TRUE(put(db, deleted, {0, -1, 0, 0, 0, 0, "", 0, 0, 0, 0, {}}));
  EXPECT_TRUE(put(db, {0, 5, 0, 0, 0, 0, "b,", 0, 0, 0, 0, {}}));
  EXPECT_TRUE(put(db, {0, 5, 0, 0, 0, 0, "a", 0, 0, 0, 0, {}}));
  ZtDeleteRecord(db, deleted);
  ZtCommitTransaction(db);
  const std::string keys = "key=-1,:1\nkey=5,a:3\nkey=5,b,:0:2\n";
  const std::string first = "ID=0,DELETE=FALSE,data=-7,5,x,65535,-294967296,\xC8,b,,3,2.68,0.125000,-9,\n";
  const std::string others = bytes("ID=1,DELETE=TRUE,data=0,-1,\0,0,0,\0,,0,0.00,0.000000,0,\n") +
                             bytes("ID=2,DELETE=FALSE,data=0,5,\0,0,0,\0,b,,0,0.00,0.000000,0,\n") +
                             bytes("ID=3,DELETE=FALSE,data=0,5,\0,0,0,\0,a,0,0.00,0.000000,0,\n");
  const std::string records = "tablename=all(" + names + ")\n" + first + others;
  EXPECT_EQ(dumped(db),
            "origin_index_name=pair(i,t)\n" + keys + "curent_index_name=pair(i,t)\n" + keys + records);

  // A cursor unlinks the deleted record: its key stays, with the list of all records ever stored.
  Condition walk(0);
  EXPECT_TRUE(ZtListRecord(db, all, walk));
  const std::string current = "key=5,a:3\nkey=5,b,:0:2\n";
  const std::string tidied =
      "origin_index_name=pair(i,t)\n" + keys + "curent_index_name=pair(i,t)\n" + current + records;
  EXPECT_EQ(dumped(db), tidied);
  Database reader = open_items(directory, ZT_MODE_READ_ONLY);
  EXPECT_EQ(dumped(reader), tidied) << "a read-only handle sees the same";
}

TEST_F(DumpTable, ShowsTheKeysOfEveryIndexInOrder) {
  Database db = create_items(directory);
  ZtBeginTransaction(db);
  EXPECT_TRUE(put_item(db, 2, "b", 7, 1.5) && put_item(db, 1, "c", 7, 0));
  ZtCommitTransaction(db);
  EXPECT_EQ(dumped(db),
            "origin_index_name=by id(id)\nkey=1:1\nkey=2:0\n"
            "origin_index_name=by name(name)\nkey=b:0\nkey=c:1\n"
            "origin_index_name=by team(team)\nkey=7:0:1\n"
            "curent_index_name=by id(id)\nkey=1:1\nkey=2:0\n"
            "curent_index_name=by name(name)\nkey=b:0\nkey=c:1\n"
            "curent_index_name=by team(team)\nkey=7:0:1\n"
            "tablename=items(id,name,team,price)\n"
            "ID=0,DELETE=FALSE,data=2,b,7,1.50\n"
            "ID=1,DELETE=FALSE,data=1,c,7,0.00\n");
}

// Names, keys and fields of nothing at all: no comma too many, none too few.
TEST_F(DumpTable, ShowsATableWithoutFieldsAndAnIndexWithoutFields) {
  Database db = begin_create(directory);
  ZtAddTable(db, "none(");
  ZtAddIndex(db, 0, "empty", ZT_INDEX_DUPLICATES);
  finish_create(db);
  Row row(db);
  EXPECT_TRUE(ZtNewRecord(db, 0, row) && ZtPutRecord(db, row));
  EXPECT_EQ(dumped(db),
            "origin_index_name=empty()\nkey=:0\ncurent_index_name=empty()\nkey=:0\n"
            "tablename=none(()\nID=0,DELETE=FALSE,data=\n");
}

}  // namespace
}  // namespace cachet::test
