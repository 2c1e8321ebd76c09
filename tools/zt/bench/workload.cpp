#include "zt/bench/workload.h"

#include <cachetx.h>

#include <atomic>
#include <cstring>
#include <exception>
#include <thread>

namespace zt::bench {
namespace {

constexpr int rows_of_a_transaction = 1000;
constexpr int rows_of_a_range = 100;
constexpr int searches_at_a_time = 16;
constexpr int readers = 2;

[[noreturn]] void fail(const std::string& what) {
  throw Failure(tr("the library's answer is wrong: {}", what));
}

// A row and a cursor of one handle.
class Hand {
 public:
  Hand(ZtDbHandle database, int index) : database_(database) {
    ZtCreateRecord(&row_);
    ZtCreateCondition(1, &cursor_);
    ZtSetConditionIndex(cursor_, index);
  }
  ~Hand() {
    ZtCloseCondition(cursor_);
    ZtCloseRecord(database_, row_);
  }
  Hand(const Hand&) = delete;
  Hand& operator=(const Hand&) = delete;

  ZtRecordHandle row() const { return row_; }
  ZtConditionHandle cursor() const { return cursor_; }

  void aim(int index, int type, const void* key, int bytes) const {
    ZtSetConditionIndex(cursor_, index);
    ZtAddConditionIndexItem(cursor_, type, bytes, key);
  }
  // Finds the record and takes it.
  void find(int index, int type, const void* key, int bytes, int op = ZT_OP_EQUAL) const {
    aim(index, type, key, bytes);
    if (!ZtFindRecord(database_, table, cursor_, op) || !ZtGetRecord(database_, cursor_, row_))
      fail(tr("a record is not found"));
  }
  void find_id(int id) const { find(by_id, FIELD_INT, &id, sizeof id); }

  int number(int field) const {
    int type = 0, value = 0;
    std::memcpy(&value, ZtGetField(database_, row_, field, &type), sizeof value);
    return value;
  }

 private:
  ZtDbHandle database_;
  ZtRecordHandle row_ = nullptr;
  ZtConditionHandle cursor_ = nullptr;
};

// Ids in the order of the ring's array: no order, and known beforehand.
class Ids {
 public:
  explicit Ids(const PrivateDatabase& database, std::size_t from = 0) : ids_(database.ring()), at_(from) {}
  int next() {
    if (at_ >= ids_.size()) at_ = 0;
    return ids_[at_++];
  }

