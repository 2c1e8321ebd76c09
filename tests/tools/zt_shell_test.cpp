// zt shell as it is typed at, on a pseudo-terminal, and as it runs scripts; and what the tool shows on a terminal only.
#include <filesystem>
#include <fstream>

#include "inspect/raw_database.h"
#include "inspect/stop.h"
#include "inspect/walk.h"
#include "support/raw_memory.h"
#include "tools/terminal.h"

namespace cachet::test {
namespace {

constexpr char prompt[] = "zt d> ";
constexpr char up[] = "\033[A";
constexpr char interrupt[] = "\003", end_of_input[] = "\004";

class ZtShell : public Zt {
 protected:
  Surroundings home(std::string input = {}) const {
    return {"C.UTF-8", std::move(input), {{"XDG_STATE_HOME", directory.path() + "/state"}}};
  }
  Result script(const std::string& lines, const Words& options = {}) const {
    Words arguments{"shell", path()};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return zt(arguments, home(lines));
  }
  std::vector<std::string> remembered() const {
    std::ifstream file(directory.path() + "/state/zt/history");
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    return lines;
  }
  void TearDown() override {
    std::filesystem::remove_all(directory.path() + "/state");
    Zt::TearDown();
  }
};

TEST_F(ZtShell, RunsEditedLinesAndRemembersThemBeyondItsEnd) {
  const Database db = create_items(directory);
  {
    Terminal terminal({"shell", path(), "--tsv"}, home());
    ASSERT_TRUE(terminal.shows(prompt));
    terminal.type("tablos\177\177es\001\005\r");  // erased, to the beginning and back to the end
    ASSERT_TRUE(terminal.shows("0\titems\t0\t0\t"));
    ASSERT_TRUE(terminal.shows(prompt));
    terminal.type(end_of_input);
    EXPECT_EQ(terminal.exit_status(), ok);
  }
  Terminal terminal({"shell", path(), "--tsv"}, home());
  ASSERT_TRUE(terminal.shows(prompt));
  terminal.type(std::string(up) + " --indexes\r");
  ASSERT_TRUE(terminal.shows("items\t0\tby id\tunique\t0\r\n"));
  ASSERT_TRUE(terminal.shows(prompt));
  terminal.type("quit\r");
  EXPECT_EQ(terminal.exit_status(), ok);
  EXPECT_EQ(remembered(), (std::vector<std::string>{"tables", "tables --indexes", "quit"}));
}

TEST_F(ZtShell, ForgetsTheOldestLinesOfALongHistory) {
  std::filesystem::create_directories(directory.path() + "/state/zt");
  std::ofstream file(directory.path() + "/state/zt/history");
  for (int i = 0; i < 2500; ++i) file << "line " << i << '\n';
  file.close();
  Terminal terminal({"shell", path()}, home());
  ASSERT_TRUE(terminal.shows(prompt));
  terminal.type(end_of_input);
  EXPECT_EQ(terminal.exit_status(), ok);
  EXPECT_EQ(remembered().size(), 1000u);
  EXPECT_EQ(remembered().back(), "line 2499");
}

TEST_F(ZtShell, CompletesCommandsOptionsAndNames) {
  const Database db = create_goods();
  Terminal terminal({"shell", path(), "--tsv"}, home());
  ASSERT_TRUE(terminal.shows(prompt));
  terminal.type("sch\t\xe5\x95\x86\t--js\t\r");
  ASSERT_TRUE(terminal.shows(std::string("[{\"table\":\"") + goods_utf8 + "\",\"kind\":\"field\""));
  ASSERT_TRUE(terminal.shows(prompt));
  terminal.type("loc\t\t");
  terminal.type("--tr\t --color=al\t\r");
  ASSERT_TRUE(terminal.shows("tree\tage\tprocess\tcommand\r\n"));
  ASSERT_TRUE(terminal.shows(prompt));
  terminal.type("info --color=\t\t");
  ASSERT_TRUE(terminal.shows("--color=always  --color=auto    --color=never\r\n"));
  EXPECT_EQ(remembered().back(), "locks --tree  --color=always");
}

TEST_F(ZtShell, AnInterruptEndsTheCommandOrTheLineAndNeverTheShell) {
  const Database db = create_items(directory);
  Terminal terminal({"shell", path(), "--tsv"}, home());
  ASSERT_TRUE(terminal.shows(prompt));
  terminal.type("stat -i 0.05\r");
  ASSERT_TRUE(terminal.shows("inserts_s"));
  ASSERT_TRUE(terminal.shows("\t0\t"));
  terminal.type(interrupt);
  ASSERT_TRUE(terminal.shows(prompt));
  terminal.type("nonsense that is given up");
  ASSERT_TRUE(terminal.shows("given up"));
  terminal.type(interrupt);
  ASSERT_TRUE(terminal.shows(prompt));
  terminal.type("info nonsense\r");
  ASSERT_TRUE(terminal.shows("zt: not expected here: nonsense"));
  ASSERT_TRUE(terminal.shows(prompt));
  terminal.type("tables\r");
  ASSERT_TRUE(terminal.shows("0\titems\t0\t0\t"));
  terminal.type(end_of_input);
  EXPECT_EQ(terminal.exit_status(), ok);
}

TEST_F(ZtShell, HoldsNothingOfTheDatabaseBetweenTwoLines) {
  make_orphan(5, 0);
  const int segment = segment_id(directory.base() + "00.data");
  Terminal terminal({"shell", path(), "--tsv"}, home());
  ASSERT_TRUE(terminal.shows(prompt));
  terminal.type("schema it\t\r");
  ASSERT_TRUE(terminal.shows("items\tindex\t2\tby team\t"));
  ASSERT_TRUE(terminal.shows(prompt));
  EXPECT_EQ(segment_status(segment).shm_nattch, 0u);
  terminal.type("reap\r");
  ASSERT_TRUE(terminal.shows(prompt));
  terminal.type("get it\t--index by\\ i\t< 3\r");
  ASSERT_TRUE(terminal.shows("\r\n2\t"));
  ASSERT_TRUE(terminal.shows(prompt));
  EXPECT_EQ(segment_id(directory.base() + "00.data"), segment);
  EXPECT_EQ(segment_status(segment).shm_nattch, 0u);
  terminal.type("exit\r");
  EXPECT_EQ(terminal.exit_status(), ok);
  EXPECT_EQ(segment_id(directory.base() + "00.data"), segment);
  EXPECT_EQ(zt({"rm", path()}).status, ok);
}

TEST_F(ZtShell, AScriptEndsWithTheStatusOfItsFirstFailure) {
  const Database db = create_goods();
  const struct {
    const char* lines;
    Words options;
    int status;
    const char* out;
    const char* err;
  } cases[] = {
      {"# nothing\n\n  tables --line # a comment\n", {}, ok, "live = 0", ""},
      {"schema other\ntables\n", {}, not_found, "", "zt: line 1 failed: schema other\n"},
      {"schema other\ninfo x\ntables\n",
       {"--keep-going"},
       not_found,
       "\tby id 0\t",
       "zt: line 2 failed: info x\n"},
      {"tables\nquit\nschema other\n", {}, ok, "\tby id 0\t", ""},
      {"schema \"\xe5\x95\x86\"'\xe5\x93\x81'\n", {}, ok, "field", ""},
      {"schema 'open\n", {}, usage, "", "zt: a quote is not closed\n"},
      {".format csv\ntables\n", {}, ok, "id,table,live", ""},
      {"tables --csv\n", {"--json"}, ok, "id,table,live", ""},
      {"tables\n", {"--json"}, ok, "[{\"id\":0", ""},
      {".format nonsense\n", {}, usage, "", "auto box tsv"},
      {"shell\n", {}, usage, "", "not expected here: shell"},
      {"tables", {}, ok, "by id", ""},
  };
  for (const auto& each : cases) {
    const Result run = script(each.lines, each.options);
    EXPECT_EQ(run.status, each.status) << each.lines << run.err;
    EXPECT_NE(run.out.find(each.out), std::string::npos) << each.lines << run.out;
    EXPECT_NE(run.err.find(each.err), std::string::npos) << each.lines << run.err;
    EXPECT_TRUE(*each.out != '\0' || run.out.find("by id") == std::string::npos) << run.out;
  }
  EXPECT_EQ(remembered(), std::vector<std::string>{});
}

TEST_F(ZtShell, AWalkEndsWhenItIsAskedToStop) {
  const Database db = create_items(directory);
  commit_item(db, 1);
  const inspect::RawDatabase raw(inspect::BasePath::parse(path()));
  const inspect::Schema schema = inspect::read_schema(*raw.view());
  inspect::ask_to_stop(SIGINT);
  EXPECT_THROW(inspect::count_records(raw.view(), schema.tables[0]), inspect::Stopped);
  EXPECT_TRUE(inspect::forget_interrupt());
  EXPECT_EQ(inspect::count_records(raw.view(), schema.tables[0]).live, 1);
}

TEST_F(ZtShell, FramesOnATerminalAndTabsInAPipe) {
  const Database db = create_items(directory);
  Terminal terminal({"tables", path()});
  EXPECT_TRUE(terminal.shows("\xe2\x94\x8c\xe2\x94\x80"));  // the frame's corner
  EXPECT_TRUE(terminal.shows("items"));
  EXPECT_EQ(terminal.exit_status(), ok);
  EXPECT_EQ(zt({"tables", path()}).out.rfind("id\ttable\tlive\t", 0), 0u);
}

TEST_F(ZtShell, TheBarShowsBothFronts) {
  const Database db = create_items(directory);
  for (int id = 0; id < 5000; ++id) commit_item(db, id);
  Terminal terminal({"info", path(), "--color=never"});
  ASSERT_TRUE(terminal.shows("nodes ["));
  ASSERT_TRUE(terminal.shows("] records "));
  const std::string bar = terminal.passed();
  const auto count = [&](const std::string& sign) {
    std::size_t found = 0;
    for (std::size_t at = 0; (at = bar.find(sign, at)) != std::string::npos; at += sign.size()) ++found;
    return found;
  };
  const std::size_t nodes = count("\xe2\x96\x88"), records = count("\xe2\x96\x93");
  const Rb_memory header = *base_of(db)->memory;
  const auto share = [&](ZTINT8 bytes) {
    return 50.0 * static_cast<double>(bytes) / static_cast<double>(header.size);
  };
  EXPECT_NEAR(static_cast<double>(nodes), share(header.nodeoffset), 1);
  EXPECT_NEAR(static_cast<double>(records), share(header.size - header.dataoffset), 1);
  EXPECT_EQ(nodes + records + count("\xe2\x96\x91"), 50u);
  EXPECT_EQ(terminal.exit_status(), ok);
}

TEST_F(ZtShell, TopGivesTheScreenBackHoweverItEnds) {
  const Database db = create_items(directory);
  for (const char* const key : {"q", interrupt}) {
    Terminal terminal({"top", path()});
    ASSERT_TRUE(terminal.shows("\033[?1049h"));
    ASSERT_TRUE(terminal.shows("nodes ["));
    ASSERT_TRUE(terminal.shows(std::to_string(getpid())));
    terminal.type(key);
    EXPECT_TRUE(terminal.shows("\033[?1049l"));
    EXPECT_EQ(terminal.exit_status(), ok);
  }
}

}  // namespace
}  // namespace cachet::test
