// The command-line tool as its users run it: the real binary on databases that are in use, orphaned by kill -9, and
// broken; and its raw reader on bytes of every kind.
#include <sched.h>
#include <sys/wait.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

#include "inspect/database_check.h"
#include "inspect/table_check.h"
#include "support/raw_memory.h"
#include "tools/zt_program.h"

namespace cachet::test {
namespace {

TEST_F(Zt, LeavesEmptyWhatIsNotThere) {
  const Database db = create_goods();
  const char json[] =
      R"([{"table":"@","kind":"field","id":0,"name":"id","type":"INT","length":4,"decimals":null,"offset":0,"fields":null},
 {"table":"@","kind":"field","id":1,"name":"a,\"b|","type":"DOUBLE","length":8,"decimals":2,"offset":4,"fields":null},
 {"table":"@","kind":"index","id":0,"name":"by id","type":"unique","length":null,"decimals":null,"offset":null,"fields":"id"}]
)";
  EXPECT_EQ(zt({"schema", path(), "--json"}).out, in_chinese(json));
  EXPECT_NE(zt({"schema", path(), "--md"}).out.find(" | index | 0 | by id | unique |  |  |  | id |\n"),
            std::string::npos);
}

TEST_F(Zt, FramesTextsOfDoubleWidthInColumnsOfOneWidth) {
  const Database db = create_goods();
  const std::string side = "\xe2\x94\x82";  // the vertical line
  EXPECT_NE(zt({"schema", path(), "--box"}).out.find(side + " " + goods_utf8 + "  " + side + " field "),
            std::string::npos);
  EXPECT_NE(zt({"schema", path(), "--box"}, {"C", {}, {}}).out.find("| ??    | field "), std::string::npos);
}

TEST_F(Zt, ReadsAndPrintsInTheEncodingAskedFor) {
  const Database db = create_goods();
  const Result gbk = zt({"schema", path(), goods_gbk, "--encoding", "GBK"});
  EXPECT_EQ(gbk.status, ok);
  EXPECT_NE(gbk.out.find(goods_gbk), std::string::npos);
  const Result utf8 = zt({"schema", path(), goods_utf8, "--encoding=UTF-8"}, {"C", {}, {}});
  EXPECT_EQ(utf8.status, ok);
  EXPECT_NE(utf8.out.find(goods_utf8), std::string::npos);
  EXPECT_NE(zt({"schema", path(), "--stored-encoding", "ASCII"}).out.find("\\\\xc9\\\\xcc"),
            std::string::npos);
}

TEST_F(Zt, AnOrphanSurvivesBeingLookedAtAndBeingReaped) {
  make_orphan(5, 3);
  const int segment = segment_id(directory.base() + "00.data");
  for (const std::vector<std::string>& command :
       std::vector<std::vector<std::string>>{{"ls"},
                                             {"info"},
                                             {"schema"},
                                             {"tables"},
                                             {"ps"},
                                             {"locks"},
                                             {"locks", "--tree"},
                                             {"verify"},
                                             {"reap", "--dry-run"},
                                             {"rm", "--dry-run"},
                                             {"stat", "-n", "1", "-i", "0.05"}}) {
    std::vector<std::string> arguments = command;
    if (command.front() != "ls") arguments.push_back(path());
    const Result run = zt(arguments);
    EXPECT_EQ(run.status, ok) << command.front() << ": " << run.err;
    EXPECT_NE(run.out, "") << command.front();
    EXPECT_EQ(segment_id(directory.base() + "00.data"), segment) << command.front();
    EXPECT_EQ(segment_status(segment).shm_nattch, 0u) << command.front();
  }
  EXPECT_EQ(zt({"doctor", path()}).status, damaged);
  EXPECT_NE(zt({"ls", "--orphans"}).out.find(path() + "\torphan\t0\t0\t"), std::string::npos);
  EXPECT_NE(zt({"ps", path()}).out.find("\twrites\t0\t"), std::string::npos);

  const Result reap = zt({"reap", path()});
  EXPECT_EQ(reap.status, ok) << reap.err;
  EXPECT_EQ(segment_id(directory.base() + "00.data"), segment);
  EXPECT_EQ(zt({"verify", path()}).out, "severity\twhere\twhat\n");
  EXPECT_NE(zt({"tables", path()}).out.find("0\titems\t5\t3\t"), std::string::npos);
  EXPECT_EQ(zt({"rm", path()}).status, ok);
  EXPECT_EQ(directory.leftovers(), std::vector<std::string>{});
}