 private:
  const std::vector<int>& ids_;
  std::size_t at_;
};

void insert_one(ZtDbHandle database, ZtRecordHandle row, int id, int next) {
  const Name name = name_of(id);
  const int team = id / records_of_a_team;
  const double price = id % 1000 / 4.0;
  const bool stored = ZtNewRecord(database, table, row) && ZtSetField(database, row, field_id, &id) &&
                      ZtSetField(database, row, field_name, name.data()) &&
                      ZtSetField(database, row, field_team, &team) &&
                      ZtSetField(database, row, field_price, &price) &&
                      ZtSetField(database, row, field_next, &next) && ZtPutRecord(database, row);
  if (!stored) fail(tr("a record is not stored"));
}

// All records, however long it takes: what follows needs them.
Measured insert(const PrivateDatabase& database, double /*seconds*/) {
  const Hand hand(database.handle(), by_id);
  const std::vector<int>& ring = database.ring();
  std::size_t place = 0;
  return measure_cold(1e9, [&]() -> std::int64_t {
    std::int64_t done = 0;
    ZtBeginTransaction(database.handle());
    for (; done < rows_of_a_transaction && place < ring.size(); ++done, ++place) {
      const int id = ring[place];
      insert_one(database.handle(), hand.row(), id, ring[static_cast<std::size_t>(id)]);
    }
    ZtCommitTransaction(database.handle());
    return done;
  });
}

Measured find_numbers(const PrivateDatabase& database, ZtDbHandle handle, double seconds) {
  const Hand hand(handle, by_id);
  Ids ids(database);
  return measure(seconds, [&] {
    hand.find_id(ids.next());
    return 1;
  });
}

Measured find_by_number(const PrivateDatabase& database, double seconds) {
  return find_numbers(database, database.handle(), seconds);
}

Measured find_by_number_read_only(const PrivateDatabase& database, double seconds) {
  return find_numbers(database, database.reader(), seconds);
}

// Each key comes out of the record that was found before.
Measured find_dependent(const PrivateDatabase& database, double seconds) {
  const ZtDbHandle handle = database.reader();
  const Hand hand(handle, by_id);
  hand.find_id(0);
  return measure(seconds, [&] {
    hand.find_id(hand.number(field_next));
    return 1;
  });
}

Measured find_together(const PrivateDatabase& database, double seconds) {
  const ZtDbHandle handle = database.reader();
  std::vector<std::unique_ptr<Hand>> hands;
  std::vector<ZtConditionHandle> cursors;
  for (int i = 0; i < searches_at_a_time; ++i) {
    hands.push_back(std::make_unique<Hand>(handle, by_id));
    cursors.push_back(hands.back()->cursor());
  }
  Ids ids(database);
  bool found[searches_at_a_time];
  return measure(seconds, [&] {
    for (const auto& hand : hands) {
      const int id = ids.next();
      hand->aim(by_id, FIELD_INT, &id, sizeof id);
    }
    if (!ZtxFindRecords(handle, table, cursors.data(), searches_at_a_time, ZT_OP_EQUAL, found))
      fail(tr("searches together are refused"));
    for (int i = 0; i < searches_at_a_time; ++i) {
      if (!found[i] || !ZtGetRecord(handle, cursors[static_cast<std::size_t>(i)],
                                    hands[static_cast<std::size_t>(i)]->row()))
        fail(tr("a record is not found"));
    }
    return searches_at_a_time;
  });
}

Measured find_by_text(const PrivateDatabase& database, double seconds) {
  const ZtDbHandle handle = database.reader();
  const Hand hand(handle, by_name);
  Ids ids(database);
  return measure(seconds, [&] {
    const Name name = name_of(ids.next());
    hand.find(by_name, FIELD_STRING, name.data(), sizeof name);
    return 1;
  });
}

// Up to so many rows from here on; how many there were.
std::int64_t step(ZtDbHandle handle, const Hand& hand, std::int64_t rows) {
  std::int64_t seen = 1;
  for (; seen < rows && ZtNextRecord(handle, hand.cursor()); ++seen) {
    if (!ZtGetRecord(handle, hand.cursor(), hand.row())) fail(tr("a cursor stands nowhere"));
  }
  return seen;
}

Measured read_ranges(const PrivateDatabase& database, double seconds) {
  const ZtDbHandle handle = database.reader();
  const Hand hand(handle, by_id);
  Ids ids(database);
  return measure(seconds, [&] {
    const int id = ids.next();
    hand.find(by_id, FIELD_INT, &id, sizeof id, ZT_OP_GREATER_EQUAL);
    return step(handle, hand, rows_of_a_range);
  });
}

Measured scan(const PrivateDatabase& database, double seconds) {
  const ZtDbHandle handle = database.reader();
  const Hand hand(handle, -1);
  bool again = false;
  return measure(seconds, [&]() -> std::int64_t {
    if (again && ZtNextRecord(handle, hand.cursor())) {
      ZtGetRecord(handle, hand.cursor(), hand.row());
      return step(handle, hand, rows_of_a_transaction);
    }
    again = true;
    if (!ZtListRecord(handle, table, hand.cursor()) || !ZtGetRecord(handle, hand.cursor(), hand.row()))
      fail(tr("the table is empty"));
    return 1;
  });
}

Measured update(const PrivateDatabase& database, double seconds) {
  const Hand hand(database.handle(), by_id);
  Ids ids(database);
  double price = 1;
  return measure(seconds, [&] {
    ZtBeginTransaction(database.handle());
    for (int i = 0; i < rows_of_a_transaction; ++i, price += 0.25) {
      hand.find_id(ids.next());
      if (!ZtSetField(database.handle(), hand.row(), field_price, &price)) fail(tr("a field is not changed"));
    }
    ZtCommitTransaction(database.handle());
    return rows_of_a_transaction;
  });
}

Measured commit(const PrivateDatabase& database, double seconds) {
  const Hand hand(database.handle(), by_id);
  Ids ids(database);
  double price = 2;
  return measure(seconds, [&] {
    ZtBeginTransaction(database.handle());
    hand.find_id(ids.next());
    if (!ZtSetField(database.handle(), hand.row(), field_price, &price)) fail(tr("a field is not changed"));
    ZtCommitTransaction(database.handle());
    price += 0.25;
    return 1;
  });
}

// Each reader has a handle of its own; their searches are counted together.
Measured read_in_parallel(const PrivateDatabase& database, double seconds) {
  Measured results[readers];
  std::exception_ptr errors[readers];
  std::vector<std::thread> threads;
  threads.reserve(readers);
  for (int i = 0; i < readers; ++i) {
    threads.emplace_back([&, i] {
      try {
        Handle own;
        database.open(own);
        results[i] = find_numbers(database, own, seconds);
      } catch (...) {
        errors[i] = std::current_exception();
      }
    });
  }
  for (std::thread& each : threads) each.join();
  Measured all;
  for (int i = 0; i < readers; ++i) {
    if (errors[i]) std::rethrow_exception(errors[i]);
    all.count += results[i].count;
    all.seconds = std::max(all.seconds, results[i].seconds);
  }
  return all;
}

constexpr char read_write[] = "read-write", read_only[] = "read-only";

constexpr Operation all[] = {
    {"insert, 1000 a transaction", read_write, insert},
    {"find by number", read_write, find_by_number},
    {"find by number", read_only, find_by_number_read_only},
    {"find by number, each key from the record before", read_only, find_dependent},
    {"find by number, 16 at a time", read_only, find_together},
    {"find by number, 2 readers together", read_only, read_in_parallel},
    {"find by text", read_only, find_by_text},
    {"range of 100 rows, each row", read_only, read_ranges},
    {"scan, each row", read_only, scan},
    {"find and change, 1000 a transaction", read_write, update},
    {"find and change, 1 a transaction", read_write, commit},
};

}  // namespace

std::span<const Operation> operations() {
  return all;
}

}  // namespace zt::bench
