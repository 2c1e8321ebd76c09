// SQLite with prepared statements, twice: in the memory of one process, and as a file on a memory file system with a
// write-ahead log and without syncs.
#include <sqlite3.h>

#include <cstring>
#include <string>

#include "peers.h"

namespace bench {
namespace {

class Statement {
 public:
  Statement(sqlite3* db, const char* text) {
    if (sqlite3_prepare_v3(db, text, -1, SQLITE_PREPARE_PERSISTENT, &statement_, nullptr) != SQLITE_OK)
      throw std::runtime_error(std::string("sqlite: ") + sqlite3_errmsg(db));
  }
  ~Statement() { sqlite3_finalize(statement_); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  Statement& bind(int place, std::int64_t value) {
    sqlite3_bind_int64(statement_, place, value);
    return *this;
  }
  Statement& bind(int place, double value) {
    sqlite3_bind_double(statement_, place, value);
    return *this;
  }
  Statement& bind(int place, const Name& name) {
    sqlite3_bind_text(statement_, place, name.text, -1, SQLITE_STATIC);
    return *this;
  }
  void run() {
    const int status = sqlite3_step(statement_);
    sqlite3_reset(statement_);
    require(status == SQLITE_DONE, "sqlite: a statement failed");
  }
  // The sum of the first column.
  double sum() {
    double sum = 0;
    int status;
    while ((status = sqlite3_step(statement_)) == SQLITE_ROW) sum += sqlite3_column_double(statement_, 0);
    sqlite3_reset(statement_);
    require(status == SQLITE_DONE, "sqlite: a query failed");
    return sum;
  }
  // The first column of the one row.
  double value() {
    require(sqlite3_step(statement_) == SQLITE_ROW, "sqlite: not found");
    const double value = sqlite3_column_double(statement_, 0);
    sqlite3_reset(statement_);
    return value;
  }

 private:
  sqlite3_stmt* statement_ = nullptr;
};

struct Statements {
  explicit Statements(sqlite3* db)
      : begin(db, "begin immediate"),
        begin_reads(db, "begin"),
        commit(db, "commit"),
        rollback(db, "rollback"),
        insert(db, "insert into rows values(?, ?, ?, ?)"),
        set_price(db, "update rows set price = ?2 where id = ?1"),
        erase(db, "delete from rows where id = ?"),
        get_id(db, "select price from rows where id = ?"),
        get_name(db, "select price from rows where name = ?"),
        // The expression keeps it from answering out of the index alone: the row is read, as everywhere.
        get_group(db, "select grp + 0 * price from rows where grp = ? limit ?"),
        range(db, "select price from rows where id >= ? order by id limit ?") {}

  Statement begin, begin_reads, commit, rollback, insert, set_price, erase, get_id, get_name, get_group,
      range;
};

class Sqlite : public System {
 public:
  ~Sqlite() override {
    statements_.reset();
    sqlite3_close(db_);
  }

  bool rolls_back() const override { return true; }
  std::int64_t bytes() override {
    Statement pages(db_, "pragma page_count");
    Statement page_bytes(db_, "pragma page_size");
    return static_cast<std::int64_t>(pages.value() * page_bytes.value());
  }

  void begin() override { statements_->begin.run(); }
  void commit() override { statements_->commit.run(); }
  void rollback() override { statements_->rollback.run(); }
  void insert(const Row& row) override {
    statements_->insert.bind(1, row.id)
        .bind(2, row.name)
        .bind(3, std::int64_t{row.grp})
        .bind(4, row.price)
        .run();
  }
  void set_price(std::int64_t id, double price) override {
    statements_->set_price.bind(1, id).bind(2, price).run();
  }
  void erase(std::int64_t id) override { statements_->erase.bind(1, id).run(); }

  void begin_reads() override { statements_->begin_reads.run(); }
  void end_reads() override { statements_->commit.run(); }
  double get_id(std::int64_t id) override { return statements_->get_id.bind(1, id).value(); }
  double get_name(const Name& name) override { return statements_->get_name.bind(1, name).value(); }
  double get_group(std::int32_t group, int count) override {
    return statements_->get_group.bind(1, std::int64_t{group}).bind(2, std::int64_t{count}).sum();
  }
  double range(std::int64_t from, std::int64_t count) override {
    return statements_->range.bind(1, from).bind(2, count).sum();
  }

 protected:
  void open(const std::string& file, const char* settings) {
    require(sqlite3_open(file.c_str(), &db_) == SQLITE_OK, "sqlite: no database");
    sqlite3_busy_timeout(db_, 60000);
    execute(settings);
  }
  void make_table() {
    execute(
        "create table rows(id integer primary key, name text not null, grp integer not null, price real not "
        "null);"
        "create unique index by_name on rows(name);"
        "create index by_grp on rows(grp);");
  }
  void prepare() { statements_ = std::make_unique<Statements>(db_); }

 private:
  void execute(const char* text) {
    if (sqlite3_exec(db_, text, nullptr, nullptr, nullptr) != SQLITE_OK)
      throw std::runtime_error(std::string("sqlite: ") + sqlite3_errmsg(db_));
  }

  sqlite3* db_ = nullptr;
  std::unique_ptr<Statements> statements_;
};

class SqliteMemory final : public Sqlite {
 public:
  void create(const Place&) override {
    open(":memory:", "");
    make_table();
    prepare();
  }
};

class SqliteWal final : public Sqlite {
 public:
  bool shared() const override { return true; }
  void create(const Place& place) override {
    open_file(place);
    make_table();
    prepare();
  }
  void attach(const Place& place, Access) override {
    open_file(place);
    prepare();
  }

 private:
  // A cache and a map that hold everything, so that no page is read twice.
  void open_file(const Place& place) {
    open(place.folder + "/rows.db",
         "pragma journal_mode = wal; pragma synchronous = off; pragma cache_size = -1000000;"
         "pragma mmap_size = 4000000000;");
  }
};

}  // namespace

std::unique_ptr<System> make_sqlite_memory() {
  return std::make_unique<SqliteMemory>();
}
std::unique_ptr<System> make_sqlite_wal() {
  return std::make_unique<SqliteWal>();
}

}  // namespace bench
