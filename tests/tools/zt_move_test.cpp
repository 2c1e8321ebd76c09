// Moving data with the command-line tool: files of every kind into tables and back, what refuses a row and what then
// becomes of the others, and whole databases as folders.
#include <sys/wait.h>

#include <csignal>
#include <filesystem>

#include "inspect/raw_database.h"
#include "inspect/walk.h"
#include "support/files.h"
#include "support/raw_memory.h"
#include "tools/terminal.h"
#include "tools/zt_program.h"

namespace cachet::test {
namespace {

constexpr char items_head[] = "id,name,team,price\r\n";

std::string item_rows(int first, int count) {
  std::string rows;
  for (int id = first; id < first + count; ++id) rows += std::to_string(id) + ",n,1,0.5\r\n";
  return rows;
}

Surroundings fed(const std::string& input) {
  return {"C.UTF-8", input, {}};
}

class ZtMove : public Zt {
 protected:
  // Table "t" of two texts.
  Database create_texts() {
    Database db = begin_create(directory, 64 << 20);
    define_table(db, "t", {{"a", FIELD_STRING, 20, -1}, {"b", FIELD_STRING, 20, -1}}, {});
    finish_create(db);
    return db;
  }

  std::int64_t live_items() const {
    inspect::RawDatabase raw(inspect::BasePath::parse(path()));
    return inspect::count_records(raw.view(), inspect::read_schema(*raw.view()).tables[0]).live;
  }

