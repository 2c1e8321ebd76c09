// The commands that handle rows, as their users run them: what goes in comes out, in every format and encoding; what does
// not fit is refused with its reason; and the database that they have opened stays.
#include "tools/zt_data.h"

#include <algorithm>
#include <sstream>

#include "support/raw_memory.h"

namespace cachet::test {
namespace {

constexpr char every_type[] = R"(
[[tables]]
name = "all"
fields = [
  {name = "s", type = "SHORT"}, {name = "i", type = "INT"}, {name = "c", type = "CHAR"},
  {name = "us", type = "USHORT"}, {name = "ui", type = "UINT"}, {name = "uc", type = "UCHAR"},
  {name = "t", type = "STRING", length = 5}, {name = "d", type = "DOUBLE"},
  {name = "r", type = "DOUBLE", decimals = 2}, {name = "l", type = "INT8"},
]
)";

class ZtRows : public ZtData {
 protected:
  // The ids that get prints, in its order, with blanks between them.
  std::string ids(Words more) const {
    more.insert(more.begin(), "items");
    std::istringstream lines(on("get", more).out);
    std::string line, all;
    std::getline(lines, line);  // the titles
    while (std::getline(lines, line)) all += line.substr(0, line.find('\t')) + " ";
    return all;
  }
};

TEST_F(ZtRows, PrintsRowsInEveryFormat) {
  make(goods);
  ASSERT_EQ(on("insert", {goods_utf8, "id=-1", std::string("a\"b=") + goods_utf8, "price=2.675"}).status, ok);
  ASSERT_EQ(on("insert", {goods_utf8, "id=2", "a\"b=x,|\t\"", "price=1e3"}).status, ok);
  const struct {
    const char* option;
    const char* expected;
  } cases[] = {
      {"--tsv", "record_id\tid\ta\"b\tprice\n0\t-1\t@\t2.68\n1\t2\tx,|\\t\"\t1000\n"},
      {"--csv", "record_id,id,\"a\"\"b\",price\r\n0,-1,@,2.68\r\n1,2,\"x,|\t\"\"\",1000\r\n"},
      {"--md",
       "| record_id | id | a\"b | price |\n|---:|---:|---|---:|\n| 0 | -1 | @ | 2.68 |\n"
       "| 1 | 2 | x,\\|\\t\" | 1000 |\n"},
      {"--json",
       "[{\"record_id\":0,\"id\":-1,\"a\\\"b\":\"@\",\"price\":2.68},\n"
       " {\"record_id\":1,\"id\":2,\"a\\\"b\":\"x,|\\t\\\"\",\"price\":1000.0}]\n"},
      {"--line",
       "record_id = 0\n       id = -1\n      a\"b = @\n    price = 2.68\n\n"
       "record_id = 1\n       id = 2\n      a\"b = x,|\\t\"\n    price = 1000\n"},
  };
  for (const auto& [option, expected] : cases)
    EXPECT_EQ(on("get", {goods_utf8, "--with-id", option}).out, in_chinese(expected)) << option;
  remove();
}

TEST_F(ZtRows, ReadsAndPrintsTextsInTheEncodingOutside) {
  make(goods);
  const std::string gbk = std::string("a\"b=") + goods_gbk;
  EXPECT_EQ(on("insert", {goods_gbk, gbk, "--encoding", "GBK"}).status, ok);
  EXPECT_EQ(on("get", {goods_gbk, "--encoding", "GBK"}).out,
            std::string("id\ta\"b\tprice\n0\t") + goods_gbk + "\t0\n");
  EXPECT_TRUE(contains(on("get", {goods_utf8}).out, std::string("0\t") + goods_utf8));
  // What is no text outside is not stored as something else.
  const Result refused = on("insert", {goods_utf8, gbk});
  EXPECT_EQ(refused.status, usage);
  EXPECT_TRUE(contains(refused.err, "--encoding")) << refused.err;
  EXPECT_EQ(on("count", {goods_utf8}).out, in_chinese("table\trows\n@\t1\n"));
  remove();
}

TEST_F(ZtRows, TakesWhatAFieldHoldsAndNothingElse) {
  make(every_type);
  const struct {
    const char* value;
    const char* shown;  // null: refused
  } cases[] = {
      {"s=-32768", "-32768"},
      {"s=32767", "32767"},
      {"s=32768", nullptr},
      {"s=-32769", nullptr},
      {"s=1.5", nullptr},
      {"s=", nullptr},
      {"s= 1", nullptr},
      {"i=-2147483648", "-2147483648"},
      {"i=+2147483647", "2147483647"},
      {"i=2147483648", nullptr},
      {"i=99999999999999999999", nullptr},
      {"us=65535", "65535"},
      {"us=65536", nullptr},
      {"us=-1", nullptr},
      {"ui=4294967295", "4294967295"},
      {"ui=4294967296", nullptr},
      {"l=-9223372036854775808", "-9223372036854775808"},
      {"l=9223372036854775807", "9223372036854775807"},
      {"l=9223372036854775808", nullptr},
      {"c=Y", "Y"},
      {"c=", ""},
      {"c=ab", nullptr},
      {"c=\\xff", "\\\\xff"},
      {"uc=\\x81", "\\\\x81"},
      {"uc=\xe5\x95\x86", nullptr},
      {"t=1234", "1234"},
      {"t=12345", nullptr},
      {"t=\xe5\x95\x86\xe5\x93\x81", "\xe5\x95\x86\xe5\x93\x81"},
      {"t=\xe5\x95\x86\xe5\x93\x81!", nullptr},
      {"t=\xf0\x9f\x98\x80", nullptr},
      {"d=0.1", "0.1"},
      {"d=0.30000000000000004", "0.30000000000000004"},
      {"d=1.7976931348623157e308", "1.7976931348623157e+308"},
      {"d=1e309", nullptr},
      {"d=-inf", "-inf"},
      {"d=1,5", nullptr},
      {"r=-2.675", "-2.68"},
      {"r=inf", nullptr},
  };
  const std::string names[] = {"s", "i", "c", "us", "ui", "uc", "t", "d", "r", "l"};
  int row = 0;
  for (const auto& each : cases) {
    const Result insert = on("insert", {"all", each.value});
    if (each.shown == nullptr) {
      EXPECT_EQ(insert.status, usage) << each.value;
      EXPECT_EQ(insert.err.rfind("zt: field ", 0), 0u) << insert.err;
      continue;
    }
    EXPECT_EQ(insert.status, ok) << each.value << insert.err;
    const std::string name = std::string(each.value).substr(0, std::string(each.value).find('='));
    std::istringstream out(on("get", {"all", "--id", std::to_string(row++)}).out);
    std::string line, cell;
    std::getline(out, line);
    for (const std::string& column : names) {
      std::getline(out, cell, column == "l" ? '\n' : '\t');
      if (column != name) continue;
      EXPECT_EQ(cell, each.shown) << each.value;
    }
  }
  remove();
}

TEST_F(ZtRows, FindsWhatTheOperatorsSay) {
  const Database db = create_items(directory);
  for (const int id : {5, 1, 9, 3, 7}) commit_item(db, id, id < 5 ? "a" : "b", id % 2);
  const struct {
    Words options;
    const char* expected;
  } cases[] = {
      {{}, "5 1 9 3 7 "},
      {{"--reverse"}, "7 3 9 1 5 "},
      {{"--reverse", "--limit", "2"}, "7 3 "},
      {{"--limit=0"}, ""},
      {{"--index", "by id"}, "1 3 5 7 9 "},
      {{"--index", "by id", "--reverse"}, "9 7 5 3 1 "},
      {{"--index", "by id", "<", "5"}, "1 3 "},
      {{"--index", "by id", "<=", "5"}, "1 3 5 "},
      {{"--index", "by id", "=", "5"}, "5 "},
      {{"--index", "by id", "==5"}, "5 "},
      {{"--index", "by id", ">=", "5"}, "5 7 9 "},
      {{"--index", "by id", ">", "5"}, "7 9 "},
      {{"--index", "by id", ">5", "--limit=1"}, "7 "},
      {{"--index", "by id", "lt", "4", "--reverse"}, "3 1 "},
      {{"--index", "by id", "ge", "-5"}, "1 3 5 7 9 "},
      {{"--index", "by id", "<", "1"}, ""},
      {{"--index", "by name", "=", "b"}, "5 9 7 "},
      {{"--index", "by name", "=b", "--reverse"}, "7 9 5 "},
      {{"--id", "2"}, "9 "},
  };
  for (const auto& each : cases) {
    EXPECT_EQ(ids(each.options), each.expected) << ::testing::PrintToString(each.options);
    if (contains(::testing::PrintToString(each.options), "limit") ||
        contains(each.options.empty() ? "" : each.options[0], "reverse"))
      continue;
    Words count = each.options;
    std::erase(count, "--reverse");
    count.insert(count.begin(), "items");
    const auto rows = std::count(each.expected, each.expected + std::string(each.expected).size(), ' ');
    EXPECT_EQ(on("count", count).out, "table\trows\nitems\t" + std::to_string(rows) + "\n");
  }
}

TEST_F(ZtRows, ComparesCompoundKeysFieldByField) {
  make(goods);
  for (const auto* const id : {"3", "1", "2"}) {
    for (const auto* const name : {"a\"b=x", "a\"b=y"})
      on("insert", {goods_utf8, name, "id=" + std::to_string(std::stoi(id) + 10 * (name[4] == 'y'))});
  }
  EXPECT_EQ(on("get", {goods_utf8, "--index", "by both", ">=", "x", "3"}).out,
            "id\ta\"b\tprice\n3\tx\t0\n11\ty\t0\n12\ty\t0\n13\ty\t0\n");
  const Result few = on("get", {goods_utf8, "--index", "by both", "=", "x"});
  EXPECT_EQ(few.status, usage);
  EXPECT_TRUE(contains(few.err, "(a\"b, id)")) << few.err;
  remove();
}

TEST_F(ZtRows, ChangesAndDeletesAllThatMatchOrNothing) {
  const Database db = create_items(directory);
  for (int id = 0; id < 6; ++id) commit_item(db, id, "n" + std::to_string(id % 2), id);
  EXPECT_EQ(on("set", {"items", "price=1.5", "--index", "by name", "=n1"}).out, "table\tchanged\nitems\t3\n");
  EXPECT_EQ(on("get", {"items", "--index", "by name", "=n1", "--limit=1"}).out,
            "id\tname\tteam\tprice\n1\tn1\t1\t1.5\n");
  EXPECT_EQ(on("set", {"items", "--index", "by id", "=0", "price=0", "name="}).status, failure);
  EXPECT_EQ(on("set", {"items", "--index", "by id", "=", "1", "price=1.5"}).status, ok);
  const Result indexed = on("set", {"items", "price=9", "team=9", "--index", "by id", ">=0"});
  EXPECT_EQ(indexed.status, failure);
  EXPECT_TRUE(contains(indexed.err, "(-1004)")) << indexed.err;
  EXPECT_FALSE(contains(on("get", {"items"}).out, "\t9"));

  const Result dry = on("delete", {"items", "--index", "by id", "<2", "--dry-run"});
  EXPECT_EQ(dry.out, "record_id\tid\tname\tteam\tprice\n0\t0\tn0\t0\t0\n1\t1\tn1\t1\t1.5\n");
  EXPECT_EQ(dry.err, "zt: 2 rows would be deleted\n");
  EXPECT_EQ(ids({}), "0 1 2 3 4 5 ");
  EXPECT_EQ(on("delete", {"items", "--index", "by id", "<2"}).out, "table\tdeleted\nitems\t2\n");
  EXPECT_EQ(on("delete", {"items", "--id", "4"}).out, "table\tdeleted\nitems\t1\n");
  EXPECT_EQ(ids({}), "2 3 5 ");
}

TEST_F(ZtRows, TellsByItsStatusWhatWentWrong) {
  const Database db = create_items(directory);
  commit_item(db, 1);
  expect_statuses({
      {{"get", path(), "nothing"}, not_found},
      {{"get", path(), "items", "--index", "by nothing"}, not_found},
      {{"get", path(), "items", "--id", "7"}, not_found},
      {{"get", path(), "items", "--index", "by id", "=7"}, ok},
      {{"get", path(), "items", "--index", "by id", "~7"}, usage},
      {{"get", path(), "items", "--index", "by id", "=x"}, usage},
      {{"get", path(), "items", "--index", "by id", "=", "1", "2"}, usage},
      {{"get", path(), "items", "--id", "-1"}, usage},
      {{"insert", path(), "items", "nothing=1"}, not_found},
      {{"insert", path(), "items", "id"}, usage},
      {{"insert", path(), "items", "id=1", "id=2"}, usage},
      {{"insert", path(), "items", "id=1"}, failure},
      {{"set", path(), "items", "price=1"}, usage},
      {{"set", path(), "items", "--id", "0"}, usage},
      {{"set", path(), "items", "price=1", "--id", "7"}, not_found},
      {{"delete", path(), "items"}, usage},
      {{"delete", path(), "items", "--index", "by id", "=7"}, not_found},
      {{"delete", path(), "items", "--id", "7", "--dry-run"}, not_found},
  });
  EXPECT_EQ(on("get", {"items", "--tsv"}).out, "id\tname\tteam\tprice\n1\t\t0\t0\n");
}

TEST_F(ZtRows, AnOrphanSurvivesAllOfThem) {
  make(goods);
  const int segment = segment_id(directory.base() + "00.data");
  for (const Words& words : std::vector<Words>{{"insert", "id=1"},
                                               {"insert", "id=1"},
                                               {"get"},
                                               {"count"},
                                               {"set", "price=1", "--id", "0"},
                                               {"delete", "--id", "0"}}) {
    Words more(words.begin() + 1, words.end());
    more.insert(more.begin(), goods_utf8);
    on(words.front(), more);
    EXPECT_EQ(segment_id(directory.base() + "00.data"), segment) << words.front();
    EXPECT_EQ(segment_status(segment).shm_nattch, 0u) << words.front();
  }
  EXPECT_EQ(on("verify", {}).out, "severity\twhere\twhat\n");
  EXPECT_TRUE(contains(on("tables", {}).out, in_chinese("0\t@\t0\t1\t")));

  const Result again = create(goods);
  EXPECT_EQ(again.status, refused);
  EXPECT_TRUE(contains(again.out, "zt rm " + path())) << again.out;
  EXPECT_EQ(segment_id(directory.base() + "00.data"), segment);
  remove();
  EXPECT_EQ(directory.leftovers(), std::vector<std::string>{});
}

TEST_F(ZtRows, DoesNotTakePartOfATableForAll) {
  const Database db = create_items(directory);
  for (int id = 0; id < 9; ++id) commit_item(db, id);
  Rb_base* const base = base_of(db);
  Rb_node node = rb_last(base, static_cast<ZtDbHandle>(db)->database[items].listindex);
  for (int i = 0; i < 4; ++i) node = rb_prev(base, node);
  const auto linked = node->c.list.blink;
  const std::pair<unsigned, const char*> cases[] = {{0x7fffffffu, "break off"},
                                                    {node->c.list.flink, "circles"}};
  for (const auto& [link, what] : cases) {
    node->c.list.blink = link;
    for (const char* const command : {"get", "count"}) {
      const Result run = on(command, {"items"});
      EXPECT_EQ(run.status, damaged) << run.out;
      EXPECT_TRUE(contains(run.err, what)) << run.err;
    }
  }
  node->c.list.blink = linked;
  EXPECT_EQ(ids({}), "0 1 2 3 4 5 6 7 8 ");
}

TEST_F(ZtRows, WaitsForNobodyWhoIsDead) {
  make_orphan(2, 1);
  for (const Words& words : std::vector<Words>{{"get", "items"},
                                               {"count", "items"},
                                               {"insert", "items", "id=77"},
                                               {"delete", "items", "--id", "0"}}) {
    const Result run = on(words.front(), Words(words.begin() + 1, words.end()));
    EXPECT_EQ(run.status, damaged) << words.front();
    EXPECT_TRUE(contains(run.err, "zt reap " + path())) << run.err;
  }
  EXPECT_EQ(on("reap", {}).status, ok);
  EXPECT_EQ(on("insert", {"items", "id=77"}).status, ok);
  EXPECT_EQ(ids({}), "0 1 77 ");
  remove();
}

TEST_F(ZtRows, WaitsForAWriterAndShowsWhatItHasCommitted) {
  const Database db = create_items(directory);
  for (const Words& words :
       std::vector<Words>{{"get", path(), "items"}, {"insert", path(), "items", "id=5"}}) {
    ZtBeginTransaction(db);
    put_item(db, words.front() == "get" ? 1 : 2);
    Child waiting([&](Gate&) { return become_zt(words, {}); }, Child::Output::captured);
    waiting.wait_until_asleep();
    ZtCommitTransaction(db);
    EXPECT_EQ(waiting.exit_status(), ok) << waiting.errors();
    EXPECT_TRUE(contains(waiting.output(), words.front() == "get" ? "\n1\t\t0\t0\n" : "items\t1\t2\n"))
        << waiting.output();
  }
  EXPECT_EQ(ids({}), "1 2 5 ");
}

}  // namespace
}  // namespace cachet::test
