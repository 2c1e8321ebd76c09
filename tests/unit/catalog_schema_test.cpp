// Tables, fields and indexes: what the catalog carries to another handle.
#include <gtest/gtest.h>

#include "support/schema.h"

namespace cachet::test {
namespace {

using Catalog = DatabaseTest;

const std::vector<ZtTable>& tables_of(const Database& db) {
  return static_cast<ZtDbHandle>(db)->database;
}

TEST_F(Catalog, GivesAnotherHandleTheVerySameTables) {
  Database creator = begin_create(directory);
  define_items(creator);
  const std::string name(79, 'n');
  define_table(creator, name.substr(0, 78).c_str(),
               {{name.c_str(), 0, 3, 0}, {"", 12, 0, 127}, {"wide", FIELD_STRING, 65535, -1}},
               {{name.c_str(), 77, {}}, {"two", ZT_INDEX_UNIQUE, {2, 0}}});
  ZtAddTable(creator, "bare");
  finish_create(creator);
  for (const int mode : {ZT_MODE_READ_ONLY, ZT_MODE_READ_WRITE}) {
    const Database opener = open_items(directory, mode);
    ASSERT_EQ(tables_of(opener).size(), tables_of(creator).size());
    for (std::size_t t = 0; t < tables_of(creator).size(); ++t) {
      const ZtTable& made = tables_of(creator)[t];
      const ZtTable& loaded = tables_of(opener)[t];
      EXPECT_STREQ(loaded.name, made.name);
      EXPECT_EQ(loaded.recordlength, made.recordlength);
      EXPECT_EQ(loaded.maxindexfield, made.maxindexfield);
      ASSERT_EQ(loaded.fielddescrible.size(), made.fielddescrible.size());
      for (std::size_t f = 0; f < made.fielddescrible.size(); ++f) {
        EXPECT_EQ(std::memcmp(&loaded.fielddescrible[f], &made.fielddescrible[f], sizeof(ZtDataField)), 0)
            << f;
      }
      ASSERT_EQ(loaded.indexdescrible.size(), made.indexdescrible.size());
      for (std::size_t i = 0; i < made.indexdescrible.size(); ++i) {
        EXPECT_STREQ(loaded.indexdescrible[i].name, made.indexdescrible[i].name);
        EXPECT_EQ(loaded.indexdescrible[i].indextype, made.indexdescrible[i].indextype);
        EXPECT_EQ(loaded.indexdescrible[i].indexdescrible, made.indexdescrible[i].indexdescrible);
      }
    }
  }
}

TEST_F(Catalog, ThatDoesNotFitIsRefusedAndNotWritten) {
  Database db = begin_create(directory, 1000);
  silence(db);
  for (int t = 0; t < 9; ++t) ZtAddTable(db, "t");  // 192 + 9 * 96 = 1056 bytes
  ZtSaveDbInfo(db);
  EXPECT_EQ(last_error(db).code, ZT_ERR_GENERAL);
  EXPECT_EQ(base_of(db)->memory->tablecount, 0);
  EXPECT_EQ(base_of(db)->memory->nodeoffset, 192);
  EXPECT_EQ(*reinterpret_cast<const char*>(base_of(db)->table), '\0');
}

}  // namespace
}  // namespace cachet::test
