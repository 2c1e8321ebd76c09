// Usage: bench_table_files [ROWS]
//
// Exports and imports one table of ROWS rows (a million) as text, and lets the command-line shell of SQLite do the
// same work with the same rows and the same two indexes, in the same run: once with the rows in the order of their
// keys, once in none. Its database lies in /dev/shm, with its journal off; it reads and writes comma-separated lines.
// Prints the seconds of both and their ratio, each the best of three.
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include "cachet.h"

namespace {

constexpr int rounds = 3;
constexpr int name_bytes = 20;

[[noreturn]] void fail(const std::string& what) {
  std::fprintf(stderr, "bench_table_files: %s\n", what.c_str());
  std::exit(1);
}

void require(bool holds, const char* what) {
  if (!holds) fail(what);
}

// ---- the rows, the same for both ----

struct Item {
  int id;
  char name[name_bytes];
  int team;
  double price;
};

enum class Order { ascending, scattered };

Item item(int number, Order order) {
  Item item{};
  const unsigned scattered = static_cast<unsigned>(number) * 2654435761U % 1000000007U;
  item.id = order == Order::ascending ? number : static_cast<int>(scattered);
  std::snprintf(item.name, sizeof item.name, "name %d", number);
  item.team = number % 1000;
  item.price = number / 4.0;
  return item;
}

// ---- cachet ----

class Database {
 public:
  Database(const std::string& path, int rows) {
    require(ZtCreateDb(&handle_, path.c_str(), "bench", "1", (ZTINT8{96} << 20) + rows * ZTINT8{512}, 0),
            "no database");
    ZtAddTable(handle_, "items");
    ZtAddField(handle_, 0, "id", FIELD_INT, 4, -1);
    ZtAddField(handle_, 0, "name", FIELD_STRING, name_bytes, -1);
    ZtAddField(handle_, 0, "team", FIELD_INT, 4, -1);
    ZtAddField(handle_, 0, "price", FIELD_DOUBLE, 8, 2);
    ZtAddIndex(handle_, 0, "id", ZT_INDEX_UNIQUE);
    ZtAddIndexField(handle_, 0, 0, 0);
    ZtAddIndex(handle_, 0, "team", ZT_INDEX_DUPLICATES);
    ZtAddIndexField(handle_, 0, 1, 2);
    ZtSaveDbInfo(handle_);
    ZtLoadDb(handle_);
    ZtUnLockDb(handle_);
    ZtCreateRecord(&row_);
  }
  ~Database() {
    ZtCloseRecord(handle_, row_);
    ZtDeleteDb(handle_);
  }
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  void fill(int rows, Order order) {
    ZtBeginTransaction(handle_);
    for (int number = 0; number < rows; ++number) {
      const Item next = item(number, order);
      require(ZtNewRecord(handle_, 0, row_) && ZtSetField(handle_, row_, 0, &next.id) &&
                  ZtSetField(handle_, row_, 1, next.name) && ZtSetField(handle_, row_, 2, &next.team) &&
                  ZtSetField(handle_, row_, 3, &next.price) && ZtPutRecord(handle_, row_),
              "no row");
    }
    ZtCommitTransaction(handle_);
  }
  void reset() { ZtResetDb(handle_); }
  void export_to(const std::string& file) { require(ZtWriteTableTxt(handle_, 0, file.c_str()), "no export"); }
  void import_from(const std::string& file) {
    ZtBeginTransaction(handle_);
    require(ZtReadTableTxt(handle_, 0, row_, file.c_str()), "no import");
    ZtCommitTransaction(handle_);
  }

 private:
  ZtDbHandle handle_ = nullptr;
  ZtRecordHandle row_ = nullptr;
};

// ---- the peer ----

void write_separated(const std::string& file, int rows, Order order) {
  std::ofstream out(file);
  for (int number = 0; number < rows; ++number) {
    const Item next = item(number, order);
    char line[100];
    std::snprintf(line, sizeof line, "%d,%s,%d,%.2f\n", next.id, next.name, next.team, next.price);
    out << line;
  }
}

void run_shell(const std::string& database, const std::string& commands) {
  const std::string script = "pragma journal_mode=off; pragma synchronous=off;\n" + commands;
  const std::string file = database + ".sql";
  std::ofstream(file) << script;
  const std::string command = "sqlite3 '" + database + "' < '" + file + "' > /dev/null";
  require(std::system(command.c_str()) == 0, "the shell of SQLite failed; is the package sqlite3 there?");
}

constexpr char peer_schema[] =
    "drop table if exists items;\n"
    "create table items(id integer, name text, team integer, price real);\n"
    "create unique index by_id on items(id);\ncreate index by_team on items(team);\n";

// ---- the clock ----

double best_seconds(const std::function<void()>& prepare, const std::function<void()>& work) {
  double best = 1e9;
  for (int round = 0; round < rounds; ++round) {
    prepare();
    const auto begin = std::chrono::steady_clock::now();
    work();
    best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
  }
  return best;
}

void print(const char* what, double ours, double theirs) {
  std::printf("%-16s  cachet %7.3f s   sqlite3 %7.3f s   ratio %.2f\n", what, ours, theirs, theirs / ours);
}

void compare(const std::string& folder, int rows, Order order) {
  const std::string ours = folder + "/items.txt";
  const std::string theirs = folder + "/items.csv";
  const std::string peer = folder + "/peer";
  write_separated(theirs, rows, order);
  Database database(folder, rows);
  database.fill(rows, order);
  const auto nothing = [] {};
  const double export_ours = best_seconds(nothing, [&] { database.export_to(ours); });
  const double import_ours = best_seconds([&] { database.reset(); }, [&] { database.import_from(ours); });
  const std::string import = ".mode csv\n.import '" + theirs + "' items\n";
  const double import_theirs =
      best_seconds([&] { run_shell(peer, peer_schema); }, [&] { run_shell(peer, import); });
  const std::string output = ".mode csv\n.output '" + folder + "/again'\nselect * from items;\n";
  const double export_theirs = best_seconds(nothing, [&] { run_shell(peer, output); });
  std::printf("%d rows of 4 fields, 2 indexes, %s keys; ratio: how many times faster cachet was\n", rows,
              order == Order::ascending ? "ascending" : "scattered");
  print("export as text", export_ours, export_theirs);
  print("import of text", import_ours, import_theirs);
}

}  // namespace

int main(int argc, char** argv) {
  const int rows = argc > 1 ? std::atoi(argv[1]) : 1000000;
  std::string folder = "/dev/shm/cachet-bench-XXXXXX";
  require(rows > 0 && mkdtemp(folder.data()) != nullptr, "no folder");
  compare(folder, rows, Order::ascending);
  compare(folder, rows, Order::scattered);
  std::filesystem::remove_all(folder);
  return 0;
}