TEST_F(Zt, RemovesNothingThatIsInUse) {
  const Database db = create_items(directory);
  const Result rm = zt({"rm", path()});
  EXPECT_EQ(rm.status, refused);
  EXPECT_NE(rm.err.find("in use"), std::string::npos);
  EXPECT_EQ(zt({"verify", path()}).status, ok);
}

TEST_F(Zt, SaysThatTheMemoryStaysBehindWhenTheLastUserLeavesMeanwhile) {
  Database db = create_items(directory);
  inspect::RawDatabase looking(inspect::BasePath::parse(path()));
  db.close();
  EXPECT_TRUE(looking.close());
  EXPECT_EQ(zt({"rm", path()}).status, ok);
}

TEST_F(Zt, TellsByItsStatusWhatWentWrong) {
  const Database db = create_items(directory);
  expect_statuses({
      {{}, usage},
      {{"nonsense"}, usage},
      {{"info"}, usage},
      {{"info", path(), "--json", "--csv"}, usage},
      {{"info", path(), "--encoding", "nonsense"}, usage},
      {{"top", path()}, usage},
      {{"info", path("other")}, not_found},
      {{"rm", path("other")}, not_found},
      {{"doctor", path("other")}, not_found},
      {{"schema", path(), "other"}, not_found},
      {{"--help"}, ok},
  });
}

TEST_F(Zt, VerifyTellsWhereADatabaseIsBroken) {
  const Database db = create_items(directory);
  for (int id = 0; id < 20; ++id) commit_item(db, id, "n" + std::to_string(id % 3), id % 4);
  Rb_base* const base = base_of(db);
  const std::vector<ZtTable>& tables = static_cast<ZtDbHandle>(db)->database;
  const Rb_node leaf = rb_next(base, rb_first(base, tables[0].indexs[by_id]));
  const auto root = [&](Rb_node head) { return node_at(base, head->p.root); };
  auto* const item = reinterpret_cast<ZtIndexItem*>(rb_key(base, rb_first(base, tables[0].indexs[by_team])));
  auto* const list_item = reinterpret_cast<ZtListItem*>(rb_key(base, rb_first(base, tables[0].listindex)));
  const struct {
    void* place;
    std::string_view bytes;
    const char* where;
    const char* what;
  } cases[] = {
      {&base->memory->rb_count, "\7", "header", "count of trees"},
      {&leaf->c.list.blink, std::string_view("\0\0\0\0", 4), "index by id, node",
       "backwards leads elsewhere"},
      {&leaf->c.list.flink, "\377\377\377\377", "index by id, node", "outside the nodes"},
      {&leaf->k.key, "\377\377\377", "index by id, node", "key lies outside the data"},
      {&leaf->p.parent, "\1", "index by id, node", "its parent is not"},
      {&root(tables[0].indexs[by_name])->k.lext, "\1", "index by name, node", "left extreme"},
      {&root(tables[0].listindex)->s, "\13", "record ids, node", "red under a red node"},
      {&item->curenttail, "\1", "index by team, key of node", "current list ends elsewhere"},
      {&item->originhead, std::string_view("\0\0\0\0", 4), "index by team, key of node",
       "not in the origin list"},
      {&list_item->recordid, "\11", "record ids", "calls itself"},
      {&base->table->recordcount, "\3", "record ids", "beyond the table's count"},
  };
  EXPECT_EQ(zt({"verify", path()}).status, ok);
  for (const auto& each : cases) {
    const std::string before(static_cast<char*>(each.place), each.bytes.size());
    std::memcpy(each.place, each.bytes.data(), each.bytes.size());
    const Result run = zt({"verify", path()});
    std::memcpy(each.place, before.data(), before.size());
    EXPECT_EQ(run.status, damaged) << each.what;
    const std::size_t at = run.out.find(each.what);
    EXPECT_NE(at, std::string::npos) << each.what << run.out;
    EXPECT_NE(run.out.find(each.where), std::string::npos) << each.where << run.out;
  }
}