  Folder files;
};

TEST_F(ZtMove, AMillionRowsOfCsvComeBackByteForByte) {
  Database db = begin_create(directory, 192 << 20);
  define_table(db, "rows",
               {{"id", FIELD_INT, 4, -1}, {"text", FIELD_STRING, 16, -1}, {"team", FIELD_SHORT, 2, -1}},
               {{"by team", ZT_INDEX_DUPLICATES, {2}}});
  finish_create(db);
  const std::string texts[] = {"plain", "\"with, comma\"", "\"a \"\"quote\"\"\"", goods_utf8,
                               "",      "\"line\r\nline\""};
  std::string csv = "id,text,team\r\n";
  for (int id = 0; id < 1000000; ++id)
    csv += std::to_string(id) + "," + texts[id % 6] + "," + std::to_string(id % 100 - 50) + "\r\n";
  write_file(files.file("in.csv"), csv);
  const Result in = zt({"import", path(), "rows", files.file("in.csv"), "--json"});
  ASSERT_EQ(in.status, ok) << in.err;
  EXPECT_NE(in.out.find("\"imported\":1000000,\"refused\":0"), std::string::npos) << in.out;
  ASSERT_EQ(zt({"export", path(), "rows", files.file("out.csv")}).status, ok);
  EXPECT_TRUE(contents_of(files.file("out.csv")) == csv);
}

TEST_F(ZtMove, ReadsCsvAsTheRfcHasIt) {
  const Database db = create_texts();
  const struct {
    std::string in, out;  // without the line of names, when it is the same
  } cases[] = {
      {"a,b\r\n1,2\r\n", "1,2\r\n"},
      {"a,b\n1,2\n3,4", "1,2\r\n3,4\r\n"},
      {"\xef\xbb\xbf"
       "a,b\n1,2\n",
       "1,2\r\n"},
      {"\"b\",a\n1,2\n", "2,1\r\n"},
      {"a,b\n\n1,2\r\n\r\n\n3,4\n\n", "1,2\r\n3,4\r\n"},
      {"a,b\n,\n\"\",\"\"\n", ",\r\n,\r\n"},
      {"a,b\n\"x,y\",\"say \"\"so\"\"\"\n", "\"x,y\",\"say \"\"so\"\"\"\r\n"},
      {"a,b\n\"1\r\n2\",\"\n\"\n", "\"1\r\n2\",\"\n\"\r\n"},
      {"a,b\n \"x\n", ""},
      {"a,b\n 1 ,\t2\n", " 1 ,\t2\r\n"},
      {"a,b\n\"1\",\"2\"", "1,2\r\n"},
  };
  for (const auto& each : cases) {
    const Result in = zt({"import", path(), "t", "-"}, fed(each.in));
    EXPECT_EQ(in.status, each.out.empty() ? failure : ok) << each.in << in.err;
    EXPECT_EQ(zt({"export", path(), "t", "-"}).out, "a,b\r\n" + each.out) << each.in;
    ZtResetDb(db);
  }
}

TEST_F(ZtMove, ARowOfOneEmptyValueIsNoBlankLine) {
  Database db = begin_create(directory);
  define_table(db, "t", {{"a", FIELD_STRING, 20, -1}}, {});
  finish_create(db);
  const std::string csv = "a\r\n\"\"\r\nx\r\n\"\"\r\n";
  EXPECT_EQ(zt({"import", path(), "t", "-"}, fed(csv)).status, ok);
  EXPECT_EQ(zt({"export", path(), "t", "-"}).out, csv);
}

TEST_F(ZtMove, SaysWhereCsvIsWrongAndStoresNothing) {
  const Database db = create_texts();
  const struct {
    std::string in;
    const char* expected;
  } cases[] = {
      {"", "-:1:1: there is no line"},
      {"a,b,c\n", "-:1:5: the table has no field \"c\""},
      {"a\n", "-:1:1: the field b is missing"},
      {"b,b\n", "-:1:3: the field b is named twice"},
      {"a,\"b\n", "-:1:3: the quote that begins here is never closed"},
      {"a,b\n1,2\n1,\"x\n", "-:3:3: the quote that begins here is never closed"},
      {"a,b\n1,x\"y\n", "-:2:4: a quote"},
      {"a,b\n1,\"x\"y\n", "-:2:6: text behind the quote"},
      {"a,b\n1\n", "-:2:1: 1 value, where"},
      {"a,b\n1,2,3\n", "-:2:5: 3 values"},
      {"a,b\n1,x\ry\n", "-:2:4: a carriage return"},
      {bytes("a,b\n1,x\0\n"), "-:2:4: a NUL"},
      {bytes("a,b\n1,\"\n\0\"\n"), "-:3:1: a NUL"},
      {"a,b\n1,\xff\n", "-:2:3: \"\\xff\" is no text"},
      {"a,b\n1,12345678901234567890\n", "-:2:3: field b"},
      {"a,b\n1,\xf0\x9f\x98\x80\n", "-:2:3: field b"},
      {"a,b\n1,2\n\"" + std::string(17 << 20, 'x'), "-:3:1: a row of more than 16 MiB"},
  };
  for (const auto& each : cases) {
    const Result in = zt({"import", path(), "t", "-"}, fed(each.in));
    EXPECT_EQ(in.status, failure) << each.expected;
    EXPECT_NE(in.err.find(each.expected), std::string::npos) << each.expected << in.err;
    EXPECT_EQ(zt({"export", path(), "t", "-"}).out, "a,b\r\n") << each.expected;
  }
}

TEST_F(ZtMove, ReadsAndWritesJsonLines) {
  const Database db = create_items(directory);
  const std::string rows = std::string(R"({"id":1,"name":"a \"q\"\n)") + goods_utf8 +
                           R"(","team":-2,"price":0.25}
{"id":2,"name":"","team":0,"price":1e+300}
)";
  const Words import{"import", path(), "items", "-", "--format", "jsonl"};
  const Result in = zt(import, fed(rows));
  EXPECT_EQ(in.status, ok) << in.err;
  EXPECT_EQ(zt({"export", path(), "items", "-", "--format", "jsonl", "--encoding", "GBK"}).out, rows);
  const std::pair<std::string, const char*> cases[] = {
      {"[]", "1:2: an array"},
      {"7", "1:2: a row is an object"},
      {R"({"id":{}})", "1:6: an object in a row"},
      {R"({"id":true})", "1:6: true is neither"},
      {R"({"id":null})", "1:6: field id: null"},
      {"{}\n", "the field id is missing"},
      {R"({"id":3,"id":3})", "1:13: the field id is named twice"},
      {R"({"no":3})", "1:6: the table has no field"},
      {R"({"id":3,"name")", "this is no JSON"},
      {"{\"id\":3,\"name\":\"\xff\"}", "this is no JSON"},
      {R"({"id":3,"name":"\u0000","team":1,"price":1})", "1:15: field name"},
      {R"({"id":2147483648,"name":"","team":1,"price":1})", "1:6: field id"},
      {R"({"id":3,"name":"","team":1,"price":1} {})", "this is no JSON"},
  };
  for (const auto& [text, expected] : cases) {
    const Result bad = zt(import, fed(text));
    EXPECT_EQ(bad.status, failure) << text;
    EXPECT_NE(bad.err.find(expected), std::string::npos) << text << bad.err;
  }
  EXPECT_EQ(live_items(), 2);
}

