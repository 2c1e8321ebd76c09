// Text and binary table files: their bytes, what an import makes of a hand-made file, and the line readers.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "support/all_types.h"
#include "support/files.h"
#include "support/texts.h"

namespace cachet::test {
namespace {

class TableFile : public DatabaseTest {
 protected:
  std::string exported(ZtDbHandle db, decltype(ZtWriteTableTxt)* write = ZtWriteTableTxt) const {
    EXPECT_TRUE(write(db, all, folder.file("export").c_str()));
    return contents_of(folder.file("export"));
  }
  // Imports the bytes and exports the table again.
  std::string imported(ZtDbHandle db, std::string_view bytes,
                       decltype(ZtReadTableTxt)* read = ZtReadTableTxt) const {
    Row row(db);
    EXPECT_TRUE(read(db, all, row, write_file(folder.file("import"), bytes).c_str()));
    return exported(db);
  }

  Folder folder;
};

std::string prefixed(std::string_view line) {
  const auto length = static_cast<std::int32_t>(line.size() + 1);
  std::string framed(reinterpret_cast<const char*>(&length), sizeof length);
  return framed.append(line).append(1, '\0');
}

const Values typical = {-7,
                        70000,
                        'x',
                        65535,
                        4000000000U,
                        200,
                        "tin;=,\n",
                        2.5,
                        2.675,
                        0.125,
                        -9000000000000000000LL,
                        {'a', 'b', 'c'}};
const char typical_line[] =
    "s=-7;i=70000;c=x;us=65535;u=-294967296;uc=\xC8;t=tin;=,\n;d0=3;d2=2.68;d=0.125000;big=-"
    "9000000000000000000;"
    "raw=";
const char empty_line[] = "s=0;i=0;c=;us=0;u=0;uc=;t=;d0=0;d2=0.00;d=0.000000;big=0;raw=";

TEST_F(TableFile, HoldsOneLinePerLiveRecordInAscendingOrderOfIds) {
  Database db = create_all(directory);
  EXPECT_EQ(exported(db), "");
  EXPECT_EQ(exported(db, ZtWriteTableBinary), "");
  ZtBeginTransaction(db);
  Row deleted(db);
  EXPECT_TRUE(put(db, typical) && put(db, deleted, {}) && put(db, {}));
  ZtDeleteRecord(db, deleted);
  ZtCommitTransaction(db);
  EXPECT_EQ(exported(db), typical_line + std::string("\n") + empty_line + "\n");
  EXPECT_EQ(exported(db, ZtWriteTableBinary), prefixed(typical_line) + prefixed(empty_line));
  Database reader = open_items(directory, ZT_MODE_READ_ONLY);
  EXPECT_EQ(exported(reader), exported(db)) << "a read-only handle sees the same";
}

TEST_F(TableFile, WritesTheExtremesOfEveryType) {
  Database db = create_all(directory);
  const double huge = std::numeric_limits<double>::max();
  char text[400];
  std::snprintf(text, sizeof text, "%f", huge);
  EXPECT_TRUE(put(db, {-32768,
                       std::numeric_limits<int>::min(),
                       '\xFF',
                       32768,
                       2147483648U,
                       255,
                       "elevenchars",
                       -0.4,
                       -2.675,
                       huge,
                       std::numeric_limits<ZTINT8>::min(),
                       {}}));
  EXPECT_TRUE(put(db, {32767,
                       std::numeric_limits<int>::max(),
                       ';',
                       0,
                       2147483647,
                       '=',
                       "cut at eleven",
                       1e15,
                       1e9,
                       -INFINITY,
                       std::numeric_limits<ZTINT8>::max(),
                       {}}));
  EXPECT_EQ(exported(db),
            "s=-32768;i=-2147483648;c=\xFF;us=32768;u=-2147483648;uc=\xFF;t=elevenchars;d0=0;d2=-2.68;d=" +
                std::string(text) +
                ";big=-9223372036854775808;raw=\n"
                "s=32767;i=2147483647;c=;;us=0;u=2147483647;uc==;t=cut at elev;d0=1000000000000000;"
                "d2=1000000000.00;d=-inf;big=9223372036854775807;raw=\n");
}

TEST_F(TableFile, TakesWhatItCanFromAHandMadeLine) {
  const struct {
    const char* what;
    std::string line;
    const char* stored;  // s, i, c, us, t, d2 and big of the one record
  } cases[] = {
      {"any order, unknown names, blanks before", " \t i=5;nothing=1;s=3",
       "s=3;i=5;c=;us=0;t=;d2=0.00;big=0"},
      {"names that end alike", "xs=9;bigs=8;s=1;us=2", "s=1;i=0;c=;us=2;t=;d2=0.00;big=0"},
      {"the first of two counts", "i=1;i=2", "s=0;i=1;c=;us=0;t=;d2=0.00;big=0"},
      {"a blank or a tab before a name", "t=x i=4\ts=2", "s=2;i=4;c=;us=0;t=x i=4\ts=2;d2=0.00;big=0"},
      {"a value begins right behind the sign", "i= 12;t= a ;d2= 1.5", "s=0;i=12;c=;us=0;t= a ;d2=1.50;big=0"},
      {"no blank before the sign", "i =12", "s=0;i=0;c=;us=0;t=;d2=0.00;big=0"},
      {"numbers with something behind", "i=12abc;s=+7;us=0x10;d2=1e2z",
       "s=7;i=12;c=;us=0;t=;d2=100.00;big=0"},
      {"numbers that wrap and numbers that clamp", "s=65537;i=4294967297;us=-1;big=99999999999999999999",
       "s=1;i=1;c=;us=65535;t=;d2=0.00;big=9223372036854775807"},
      {"the first character, a text cut to its slot", "c=xyz;t=123456789abcdef",
       "s=0;i=0;c=x;us=0;t=123456789ab;d2=0.00;big=0"},
      {"empty values", "c=;t=;i=;d2=", "s=0;i=0;c=;us=0;t=;d2=0.00;big=0"},
      {"the end at a NUL", bytes("i=1\0;s=2"), "s=0;i=1;c=;us=0;t=;d2=0.00;big=0"},
      {"no pair at all", "hello", "s=0;i=0;c=;us=0;t=;d2=0.00;big=0"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.what);
    for (const bool binary : {false, true}) {
      Database db = create_all(directory);
      std::string text =
          binary ? imported(db, prefixed(each.line), ZtReadTableBinary) : imported(db, each.line);
      for (const char* const left_out : {"u=0;uc=;", "d0=0;", "d=0.000000;", ";raw=\n"}) {
        const std::size_t at = text.rfind(left_out);
        ASSERT_NE(at, std::string::npos) << text;
        text.erase(at, std::string_view(left_out).size());
      }
      EXPECT_EQ(text, each.stored);
    }
  }
}

TEST_F(TableFile, GoesOnBehindARefusedRow) {
  Database db = create_all(directory, ZT_INDEX_UNIQUE);
  silence(db);
  const std::string text = imported(db, "i=1;s=1\ni=1;s=2\r\n\r\n \t\n  i=2;s=3\n");
  EXPECT_NE(text.find("s=1;i=1"), std::string::npos);
  EXPECT_EQ(text.find("s=2"), std::string::npos);
  EXPECT_NE(text.find("s=3;i=2"), std::string::npos);
  EXPECT_EQ(last_error(db).code, ZT_ERR_DUPLICATE_KEY);
}

TEST_F(TableFile, EndsAnImportAtALineThatIsTooLong) {
  const auto line_of = [](std::size_t length, const char* head) {
    return head + std::string(length - std::string_view(head).size(), ';');
  };
  const struct {
    const char* what;
    std::string bytes;
    bool binary;
    int records;
  } cases[] = {
      {"text of 10240", line_of(10240, "i=1") + "\ni=2\n", false, 2},
      {"text of 10241", "i=1\n" + line_of(10241, "i=2") + "\ni=3\n", false, 1},
      {"binary of 10240 with its NUL", prefixed(line_of(10239, "i=1")) + prefixed("i=2"), true, 2},
      {"binary of 10241 with its NUL", prefixed("i=1") + prefixed(line_of(10240, "i=2")) + prefixed("i=3"),
       true, 1},
      {"a negative prefix", prefixed("i=1") + bytes("\xFF\xFF\xFF\xFFi=2\n") + prefixed("i=3"), true, 1},
      {"half a prefix", prefixed("i=1") + bytes("\x04\0"), true, 1},
      {"half a line", prefixed("i=1") + prefixed("i=2").substr(0, 7), true, 1},
      {"a prefix of 0", bytes("\0\0\0\0") + prefixed("i=1"), true, 2},
      {"no line feed in the end", "i=1\ni=2", false, 2},
  };
  for (const auto& each : cases) {
    Database db = create_all(directory);
    Row row(db);
    const std::string file = write_file(folder.file("import"), each.bytes);
    EXPECT_TRUE((each.binary ? ZtReadTableBinary : ZtReadTableTxt)(db, all, row, file.c_str())) << each.what;
    EXPECT_EQ(last_error(db), Error{}) << each.what;
    long count = 0;
    long size = 0;
    ZtTableSize(db, all, count, size);
    EXPECT_EQ(count, each.records) << each.what;
  }
}

TEST_F(TableFile, TellsWhatIsWrong) {
  Database db = create_all(directory);
  silence(db);
  Row row(db);
  const std::string missing = folder.file("missing");
  const std::string nowhere = folder.file("no/where");
  EXPECT_FALSE(ZtReadTableTxt(db, all, row, missing.c_str()));
  EXPECT_EQ(last_error(db), failure(message::open_failed, missing.c_str()));
  EXPECT_FALSE(ZtReadTableBinary(db, all, row, folder.path().c_str()));
  EXPECT_EQ(last_error(db), failure(message::read_failed, folder.path().c_str()));
  EXPECT_FALSE(ZtWriteTableTxt(db, all, nowhere.c_str()));
  EXPECT_EQ(last_error(db), failure(message::open_export_failed));
  EXPECT_FALSE(ZtWriteTableBinary(db, 1, missing.c_str()));
  EXPECT_EQ(last_error(db), failure(message::bad_table, 1));
  EXPECT_FALSE(ZtWriteTableTxt(db, all, nullptr));
  EXPECT_EQ(last_error(db), failure(message::open_export_failed));
  EXPECT_FALSE(ZtReadTableTxt(db, all, row, nullptr));
  EXPECT_EQ(last_error(db), failure(message::open_failed, ""));
  EXPECT_TRUE(put(db, typical));
  for (auto* const write : {ZtWriteTableTxt, ZtWriteTableBinary, ZtDumpTable}) {
    EXPECT_FALSE(write(db, all, "/dev/full"));
    EXPECT_EQ(last_error(db), failure(message::write_failed, "/dev/full"));
  }
  Database reader = open_items(directory, ZT_MODE_READ_ONLY);
  silence(reader);
  EXPECT_FALSE(ZtReadTableTxt(reader, all, row, missing.c_str()));
  EXPECT_EQ(last_error(reader), (Error{ZT_ERR_READ_ONLY, gbk(message::table_read_only, "all")}));
}

// ---- the exported line readers ----

class LineReader : public testing::Test {
 protected:
  struct Read {
    bool found;
    std::string line;
    off_t behind;
    bool operator==(const Read&) const = default;
  };