TEST_F(Zt, NoBytesMakeTheReaderFail) {
  const Database db = create_items(directory);
  for (int id = 0; id < 60; ++id) commit_item(db, id, "n" + std::to_string(id % 7), id % 5);
  Rb_memory* const header = base_of(db)->memory;
  char* const memory = base_of(db)->share_memory_begin[0];
  const std::string low(memory, static_cast<std::size_t>(header->nodeoffset));
  const std::string high(memory + header->dataoffset,
                         static_cast<std::size_t>(header->size - header->dataoffset));
  char* const high_place = memory + header->dataoffset;
  std::mt19937 random(7);
  const char interesting[] = {0, 1, 2, 16, 31, 127, -128, -1};
  int found = 0;
  for (int round = 0; round < 400; ++round) {
    for (int count = 1 + static_cast<int>(random() % 6); count > 0; --count) {
      const bool in_low = random() % 3 != 0;
      char* const place = in_low ? memory + random() % low.size() : high_place + random() % high.size();
      *place = random() % 2 == 0 ? interesting[random() % 8] : static_cast<char>(random());
    }
    try {
      inspect::RawDatabase raw(inspect::BasePath::parse(path()));
      inspect::Findings findings;
      const inspect::Schema schema = inspect::read_schema(*raw.view());
      inspect::check_frame(raw, schema, findings);
      for (const inspect::Table& table : schema.tables) inspect::check_table(raw.view(), table, findings);
      found += findings.count() != 0;
    } catch (const std::runtime_error&) {
      ++found;
    }
    std::memcpy(memory, low.data(), low.size());
    std::memcpy(high_place, high.data(), high.size());
  }
  EXPECT_GT(found, 200);
}

TEST_F(Zt, VerifyFindsNothingWhereAWriterIsAtWork) {
  const Database db = create_items(directory, 64 << 20);
  Child writer([&](Gate& gate) {
    Database own = open_items(directory);
    gate.tell('r');
    for (int id = 0; id < 50000 && !gate.has_sign(); ++id)
      commit_item(own, id, "n" + std::to_string(id % 9), id);
    return gate.wait_for('e') ? 0 : 1;
  });
  ASSERT_TRUE(writer.wait_for('r'));
  for (int i = 0; i < 5; ++i) {
    const Result run = zt({"verify", path()});
    EXPECT_EQ(run.status, ok) << run.out << run.err;
    EXPECT_EQ(run.out, "severity\twhere\twhat\n");
  }
  writer.tell('e');
  EXPECT_EQ(writer.exit_status(), 0);
}

TEST_F(Zt, JudgesNoProcessOfAnotherPidNamespace) {
  const Database db = create_items(directory);
  Child child([&](Gate& gate) {
    if (unshare(CLONE_NEWPID) != 0) {
      gate.tell('n');
      return 0;
    }
    const pid_t inside = fork();
    if (inside == 0) {
      Database own = open_items(directory);
      ZtBeginTransaction(own);
      gate.tell('r');
      gate.wait_for('e');
      ZtRollbackTransaction(own);
      own.close();
      _exit(0);
    }
    int status = 0;
    waitpid(inside, &status, 0);
    return WEXITSTATUS(status);
  });
  if (!child.wait_for('r')) GTEST_SKIP() << "no pid namespaces here";
  const Result reap = zt({"reap", path()});
  EXPECT_EQ(reap.status, refused) << reap.out;
  EXPECT_NE(reap.err.find("pid namespace"), std::string::npos);
  child.tell('e');
  EXPECT_EQ(child.exit_status(), 0);
}

TEST(ZtManual, DescribesEveryCommandAndOption) {
  std::string manual;
  for (const auto& page : std::filesystem::directory_iterator(ZT_MANUAL)) {
    std::ifstream file(page.path());
    manual.append(std::istreambuf_iterator<char>(file), {});
  }
  std::istringstream commands(zt({"--words", ""}).out);
  for (std::string command; commands >> command;) {
    EXPECT_NE(manual.find(".It Cm " + command + " "), std::string::npos) << command;
    std::istringstream options(zt({"--words", command}).out);
    for (std::string option; options >> option;) {
      if (option == "--words") continue;
      EXPECT_NE(manual.find("Fl -" + option.substr(2)), std::string::npos) << option;
    }
  }
}

}  // namespace
}  // namespace cachet::test