TEST_F(ZtMove, TextsChangeTheirEncodingAndNothingElse) {
  const Database db = create_texts();
  const std::string head = "a,b\r\n", gbk = std::string(goods_gbk) + ",x\r\n",
                    utf8 = std::string(goods_utf8) + ",x\r\n";
  ASSERT_EQ(zt({"import", path(), "t", "-", "--encoding", "GBK"}, fed(head + gbk)).status, ok);
  ASSERT_EQ(zt({"import", path(), "t", "-"}, fed(head + utf8)).status, ok);
  EXPECT_EQ(zt({"export", path(), "t", "-", "--encoding", "GBK"}, Surroundings{"C", {}, {}}).out,
            head + gbk + gbk);
  EXPECT_EQ(zt({"export", path(), "t", "-"}).out, head + utf8 + utf8);
  // What the file's encoding lacks is never replaced.
  write_file(files.file("old.csv"), "old");
  EXPECT_EQ(zt({"export", path(), "t", files.file("old.csv")}, Surroundings{"C", {}, {}}).status, failure);
  EXPECT_EQ(contents_of(files.file("old.csv")), "old");
  EXPECT_EQ(zt({"export", path(), "t", "-", "--encoding", "UTF-16"}).status, usage);

  Row row(db);
  const char broken[20] = "\xff\\xff";
  ZtBeginTransaction(db);
  EXPECT_TRUE(ZtNewRecord(db, 0, row) && ZtSetField(db, row, 0, broken) && ZtPutRecord(db, row));
  ZtCommitTransaction(db);
  EXPECT_NE(zt({"export", path(), "t", "-"}).err.find("record 2: field a"), std::string::npos);
  const Words latin{"--encoding", "ISO-8859-1", "--stored-encoding", "ISO-8859-1"};
  Words bytewise{"export", path(), "t", "-"};
  bytewise.insert(bytewise.end(), latin.begin(), latin.end());
  EXPECT_EQ(zt(bytewise).out, head + gbk + gbk + "\xff\\xff,\r\n");
}

TEST_F(ZtMove, KeepsGoingAndGivesTheRowsThatItRefusesBack) {
  const Database db = create_items(directory);
  const std::string good = item_rows(1, 3), again = "2,n,1,0.5", wide = "9,n,x,1", cut = "10";
  write_file(files.file("in.csv"),
             items_head + good + again + "\r\n" + wide + "\r\n" + cut + "\r\n" + item_rows(4, 2));
  const Words import{"import", path(), "items", files.file("in.csv"), "--reject", files.file("bad.csv")};
  // Without --keep-going all that is wrong is found, but for the keys, and nothing is stored.
  EXPECT_EQ(zt(import).status, failure);
  EXPECT_EQ(contents_of(files.file("bad.csv")),
            "line,column,reason,row\r\n6,5,\"field team: \"\"x\"\" is no whole number\",\"9,n,x,1\"\r\n"
            "7,1,\"1 value, where the first line names 4\",10\r\n");
  EXPECT_EQ(live_items(), 0);
  for (const char* const batch : {"1", "2", "100"}) {
    ZtResetDb(db);
    Words keep_going = import;
    keep_going.insert(keep_going.end(), {"--keep-going", "--batch", batch, "--tsv"});
    const Result run = zt(keep_going);
    EXPECT_EQ(run.status, failure);
    EXPECT_NE(run.out.find("\t8\t5\t3\n"), std::string::npos) << run.out;
    EXPECT_NE(contents_of(files.file("bad.csv")).find("\r\n5,1,"), std::string::npos);
    EXPECT_EQ(zt({"export", path(), "items", "-"}).out, items_head + item_rows(1, 5));
  }
  EXPECT_EQ(zt({"verify", path()}).status, ok);
}