  // Reads lines until one is refused; the last entry is that one.
  std::vector<Read> read_all(std::string_view contents, int limit,
                             decltype(ReadTableTxtFileLine)* reader) const {
    const std::string path = write_file(folder.file("lines"), contents);
    const int file = open(path.c_str(), O_RDONLY);
    std::vector<Read> reads;
    do {
      std::string buffer(static_cast<std::size_t>(limit) + 2, '#');
      const bool found = reader(file, buffer.data(), limit);
      EXPECT_EQ(buffer.back(), '#') << "one byte more than the limit, no further";
      reads.push_back({found, found ? buffer.c_str() : "", lseek(file, 0, SEEK_CUR)});
    } while (reads.back().found);
    close(file);
    return reads;
  }

  Folder folder;
};

TEST_F(LineReader, LeavesTheDescriptorRightBehindTheLine) {
  using Reads = std::vector<Read>;
  EXPECT_EQ(
      read_all("ab\r\n\n \tc d\t\nefgh\nx", 4, ReadTableTxtFileLine),
      (Reads{{true, "ab", 3}, {true, "c d\t", 12}, {true, "efgh", 17}, {true, "x", 18}, {false, "", 18}}));
  EXPECT_EQ(read_all("abcd\nefghi\nj\n", 4, ReadTableTxtFileLine),
            (Reads{{true, "abcd", 5}, {false, "", 10}}));
  EXPECT_EQ(read_all(" \n", 0, ReadTableTxtFileLine), (Reads{{false, "", 2}}));
  EXPECT_EQ(
      read_all(prefixed("abc") + bytes("\2\0\0\0de") + bytes("\5\0\0\0fghij"), 4, ReadTableBinaryFileLine),
      (Reads{{true, "abc", 8}, {true, "de", 14}, {false, "", 18}}));
  EXPECT_EQ(read_all(bytes("\0\0\0\x80") + "abc", 4, ReadTableBinaryFileLine), (Reads{{false, "", 4}}));
}

TEST(ValueFinder, FindsATagAtASeparatorOnly) {
  const struct {
    const char* line;
    const char* tag;
    const char* value;  // null: none
  } cases[] = {
      {"recordid=1;id=2", "id", "2"},
      {"recordid=1", "id", nullptr},
      {"x id=2;y", "id", "2"},
      {"x\tid=2", "id", "2"},
      {"x,id=2", "id", nullptr},
      {"id=;x", "id", ""},
      {"id", "id", nullptr},
      {"idid=1; id=a=b ", "id", "a=b "},
      {"=5", "", "5"},
      {"a=1;b=2", "a=1;b", "2"},
      {"", "id", nullptr},
      {"id=1", "a tag that is longer than the line", nullptr},
  };
  for (const auto& each : cases) {
    std::string line = each.line;
    std::string tag = each.tag;
    char value[64] = "untouched";
    EXPECT_EQ(ReadTableTxtFileLineValue(line.data(), tag.data(), value), each.value != nullptr) << each.line;
    EXPECT_STREQ(value, each.value != nullptr ? each.value : "untouched") << each.line;
  }
}

}  // namespace
}  // namespace cachet::test
