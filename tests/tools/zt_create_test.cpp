// zt create: it makes what a schema file says and programs then open, says where such a file is wrong, and makes nothing
// where a check finds a fault.
#include "tools/zt_data.h"

namespace cachet::test {
namespace {

using ZtCreate = ZtData;

TEST_F(ZtCreate, ProgramsOpenWhatItHasMade) {
  make(goods);
  ASSERT_EQ(on("insert", {goods_utf8, "id=5", "price=2"}).status, ok);
  Database db = begin_open(directory, ZT_MODE_READ_WRITE, "d", "1");
  ASSERT_TRUE(db.opened);
  finish_open(db);
  Row row(db);
  const Condition all(-1);
  ASSERT_TRUE(ZtListRecord(db, 0, all) && ZtGetRecord(db, all, row));
  EXPECT_EQ(row.get<int>(0), 5);
  EXPECT_EQ(row.get<double>(2), 2.0);
  EXPECT_EQ(on("get", {goods_utf8}).status, ok);
  EXPECT_EQ(create(goods).status, refused);
}

TEST_F(ZtCreate, WritesTheSchemaFileThatItReads) {
  make(goods);
  EXPECT_EQ(on("schema", {"--as", "json"}).out, in_chinese(goods));
  const std::string toml = on("schema", {"--as=toml"}).out;
  remove();
  make(toml);
  EXPECT_EQ(on("schema", {"--as", "json"}).out, in_chinese(goods));
  remove();
}

TEST_F(ZtCreate, SaysWhereASchemaFileIsWrong) {
  const auto with = [](const std::string& rest) {
    return "[[tables]]\nname = \"a\"\nfields = [{name = \"x\", type = \"INT\"}" + rest;
  };
  const std::pair<std::string, const char*> cases[] = {
      {"", "no table"},
      {"[[tables]", "schema:1:10"},
      {"{\"tables\":\n}", "schema:2:1"},
      {"{\"tables\": 1}", "no list"},
      {"[[tables]]\nfields = []", "\"name\""},
      {"[[tables]]\nname = \"a\"", "no field"},
      {"[[tables]]\nname = \"" + std::string(79, 'a') + "\"", "78 bytes"},
      {"[[tables]]\nname = \"\xf0\x9f\x98\x80\"", "encoding"},
      {with(", {name = \"y\", type = \"int\"}]"), "field 2: \"type\""},
      {with(", {name = \"x\", type = \"INT\"}]"), "two are named"},
      {with(", {name = \"y\", type = \"STRING\"}]"), "\"length\""},
      {with(", {name = \"y\", type = \"STRING\", length = 65536}]"), "1 to 65535"},
      {with(", {name = \"y\", type = \"SHORT\", lenght = 2}]"), "lenght"},
      {with(", {name = \"y\", type = \"INT\", decimals = 2}]"), "DOUBLE"},
      {with(", {name = \"y\", type = \"STRING\", length = 40000}, {name = \"z\", type = \"INT\"}]"), "32767"},
      {with("]\nindexes = [{name = \"i\"}]"), "1 to 127"},
      {with("]\nindexes = [{name = \"i\", fields = [\"y\"]}]"), "no field \"y\""},
      {with("]\nindexes = [{name = \"i\", fields = [\"x\", \"x\"]}]"), "twice"},
  };
  for (const auto& [text, expected] : cases) {
    const Result run = create(text);
    EXPECT_EQ(run.status, usage) << text;
    EXPECT_TRUE(contains(run.err, expected)) << text << "\n" << run.err;
  }
}

TEST_F(ZtCreate, ChecksBeforeItMakesAnything) {
  const struct {
    const char* size;
    int status;
    const char* fault;
  } cases[] = {
      {"1K", damaged, "size\tfault\t"},
      {"101G", damaged, "size\tfault\t"},
      {"9999T", damaged, "memory\tfault\t"},
      {"-1", usage, ""},
      {"1X", usage, ""},
  };
  for (const auto& each : cases) {
    const Result run = create(goods, each.size);
    EXPECT_EQ(run.status, each.status) << each.size;
    EXPECT_TRUE(contains(run.out, each.fault)) << each.size << run.out;
    EXPECT_EQ(directory.leftovers(), std::vector<std::string>{}) << each.size;
  }
  const Result nowhere =
      zt({"create", path("no/where"), "--schema", schema_file(goods), "--size=1M", "--version=1"});
  EXPECT_EQ(nowhere.status, damaged);
  EXPECT_TRUE(contains(nowhere.out, "mkdir -p " + path("no"))) << nowhere.out;
  const Result far = zt(
      {"create", path(std::string(80, 'n').c_str()), "--schema", path("schema"), "--size=1M", "--version=1"});
  EXPECT_TRUE(contains(far.out, "path\tfault\t")) << far.out;

  const Result dry = create(goods, "1M", {"--dry-run"});
  EXPECT_EQ(dry.status, ok) << dry.err;
  EXPECT_TRUE(contains(dry.out, "segments\twould be made\t1 of 1048576 bytes")) << dry.out;
  EXPECT_TRUE(contains(dry.out, in_chinese("table\twould be made\t@")));
  EXPECT_EQ(directory.leftovers(), std::vector<std::string>{});
}

}  // namespace
}  // namespace cachet::test