TEST_F(ZtMove, LenientLeavesOutWhatOneSideLacks) {
  const Database db = create_items(directory);
  const std::string csv = "more,id,price\nx,1,\ny,2,3\n";
  EXPECT_EQ(zt({"import", path(), "items", "-", "--dry-run"}, fed(csv)).status, failure);
  EXPECT_EQ(zt({"import", path(), "items", "-", "--lenient", "--dry-run"}, fed(csv)).status, ok);
  EXPECT_EQ(live_items(), 0);
  EXPECT_EQ(zt({"import", path(), "items", "-", "--lenient"}, fed(csv)).status, ok);
  EXPECT_EQ(zt({"import", path(), "items", "-", "--lenient", "--format", "jsonl"},
               fed(R"({"id":3,"more":[1,{}],"name":null})"))
                .status,
            ok);
  EXPECT_EQ(zt({"export", path(), "items", "-"}).out,
            std::string(items_head) + "1,,0,0\r\n2,,0,3\r\n3,,0,0\r\n");
}

TEST_F(ZtMove, LoadsNothingByHalves) {
  const Database db = create_items(directory);
  commit_item(db, 700);
  write_file(files.file("in.csv"), items_head + item_rows(0, 1000));
  EXPECT_EQ(zt({"import", path(), "items", files.file("in.csv")}).status, failure);
  EXPECT_EQ(live_items(), 1);
  // Which the memory could never hold is not even begun.
  write_file(files.file("large.csv"), items_head + item_rows(1000, 50000));
  EXPECT_NE(zt({"import", path(), "items", files.file("large.csv")}).err.find("there is room for"),
            std::string::npos);
  long count = 0, size = 0;
  ZtTableSize(db, items, count, size);
  EXPECT_EQ(count, 701);
}

// An import from a pipe that does not end: `signal` comes when it has stored some rows.
class InterruptedImport : public ZtMove {
 protected:
  int import_until(const Database& db, int signal, const Words& more = {}) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    Child child(
        [&](Gate&) {
          dup2(ends[0], STDIN_FILENO);
          close(ends[1]);
          Words words{"import", path(), "items", "-"};
          words.insert(words.end(), more.begin(), more.end());
          return become_zt(words, {});
        },
        Child::Output::captured);
    close(ends[0]);
    const std::string rows = items_head + item_rows(0, 100);
    EXPECT_EQ(write(ends[1], rows.data(), rows.size()), static_cast<ssize_t>(rows.size()));
    for (long count = 0, size = 0; count < 100; usleep(1000)) ZtTableSize(db, items, count, size);
    child.wait_until_asleep();
    ::kill(child.pid(), signal);
    const int status = child.exit_status();
    close(ends[1]);
    return status;
  }
};

TEST_F(InterruptedImport, IsTakenBack) {
  const Database db = create_items(directory);
  EXPECT_EQ(import_until(db, SIGINT), failure);
  EXPECT_EQ(live_items(), 0);
  EXPECT_EQ(zt({"verify", path()}).status, ok);
}

TEST_F(InterruptedImport, KeepsWhatItCommittedOnItsWay) {
  const Database db = create_items(directory);
  EXPECT_EQ(import_until(db, SIGTERM, {"--keep-going", "--batch", "30"}), failure);
  EXPECT_EQ(live_items(), 90);
}

TEST_F(InterruptedImport, IsTakenBackByAReaperWhenItWasKilled) {
  const Database db = create_items(directory);
  EXPECT_EQ(import_until(db, SIGKILL), -SIGKILL);
  EXPECT_EQ(zt({"import", path(), "items", "-"}, fed(items_head)).status, damaged);
  EXPECT_EQ(zt({"reap", path()}).status, ok);
  EXPECT_EQ(live_items(), 0);
  EXPECT_EQ(zt({"verify", path()}).status, ok);
}

