// Images of a whole database and of tables: their bytes, and that a bad one changes nothing.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "cachetx.h"
#include "support/all_types.h"
#include "support/files.h"
#include "support/raw_memory.h"
#include "support/texts.h"

namespace cachet::test {
namespace {

constexpr ZTINT8 image_bytes = 256 << 10;

// Where things lie in the header, by the layout that every process relies on.
constexpr std::size_t at_version = 80, at_size = 120, at_nodeoffset = 128, at_dataoffset = 136;
constexpr std::size_t at_tablecount = 152, at_memoryheadsize = 184, at_catalog = 192;
constexpr std::size_t at_duty = 79, at_recordcount = 88;  // in a table of the catalog
constexpr std::size_t table_bytes = 96, index_bytes = 96;

template <class T>
void set(std::string& image, std::size_t at, T value) {
  std::memcpy(image.data() + at, &value, sizeof value);
}

template <class T>
T get(const std::string& image, std::size_t at) {
  T value;
  std::memcpy(&value, image.data() + at, sizeof value);
  return value;
}

// Loading gives the heads of the two trees new nonces.
std::string without_nonces(std::string image) {
  const auto heads = static_cast<std::size_t>(round_up(get<ZTINT8>(image, at_memoryheadsize), slot_bytes));
  for (const std::size_t at : {heads, heads + slot_bytes})
    std::fill_n(image.begin() + static_cast<long>(at) + 24, 8, '\0');
  return image;
}

class Image : public DatabaseTest {
 protected:
  std::string memory_of(const char* name = "d") const {
    const RawMemory memory(directory.base(name));
    return memory.bytes(0, memory.sizes.at(0));
  }
  std::string image_of(ZtDbHandle db) const {
    EXPECT_TRUE(ZtWriteDbFile(db, folder.file("image").c_str()));
    return contents_of(folder.file("image"));
  }
  bool load(ZtDbHandle db, const std::string& image) const {
    return ZtReadDbFile(db, write_file(folder.file("load"), image).c_str());
  }

