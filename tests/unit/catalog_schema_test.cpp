// Tables, fields and indexes: what the schema calls derive, refuse, and carry through the catalog to another
// handle.
#include <gtest/gtest.h>

#include <functional>

#include "support/schema.h"

namespace cachet::test {
namespace {

using Schema = DatabaseTest;
using Catalog = DatabaseTest;

const std::vector<ZtTable>& tables_of(const Database& db) {
  return static_cast<ZtDbHandle>(db)->database;
}

TEST_F(Schema, PacksFieldsInOrderAndTracksTheWidestIndex) {
  Database db = begin_create(directory);
  define_table(db, "t",
               {{"a", FIELD_INT, 4, -1},
                {"nothing", FIELD_STRING, 0, -1},
                {"b", FIELD_STRING, 21, -1},
                {"c", FIELD_DOUBLE, 8, 2}},
               {{"wide", ZT_INDEX_DUPLICATES, {3, 2, 0}}, {"narrow", ZT_INDEX_UNIQUE, {0}}});
  const ZtTable& table = tables_of(db)[0];
  const short offsets[] = {0, 4, 4, 25};
  const int indexed[] = {1, 0, 1, 1};
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(table.fielddescrible[i].offset, offsets[i]) << i;
    EXPECT_EQ(table.fielddescrible[i].indexed, indexed[i]) << i;
  }
  EXPECT_EQ(table.recordlength, 33);
  EXPECT_EQ(table.maxindexfield, 3);
  EXPECT_EQ(table.indexdescrible[0].indexdescrible, (std::vector<int>{3, 2, 0}));
}

TEST_F(Schema, RefusesWhatNoCatalogCanHold) {
  Database db = begin_create(directory);
  define_items(db);
  silence(db);
  ZtAddIndex(db, items, "full", ZT_INDEX_DUPLICATES);
  for (int i = 0; i < 127; ++i) ZtAddIndexField(db, items, 3, item_id);
  ASSERT_EQ(last_error(db).code, ZT_OK);
  const std::function<void()> refused[] = {
      [&] { ZtAddTable(db, nullptr); },
      [&] { ZtAddField(db, 1, "f", FIELD_INT, 4, -1); },
      [&] { ZtAddField(db, items, nullptr, FIELD_INT, 4, -1); },
      [&] { ZtAddField(db, items, "f", FIELD_STRING, -1, -1); },
      [&] { ZtAddIndex(db, 1, "i", ZT_INDEX_UNIQUE); },
      [&] { ZtAddIndexField(db, items, 4, item_id); },
      [&] { ZtAddIndexField(db, items, by_id, 4); },
      [&] { ZtAddIndexField(db, items, 3, item_id); },
  };
  for (int i = 0; const auto& call : refused) {
    ZtSetError(db, 0, "%s", "");
    call();
    EXPECT_EQ(last_error(db).code, ZT_ERR_GENERAL) << "case " << i;
    ++i;
  }
  const ZtTable& table = tables_of(db)[0];
  EXPECT_EQ(tables_of(db).size() + table.fielddescrible.size() + table.indexdescrible.size(), 1u + 4 + 4);
  EXPECT_EQ(table.indexdescrible[by_id].indexdescrible, std::vector<int>{item_id});
  EXPECT_EQ(table.maxindexfield, 127);
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