TEST_F(ZtMove, MovesTheLibrarysOwnFiles) {
  const Database db = create_items(directory);
  for (int id = 0; id < 5; ++id) commit_item(db, id, "n", id, 1);
  const std::string csv = zt({"export", path(), "items", "-"}).out;
  for (const std::string extension : {"txt", "bin", "table"}) {
    const std::string file = files.file("items." + extension);
    ASSERT_EQ(zt({"export", path(), "items", file}).status, ok);
    EXPECT_NE(zt({"import", path(), "items", file}).status, ok) << extension;
    EXPECT_EQ(live_items(), 5);
    ZtResetDb(db);
    EXPECT_EQ(zt({"import", path(), "items", file}).status, ok);
    EXPECT_EQ(zt({"export", path(), "items", "-"}).out, csv) << extension;
    EXPECT_EQ(zt({"import", path(), "items", file, "--reject", files.file("r")}).status, usage);
  }
  ZtResetDb(db);
  const std::string long_line = "id=1;name=" + std::string(11000, 'x') + "\n";
  const std::pair<const char*, std::string> damaged_files[] = {
      {"a.txt", "id=2\n" + long_line + "id=3\n"},
      {"a.bin", contents_of(files.file("items.bin")).substr(0, 100)},
      {"a.table", contents_of(files.file("items.table")) + "x"},
      {"b.table", "x"},
  };
  for (const auto& [name, content] : damaged_files) {
    EXPECT_EQ(zt({"import", path(), "items", write_file(files.file(name), content)}).status, damaged) << name;
    EXPECT_EQ(live_items(), 0) << name;
  }
  EXPECT_EQ(zt({"export", path(), "items", files.file("items.dump")}).status, ok);
  EXPECT_EQ(zt({"import", path(), "items", files.file("items.dump")}).status, usage);
}

TEST_F(ZtMove, TellsByItsStatusWhatWentWrong) {
  const Database db = create_items(directory);
  expect_statuses({
      {{"import", path(), "items"}, usage},
      {{"import", path(), "items", "x.what"}, usage},
      {{"import", path(), "items", "x.csv", "--format", "what"}, usage},
      {{"import", path(), "items", "-", "--batch", "5"}, usage},
      {{"export", path(), "items", "-", "--format", "text"}, usage},
      {{"import", path(), "items", files.file("no.csv")}, failure},
      {{"export", path(), "items", files.file("no/no.csv")}, failure},
      {{"export", path(), "items", "/dev/full", "--format", "csv"}, failure},
      {{"export", path(), "other", "-"}, not_found},
      {{"export", path("other"), "items", "-"}, not_found},
      {{"save", path("other"), files.file("s")}, not_found},
      {{"save", path(), files.file("no/no")}, failure},
      {{"save", path(), files.path()}, refused},
      {{"load", path(), files.file("no")}, not_found},
      {{"bench", "--rows", "1"}, usage},
  });
  EXPECT_EQ(files.names(), std::vector<std::string>{});
}

TEST_F(ZtMove, ASavedDatabaseIsLoadedAsItWas) {
  const std::string saved = files.file("saved");
  std::string csv;
  {
    const Database db = create_items(directory);
    for (int id = 0; id < 20; ++id) commit_item(db, id, goods_gbk, id % 3);
    EXPECT_EQ(zt({"save", path(), saved, "--dry-run"}).status, ok);
    EXPECT_EQ(files.names(), std::vector<std::string>{});
    EXPECT_EQ(zt({"save", path(), saved}).status, ok);
    EXPECT_EQ(zt({"save", path(), saved}).status, refused);
    commit_item(db, 20);
    EXPECT_EQ(zt({"save", path(), saved, "--replace"}).status, ok);
    EXPECT_EQ(files.names(), std::vector<std::string>{"saved"});
    csv = zt({"export", path(), "items", "-"}).out;
    commit_item(db, 21);
    EXPECT_EQ(zt({"load", path(), saved}).status, refused);
    EXPECT_EQ(zt({"load", path(), saved, "--replace"}).status, refused);  // this process has it
    EXPECT_EQ(zt({"load", path(), saved, "--replace", "--in-use"}).status, ok);
    EXPECT_EQ(zt({"export", path(), "items", "-"}).out, csv);
  }
  EXPECT_EQ(zt({"load", path("new"), saved, "--dry-run"}).status, ok);
  EXPECT_EQ(zt({"info", path("new")}).status, not_found);
  EXPECT_EQ(zt({"load", path("new"), saved}).status, ok);
  EXPECT_EQ(zt({"verify", path("new")}).out, "severity\twhere\twhat\n");
  EXPECT_EQ(zt({"export", path("new"), "items", "-"}).out, csv);
  const Result dry = zt({"load", path("new"), saved, "--dry-run", "--json"});
  EXPECT_NE(dry.out.find("\"records_replaced\":21"), std::string::npos) << dry.out;
  EXPECT_EQ(zt({"load", path("new"), saved, "--replace"}).status, ok);
  EXPECT_EQ(zt({"rm", path("new")}).status, ok);
  // The schema makes the same tables.
  EXPECT_EQ(zt({"create", path("new"), "--schema", saved + "/schema.json", "--size", "4M", "--version", "x"})
                .status,
            ok);
  EXPECT_EQ(zt({"load", path("new"), saved}).status, failure);  // of another version
  EXPECT_EQ(zt({"export", path("new"), "items", "-"}).out, items_head);
  EXPECT_EQ(zt({"rm", path("new")}).status, ok);
}