  Folder folder;
};

Database filled(TempDirectory& directory, const char* name = "d") {
  Database db = create_all(directory, ZT_INDEX_UNIQUE, image_bytes, name);
  ZtBeginTransaction(db);
  Row deleted(db);
  EXPECT_TRUE(put(db, {.i = 1, .t = "one"}) && put(db, deleted, {.i = 2}) && put(db, {.i = 3, .d2 = 1.5}));
  ZtDeleteRecord(db, deleted);
  ZtCommitTransaction(db);
  return db;
}

// ---- the whole database ----

TEST_F(Image, IsTheMemoryByteForByte) {
  Database db = filled(directory);
  const std::string image = image_of(db);
  EXPECT_EQ(image.size(), static_cast<std::size_t>(image_bytes));
  EXPECT_TRUE(image == memory_of());
  Database reader = open_items(directory, ZT_MODE_READ_ONLY);
  EXPECT_TRUE(image_of(reader) == image);
}

TEST_F(Image, ComesBackWithTheNameOfTheDatabaseItIsLoadedInto) {
  std::string image;
  {
    Database db = filled(directory, "origin");
    Row row(db);
    EXPECT_TRUE(put(db, row, {.i = 9}));
    row.set(all_s, short{5});  // a change under way: table and record are marked
    image = image_of(db);
    EXPECT_EQ(image[at_catalog + at_duty], 1);
    ZtBeginTransaction(db);
    ZtCommitTransaction(db);
  }
  Database db = create_all(directory, ZT_INDEX_UNIQUE, image_bytes, "d");
  EXPECT_TRUE(put(db, {.i = 77}));  // its before-image must not come back over the loaded records
  ASSERT_TRUE(load(db, image));

  std::string expected = without_nonces(image);
  const std::string name = directory.base("d");
  std::fill_n(expected.begin(), 80, '\0');
  std::copy(name.begin(), name.end(), expected.begin());
  expected[at_catalog + at_duty] = 0;
  const std::string loaded = without_nonces(memory_of());
  std::vector<std::size_t> differences;
  for (std::size_t at = 0; at < expected.size(); ++at) {
    if (expected[at] != loaded[at]) differences.push_back(at);
  }
  ASSERT_EQ(differences.size(), 1u) << "the mark of the record that was being changed";
  EXPECT_EQ(image[differences[0]], 1);
  EXPECT_EQ(loaded[differences[0]], 0);

  ZtBeginTransaction(db);
  ZtRollbackTransaction(db);
  Database reader = open_items(directory, ZT_MODE_READ_ONLY);
  for (const int key : {1, 3, 9}) {
    Condition condition(0, key);
    EXPECT_TRUE(ZtFindRecord(reader, all, condition, ZT_OP_EQUAL)) << key;
  }
  ZtBeginTransaction(db);
  EXPECT_TRUE(put(db, {.i = 10}));
  ZtCommitTransaction(db);
}

TEST_F(Image, BringsItsTablesIntoADatabaseWithoutAny) {
  std::string image;
  {
    Database db = filled(directory, "origin");
    image = image_of(db);
  }
  Database db = begin_create(directory, image_bytes);
  ASSERT_TRUE(load(db, image));
  finish_open(db);
  Condition condition(0, 3);
  EXPECT_TRUE(ZtFindRecord(db, all, condition, ZT_OP_EQUAL));
  EXPECT_TRUE(put(db, {.i = 4}));
}

TEST_F(Image, IsRefusedBeforeAByteChanges) {
  Database db = filled(directory);
  silence(db);
  const std::string good = image_of(db);
  const auto nodes = get<ZTINT8>(good, at_nodeoffset);
  const auto head_end = get<ZTINT8>(good, at_memoryheadsize);
  const std::size_t fields = at_catalog + table_bytes + index_bytes;
  const auto with = [&good](std::size_t at, auto value) {
    std::string image = good;
    set(image, at, value);
    return image;
  };
  const std::string file = folder.file("load");
  const Error malformed = failure(message::bad_format, file.c_str());
  const Error other_version = {ZT_ERR_IMAGE_VERSION,
                               gbk(message::image_version, file.c_str(), "xests 1", version_text)};
  const struct {
    const char* what;
    std::string image;
    Error error;
  } cases[] = {
      {"another version", with(at_version, 'x'), other_version},
      {"another version, and truncated", with(at_version, 'x').substr(0, 150), other_version},
      {"nothing", "", malformed},
      {"part of a version", good.substr(0, 100), malformed},
      {"half a header", good.substr(0, 191), malformed},
      {"half a catalog", good.substr(0, 200), malformed},
      {"one byte missing", good.substr(0, good.size() - 1), malformed},
      {"a smaller database", with(at_size, image_bytes - 8).substr(0, image_bytes - 8), malformed},
      {"a larger database", with(at_size, image_bytes + 8) + bytes("\0\0\0\0\0\0\0\0"), malformed},
      {"a size of 0", with(at_size, ZTINT8{0}), malformed},
      {"a negative size", with(at_size, ZTINT8{-1}), malformed},
      {"a table more", with(at_tablecount, ZTINT8{2}), malformed},
      {"no table", with(at_tablecount, ZTINT8{0}), malformed},
      {"a negative count", with(at_tablecount + 8, ZTINT8{-1}), malformed},
      {"a huge count", with(at_tablecount + 8, ZTINT8{1} << 60), malformed},
      {"another head size", with(at_memoryheadsize, head_end + 8), malformed},
      {"another table name", with(at_catalog, 'x'), malformed},
      {"another index name", with(at_catalog + table_bytes, 'x'), malformed},
      {"another index type", with(at_catalog + table_bytes + 80, 0), malformed},
      {"another field name", with(fields + 8, 'x'), malformed},
      {"another field type", with(fields + 88, 3), malformed},
      {"another field length", with(fields + 92, 4), malformed},
      {"other decimals", with(fields + 96, 2), malformed},
      {"another field in the index", with(static_cast<std::size_t>(head_end) - 8, 2), malformed},
      {"nodes below the heads", with(at_nodeoffset, head_end), malformed},
      {"a crooked node front", with(at_nodeoffset, nodes + 8), malformed},
      {"fronts that cross", with(at_dataoffset, nodes - 8), malformed},
      {"data behind the end", with(at_dataoffset, image_bytes + 8), malformed},
      {"a negative front", with(at_dataoffset, ZTINT8{-8}), malformed},
  };
  const std::string before = memory_of();
  for (const auto& each : cases) {
    EXPECT_FALSE(load(db, each.image)) << each.what;
    EXPECT_EQ(last_error(db), each.error) << each.what;
    EXPECT_FALSE(ZtxCheckDbFile(db, file.c_str())) << each.what;
    ASSERT_TRUE(memory_of() == before) << each.what;
  }
  EXPECT_FALSE(ZtReadDbFile(db, folder.file("missing").c_str()));
  EXPECT_EQ(last_error(db), failure(message::open_failed, folder.file("missing").c_str()));
  EXPECT_FALSE(ZtReadDbFile(db, folder.path().c_str()));
  EXPECT_EQ(last_error(db), failure(message::read_failed, folder.path().c_str()));
  EXPECT_TRUE(memory_of() == before);

  const struct {
    const char* what;
    std::string image;
  } accepted[] = {
      {"the image itself", good},
      {"something behind it", good + "x"},
      {"other counters and reserved words", with(at_catalog + at_recordcount, std::array<int, 2>{7, 7})},
  };
  for (const auto& each : accepted) {
    write_file(file, each.image);
    Database reader = open_items(directory, ZT_MODE_READ_ONLY);
    EXPECT_TRUE(ZtxCheckDbFile(reader, file.c_str())) << each.what;
    silence(reader);
    EXPECT_FALSE(ZtReadDbFile(reader, file.c_str()));
    EXPECT_EQ(last_error(reader), failure(message::database_read_only));
    ASSERT_TRUE(without_nonces(memory_of()) == without_nonces(before)) << "checking changes nothing";
    EXPECT_TRUE(ZtReadDbFile(db, file.c_str())) << each.what;
    ASSERT_TRUE(load(db, before));
  }
}

// ---- tables ----

std::string table_image(const std::vector<std::pair<int, const char*>>& records) {
  std::string image = version_text;
  image.resize(32);
  for (const auto& [id, name] : records) {
    std::string record(4 + name_bytes + 4 + 8, '\0');
    std::memcpy(record.data(), &id, sizeof id);
    std::memcpy(record.data() + 4, name, std::strlen(name));
    image += record;
  }
  return image;
}

TEST_F(Image, OfATableHoldsVersionAndLiveRecords) {
  Database db = create_items(directory);
  const std::string file = folder.file("items");
  EXPECT_TRUE(ZtWriteDbTable(db, items, file.c_str()));
  EXPECT_EQ(contents_of(file), table_image({}));
  ZtBeginTransaction(db);
  Row deleted(db);
  EXPECT_TRUE(put_item(db, 5, "five") && put_item(db, deleted, 6, "six", 0, 0) && put_item(db, 4, "four"));
  ZtDeleteRecord(db, deleted);
  ZtCommitTransaction(db);
  EXPECT_TRUE(ZtWriteDbTable(db, items, file.c_str()));
  EXPECT_EQ(contents_of(file), table_image({{5, "five"}, {4, "four"}}));

  EXPECT_TRUE(ZtReadDbTable(db, items, file.c_str())) << "no unique key is checked";
  EXPECT_TRUE(ZtReadDbTable(db, items, write_file(file, table_image({{7, "seven"}}) + "tail").c_str()));
  EXPECT_TRUE(ZtReadDbTable(db, items, write_file(file, table_image({})).c_str()));
  EXPECT_TRUE(ZtWriteDbTable(db, items, file.c_str()));
  EXPECT_EQ(contents_of(file),
            table_image({{5, "five"}, {4, "four"}, {5, "five"}, {4, "four"}, {7, "seven"}}));
  Condition last(by_id, 7);
  Row row(db);
  EXPECT_TRUE(ZtFindRecord(db, items, last, ZT_OP_EQUAL) && ZtGetRecord(db, last, row));
  EXPECT_EQ(ZtGetRecordId(db, row), 5);
}

TEST_F(Image, OfATableIsLoadedForGoodAndWithoutAMark) {
  Database db = create_items(directory);
  const std::string file = write_file(folder.file("items"), table_image({{1, "one"}}));
  ZtBeginTransaction(db);
  EXPECT_TRUE(ZtReadDbTable(db, items, file.c_str()));
  EXPECT_EQ(memory_of()[at_catalog + at_duty], 0);
  Database reader = open_items(directory, ZT_MODE_READ_ONLY);
  Row row(reader);
  EXPECT_TRUE(find_item(reader, 1, row)) << "a reader need not wait for the commit";
  ZtRollbackTransaction(db);
  EXPECT_TRUE(find_item(reader, 1, row));
}

TEST_F(Image, OfATableIsRefusedWithoutAHeader) {
  Database db = create_items(directory);
  silence(db);
  const std::string file = folder.file("items");
  for (const std::size_t size : {0u, 31u}) {
    EXPECT_FALSE(ZtReadDbTable(db, items, write_file(file, std::string(size, 'x')).c_str()));
    EXPECT_EQ(last_error(db), failure(message::bad_format, file.c_str()));
  }
  EXPECT_FALSE(ZtReadDbTable(db, items, folder.path().c_str()));
  EXPECT_EQ(last_error(db), failure(message::bad_format, folder.path().c_str()));
  EXPECT_FALSE(ZtReadDbTable(db, items, "/nowhere/at/all"));
  EXPECT_EQ(last_error(db), failure(message::open_failed, "/nowhere/at/all"));
  EXPECT_FALSE(ZtReadDbTable(db, 1, file.c_str()));
  EXPECT_EQ(last_error(db), failure(message::bad_table, 1));
  Database reader = open_items(directory, ZT_MODE_READ_ONLY);
  silence(reader);
  EXPECT_FALSE(ZtReadDbTable(reader, items, file.c_str()));
  EXPECT_EQ(last_error(reader), (Error{ZT_ERR_READ_ONLY, gbk(message::table_read_only, "items")}));
}

TEST_F(Image, OfATableKeepsWhatWasLoadedBeforeTheMemoryRanOut) {
  Database db = create_items(directory, 128 << 10);
  silence(db);
  std::vector<std::pair<int, const char*>> records(1000, {1, "same"});
  EXPECT_FALSE(ZtReadDbTable(db, items, write_file(folder.file("items"), table_image(records)).c_str()));
  EXPECT_EQ(last_error(db).code, ZT_ERR_NO_MEMORY);
  ZTINT8 size = 0;
  ZTINT8 used = 0;
  ZtMemoryInfo(db, &size, &used);
  EXPECT_LT(used, size - 81920 + 200) << "no more than one record behind the last that fitted";
  long count = 0;
  long bytes = 0;
  ZtTableSize(db, items, count, bytes);
  EXPECT_GT(count, 100);
  EXPECT_TRUE(ZtWriteDbTable(db, items, folder.file("again").c_str()));
  EXPECT_EQ(contents_of(folder.file("again")).size(),
            table_image({}).size() + static_cast<std::size_t>(count) * 36);
}

TEST_F(Image, OfATableNeverLeavesATextWithoutAnEnd) {
  Database db = create_items(directory);
  std::string image = table_image({{1, ""}});
  std::fill_n(image.begin() + 32 + 4, name_bytes, 'x');
  EXPECT_TRUE(ZtReadDbTable(db, items, write_file(folder.file("items"), image).c_str()));
  Row row(db);
  ASSERT_TRUE(find_item(db, 1, row));
  EXPECT_EQ(row.text(item_name), std::string(name_bytes - 1, 'x'));
}

TEST_F(Image, OfATableWithoutFieldsHasNoRecordToCount) {
  Database db = begin_create(directory);
  ZtAddTable(db, "none");
  finish_create(db);
  Row row(db);
  EXPECT_TRUE(ZtNewRecord(db, 0, row) && ZtPutRecord(db, row));
  const std::string file = folder.file("none");
  EXPECT_TRUE(ZtWriteDbTable(db, 0, file.c_str()));
  EXPECT_EQ(contents_of(file), table_image({}));
  EXPECT_TRUE(ZtReadDbTable(db, 0, write_file(file, table_image({}) + "more").c_str()));
}

// ---- folders ----

void define_two(ZtDbHandle db) {
  define_items(db);
  ZtAddTable(db, "second");
  ZtAddField(db, 1, "n", FIELD_INT, 4, -1);
}

TEST_F(Image, OfAFolderHasAFilePerTable) {
  Database db = begin_create(directory);
  define_two(db);
  finish_create(db);
  const std::string path = folder.file("images");
  EXPECT_TRUE(commit_item(db, 1, "one"));
  EXPECT_TRUE(ZtWriteDbDir(db, path.c_str()));
  EXPECT_EQ(contents_of(path + "/items.table"), table_image({{1, "one"}}));
  EXPECT_EQ(contents_of(path + "/second.table"), table_image({}));

  EXPECT_TRUE(commit_item(db, 2, "two"));
  const auto data_front = get<ZTINT8>(memory_of(), at_dataoffset);
  ZtBeginTransaction(db);
  EXPECT_TRUE(put_item(db, 3, "three"));
  const auto changed_front = get<ZTINT8>(memory_of(), at_dataoffset);
  EXPECT_LT(changed_front, data_front);
  EXPECT_TRUE(ZtReadDbDir(db, path.c_str()));
  ZtRollbackTransaction(db);  // nothing of the abandoned records comes back
  EXPECT_LT(get<ZTINT8>(memory_of(), at_dataoffset), changed_front) << "their memory is not given back";
  EXPECT_TRUE(ZtWriteDbTable(db, items, folder.file("items").c_str()));
  EXPECT_EQ(contents_of(folder.file("items")), table_image({{1, "one"}}));
  Row row(db);
  ASSERT_TRUE(find_item(db, 1, row));
  EXPECT_EQ(ZtGetRecordId(db, row), 0);
}

TEST_F(Image, OfAFolderIsCheckedBeforeTheDatabaseIsEmptied) {
  Database db = begin_create(directory);
  define_two(db);
  finish_create(db);
  silence(db);
  EXPECT_TRUE(commit_item(db, 1, "one"));
  const std::string path = folder.file("images");
  const std::string before = memory_of();
  EXPECT_FALSE(ZtReadDbDir(db, path.c_str()));
  EXPECT_EQ(last_error(db), failure(message::open_failed, (path + "//items.table").c_str()));
  EXPECT_TRUE(ZtWriteDbDir(db, path.c_str()));
  write_file(path + "/second.table", "short");
  EXPECT_FALSE(ZtReadDbDir(db, path.c_str()));
  EXPECT_EQ(last_error(db), failure(message::bad_format, (path + "//second.table").c_str()));
  EXPECT_TRUE(memory_of() == before);
  EXPECT_FALSE(ZtWriteDbDir(db, nullptr) || ZtReadDbDir(db, nullptr) || ZtWriteDbFile(db, nullptr) ||
               ZtReadDbFile(db, nullptr) || ZtWriteDbTable(db, items, nullptr) ||
               ZtReadDbTable(db, items, nullptr));
  EXPECT_EQ(last_error(db), failure(message::open_failed, ""));
  EXPECT_FALSE(ZtWriteDbDir(db, "/nowhere/at/all"));
  EXPECT_EQ(last_error(db), failure(message::open_failed, "/nowhere/at/all//items.table"));
}

TEST_F(Image, OfAFolderIsEmptyWithoutTables) {
  Database db = begin_create(directory);
  finish_create(db);
  EXPECT_TRUE(ZtWriteDbDir(db, folder.file("images").c_str()));
  EXPECT_TRUE(std::filesystem::is_empty(folder.file("images")));
  EXPECT_TRUE(ZtReadDbDir(db, folder.file("images").c_str()));
}

TEST_F(Image, SizesFollowFromTheSchema) {
  Database db = create_items(directory);
  silence(db);
  EXPECT_TRUE(commit_item(db, 1) && commit_item(db, 2));
  long count = -1;
  long size = -1;
  ZtTableSize(db, items, count, size);
  EXPECT_EQ(count, 2);
  EXPECT_EQ(size, 2 * (36 + 14) + 2 * 74 + 3 * 2 * (12 + 86));
  ZtTableSize(db, 1, count, size);
  EXPECT_EQ(count, 0);
  EXPECT_EQ(size, 0);
  EXPECT_EQ(last_error(db), failure(message::bad_table, 1));
}

}  // namespace
}  // namespace cachet::test