TEST_F(ZtMove, LoadsNothingFromADamagedFolder) {
  const std::string saved = files.file("saved");
  const Database db = create_items(directory);
  commit_item(db, 1);
  ASSERT_EQ(zt({"save", path(), saved}).status, ok);
  const std::pair<const char*, int> one_bit[] = {
      {"database.image", 3000000}, {"schema.json", 20}, {"manifest.json", 30}};
  const auto expect_refused = [&](const char* what) {
    EXPECT_EQ(zt({"load", path("new"), saved}).status, damaged) << what;
    EXPECT_EQ(zt({"load", path(), saved, "--replace", "--in-use"}).status, damaged) << what;
    EXPECT_EQ(segment_id(directory.base("new") + "00.data"), -1) << what;
    EXPECT_EQ(live_items(), 1) << what;
  };
  for (const auto& [name, place] : one_bit) {
    const std::string file = saved + "/" + name, whole = contents_of(file);
    std::string changed = whole;
    changed[static_cast<std::size_t>(place)] ^= 1;
    write_file(file, changed);
    expect_refused(name);
    write_file(file, whole.substr(0, whole.size() / 2));
    expect_refused(name);
    write_file(file, "[1, {\"format\": null}]");
    expect_refused(name);
    write_file(file, whole);
  }
  std::filesystem::remove(saved + "/database.image");
  expect_refused("no image");
}

TEST_F(ZtMove, ShowsABarOnATerminalAndTakesItAway) {
  const Database db = create_items(directory, 512 << 20);
  write_file(files.file("in.csv"), items_head + item_rows(0, 300000));
  Terminal terminal({"import", path(), "items", files.file("in.csv"), "--tsv"});
  EXPECT_TRUE(terminal.shows(" rows/s, 0:0"));
  EXPECT_TRUE(terminal.shows(" left"));
  EXPECT_TRUE(terminal.shows("\rimporting ["));
  EXPECT_TRUE(terminal.shows("\r\033[K"));
  EXPECT_TRUE(terminal.shows("\t300000\t300000\t0"));
  EXPECT_EQ(terminal.passed().find("importing"), std::string::npos);
  EXPECT_EQ(terminal.exit_status(), ok);
}

TEST_F(ZtMove, MeasuresInADatabaseThatGoesAway) {
  const Surroundings around{"C.UTF-8", "", {{"TMPDIR", files.path()}}};
  const Result run = zt({"bench", "--rows", "2000", "--seconds", "0.2", "--csv"}, around);
  EXPECT_EQ(run.status, ok) << run.err;
  EXPECT_NE(run.out.find("\r\nfind by text,read-only,2000,"), std::string::npos) << run.out;
  EXPECT_EQ(files.names(), std::vector<std::string>{});
  Terminal terminal({"bench", "--seconds", "3000"}, around);
  EXPECT_TRUE(terminal.shows("measuring ["));
  ::kill(terminal.pid(), SIGTERM);
  EXPECT_EQ(terminal.exit_status(), failure);
  EXPECT_EQ(files.names(), std::vector<std::string>{});
}

}  // namespace
}  // namespace cachet::test
