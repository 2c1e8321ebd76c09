// Usage: actor DIRECTORY
//
// One of two processes that work on the same databases: built once with everything that makes the library fast, and
// once without. It answers every line with one, which follows from the line and the database alone, so both can be asked
// the same. Two handles are open throughout, one that reads and writes and one that only reads.
//
//   c NAME RANGE | o NAME RANGE        makes a database, opens it; values come from about RANGE different ones
//   w NAME SEED                        writes in a transaction, which it begins unless one is open
//   e NAME c|r                         ends the transaction: commit, rollback
//   a NAME reset | save F | load F     abandons the records, or takes an image and loads it
//   q NAME w|r SEED                    searches and walks with that handle
//   h                                  the bytes that hints take
//
//   both tables:  id INT8 | name STRING[24] | d DOUBLE | grp INT | narrow INT in 2 bytes | u USHORT
#include <cmath>
#include <cstring>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "accelerate_hints.h"
#include "cachet.h"
#include "cachetx.h"

namespace {

struct Field {
  const char* name;
  int type, length;
};
constexpr Field fields[] = {{"id", FIELD_INT8, 8}, {"name", FIELD_STRING, 24}, {"d", FIELD_DOUBLE, 8},
                            {"grp", FIELD_INT, 4}, {"narrow", FIELD_INT, 2},   {"u", FIELD_USHORT, 2}};
struct Index {
  int type;
  std::vector<int> fields;
};
// The first table takes most of what comes, the second one has unique keys of every kind.
const std::vector<Index> tables[] = {{{ZT_INDEX_UNIQUE, {0}},
                                      {ZT_INDEX_DUPLICATES, {1}},
                                      {ZT_INDEX_DUPLICATES, {2, 1}},
                                      {ZT_INDEX_DUPLICATES, {3, 1}},
                                      {ZT_INDEX_DUPLICATES, {4, 5}},
                                      {ZT_INDEX_DUPLICATES, {1, 2}},
                                      {ZT_INDEX_DUPLICATES, {5}}},
                                     {{ZT_INDEX_UNIQUE, {0}},
                                      {ZT_INDEX_UNIQUE, {1}},
                                      {ZT_INDEX_UNIQUE, {3, 1}},
                                      {ZT_INDEX_DUPLICATES, {3}},
                                      {ZT_INDEX_DUPLICATES, {2}}}};
constexpr int no_rounding = -1;

template <auto close>
struct Closer {
  template <class T>
  void operator()(T* handle) const {
    close(handle);
  }
};
using Condition = std::unique_ptr<ZtCondition, Closer<ZtCloseCondition>>;

Condition new_condition(int index) {
  ZtConditionHandle condition = nullptr;
  ZtCreateCondition(4, &condition);
  ZtSetConditionIndex(condition, index);
  return Condition(condition);
}

class Row {
 public:
  explicit Row(ZtDbHandle db) : db_(db) { ZtCreateRecord(&handle_); }
  ~Row() { ZtCloseRecord(db_, handle_); }
  Row(const Row&) = delete;
  Row& operator=(const Row&) = delete;
  operator ZtRecordHandle() const { return handle_; }

 private:
  ZtDbHandle db_;
  ZtRecordHandle handle_ = nullptr;
};

class Random {
 public:
  Random(unsigned seed, unsigned range) : bits_(seed), range_(range) {}
  unsigned below(unsigned limit) { return static_cast<unsigned>(bits_() % limit); }
  bool one_in(unsigned count) { return below(count) == 0; }
  int table() { return one_in(4) ? 1 : 0; }

  long long id() {
    const long long outside[] = {-1LL << 62, 1LL << 62, -5};
    return one_in(8) ? outside[below(3)] : static_cast<long long>(below(range_));
  }

  // A value of the type, from few enough that some are stored.
  std::string value(int type) {
    switch (type) {
      case FIELD_STRING:
        return name();
      case FIELD_DOUBLE:
        return stored(number());
      case FIELD_INT8:
        return stored(id());
      case FIELD_INT:
        return stored(static_cast<int>(below(40)) - 20);
      default:
        return stored(static_cast<unsigned short>(below(60000)));
    }
  }

 private:
  template <class T>
  static std::string stored(T value) {
    return {reinterpret_cast<const char*>(&value), sizeof value};
  }

  double number() {
    const double special[] = {NAN, -0.0, 0.0, 5e-324, -1e-310, 1e-310, INFINITY, -INFINITY};
    if (one_in(8)) return special[below(std::size(special))];
    return (static_cast<double>(below(400)) - 200) / 8;
  }

  // A long common beginning, and a few that share nothing with the others.
  std::string name() {
    if (one_in(60)) return std::string(one_in(2) ? "zzz" : "") + '\0';
    if (one_in(10)) return "A" + std::to_string(below(3)) + '\0';
    std::string text = one_in(5) ? "name-in-a-group-" : "name-";
    const std::string digits = std::to_string(below(range_));
    text += std::string(7 - digits.size(), '0') + digits;
    if (one_in(10)) text.resize(5 + below(8));
    return text + '\0';
  }

  std::mt19937 bits_;
  unsigned range_;
};

class Database {
 public:
  Database(const std::string& directory, const std::string& name, unsigned range, bool create)
      : range_(range) {
    const char* const path = directory.c_str();
    if (create) {
      ZtCreateDb(&writer_, path, name.c_str(), "1", 16 << 20, 1);
      define();
      ZtSaveDbInfo(writer_);
    } else {
      ZtOpenDb(&writer_, path, name.c_str(), "1", ZT_MODE_READ_WRITE, 0, false, 0, 0, 1);
      ZtLoadDbInfo(writer_);
    }
    ready(writer_);
    ZtOpenDb(&reader_, path, name.c_str(), "1", ZT_MODE_READ_ONLY, 0, false, 0, 0, 1);
    ZtLoadDbInfo(reader_);
    ready(reader_);
    row_.emplace(reader_);
  }
  ~Database() {
    row_.reset();
    ZtDeleteDb(reader_);
    ZtDeleteDb(writer_);
  }
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  void write(unsigned seed) {
    Random random(seed, range_);
    if (!std::exchange(in_transaction_, true)) ZtBeginTransaction(writer_);
    for (unsigned left = random.below(120); left > 0; --left)
      random.one_in(4) ? erase(random) : insert(random);
  }

  void end(bool commit) {
    in_transaction_ = false;
    commit ? ZtCommitTransaction(writer_) : ZtRollbackTransaction(writer_);
  }

  void abandon(const std::string& how, std::istream& words) {
    std::string file;
    if (how == "reset") ZtResetDb(writer_);
    if (how == "save") std::cout << (words >> file && ZtWriteDbFile(writer_, file.c_str()));
    if (how == "load") std::cout << (words >> file && ZtReadDbFile(writer_, file.c_str()));
  }

  void search(char handle, unsigned seed) {
    Random random(seed, range_);
    const ZtDbHandle db = handle == 'r' ? reader_ : writer_;
    for (int left = 6; left > 0; --left) search_one(db, random);
    search_many(db, random);
    if (ZtGotoRecord(db, random.table(), static_cast<int>(random.below(2 * range_)), condition_.get())) {
      std::cout << " at " << id_at(db, condition_);
    }
    if (random.one_in(8)) walk(db, random);
  }

 private:
  void define() {
    for (int table = 0; const std::vector<Index>& indexes : tables) {
      ZtAddTable(writer_, "mixed");
      for (const Field& field : fields)
        ZtAddField(writer_, table, field.name, field.type, field.length, no_rounding);
      for (int index = 0; const Index& each : indexes) {
        ZtAddIndex(writer_, table, "index", each.type);
        for (const int field : each.fields) ZtAddIndexField(writer_, table, index, field);
        ++index;
      }
      ++table;
    }
  }
  static void ready(ZtDbHandle db) {
    ZtSetErrorHandle(db, [](int, const char*) { return true; });
    ZtLoadDb(db);
    ZtUnLockDb(db);
  }

  void insert(Random& random) {
    const Row row(writer_);
    ZtNewRecord(writer_, random.table(), row);
    for (int field = 0; const Field& each : fields) {
      std::string value = random.value(each.type);
      value.resize(24);
      ZtSetField(writer_, row, field++, value.data());
    }
    std::cout << (ZtPutRecord(writer_, row) ? '+' : '!');
  }

  void erase(Random& random) {
    const Condition place = new_condition(0);
    const long long id = random.id();
    ZtAddConditionIndexItem(place.get(), FIELD_INT8, sizeof id, &id);
    const Row row(writer_);
    if (!ZtFindRecord(writer_, random.table(), place.get(), ZT_OP_EQUAL)) return;
    ZtGetRecord(writer_, place.get(), row);
    ZtDeleteRecord(writer_, row);
    std::cout << '-' << ZtGetRecordId(writer_, row);
  }

  // Now and then a key that does not fit its index: fewer fields or more, of other types, too short.
  static void set_random_key(ZtConditionHandle key, Random& random, int table) {
    const auto index = random.below(static_cast<unsigned>(tables[table].size()));
    const std::vector<int>& key_fields = tables[table][index].fields;
    ZtSetConditionIndex(key, static_cast<int>(index));
    const unsigned count = random.one_in(4) ? random.below(4) : static_cast<unsigned>(key_fields.size());
    for (unsigned i = 0; i < count; ++i) {
      int type = i < key_fields.size() ? fields[key_fields[i]].type : FIELD_INT;
      if (random.one_in(25)) type = static_cast<int>(random.below(11));
      std::string value = random.value(type);
      if (random.one_in(25)) value.resize(random.below(static_cast<unsigned>(value.size()) + 1));
      ZtAddConditionIndexItem(key, type, static_cast<int>(value.size()), value.data());
    }
  }

  // The record id under the cursor.
  int id_at(ZtDbHandle db, const Condition& condition) {
    return ZtGetRecord(db, condition.get(), *row_) ? ZtGetRecordId(db, *row_) : -1;
  }

  // Some steps on, and back again from where that ends; where a walk that ran out stands depends on who has unlinked
  // deleted records before.
  void search_one(ZtDbHandle db, Random& random) {
    const int table = random.table();
    set_random_key(condition_.get(), random, table);
    const int op = random.one_in(2) ? ZT_OP_EQUAL : ZT_OP_LESS + static_cast<int>(random.below(5));
    bool stands = ZtFindRecord(db, table, condition_.get(), op);
    std::cout << ' ' << op << ':';
    for (unsigned left = random.one_in(3) ? 40 : random.below(5); stands && left > 0; --left) {
      std::cout << id_at(db, condition_) << ',';
      stands = ZtNextRecord(db, condition_.get());
    }
    if (!stands && op >= ZT_OP_GREATER_EQUAL) stands = ZtLastRecord(db, condition_.get());
    for (int left = 20; stands && left > 0; --left) {
      std::cout << id_at(db, condition_) << ';';
      stands = ZtPrevRecord(db, condition_.get());
    }
  }

  void search_many(ZtDbHandle db, Random& random) {
    constexpr int count = 37;
    const int table = random.table();
    std::vector<Condition> conditions;
    std::vector<ZtConditionHandle> handles;
    for (int left = count; left > 0; --left) {
      handles.push_back(conditions.emplace_back(new_condition(0)).get());
      set_random_key(handles.back(), random, table);
    }
    bool found[count] = {};
    const int op = ZT_OP_LESS + static_cast<int>(random.below(5));
    std::cout << " many" << ZtxFindRecords(db, table, handles.data(), count, op, found);
    for (std::size_t i = 0; i < count; ++i) std::cout << ',' << (found[i] ? id_at(db, conditions[i]) : -1);
  }

  void walk(ZtDbHandle db, Random& random) {
    const int table = random.table();
    ZtSetConditionIndex(condition_.get(), static_cast<int>(random.below(5)));
    unsigned long sum = 0;
    ZtConditionHandle const list = condition_.get();
    for (bool stands = ZtListRecord(db, table, list); stands; stands = ZtNextRecord(db, list))
      sum = sum * 31 + static_cast<unsigned>(id_at(db, condition_));
    std::cout << " all " << sum;
  }

  unsigned range_;
  bool in_transaction_ = false;
  ZtDbHandle writer_ = nullptr;
  ZtDbHandle reader_ = nullptr;
  // One of each for all questions: what they keep of one handle, table or index must not show with the next.
  Condition condition_ = new_condition(-1);
  std::optional<Row> row_;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  std::map<std::string, Database> databases;
  for (char command = 0; std::cin >> command;) {
    std::string name, how;
    unsigned number = 0;
    if (command != 'h') std::cin >> name;
    if (command == 'a' || command == 'e' || command == 'q') std::cin >> how;
    if (command == 'c' || command == 'o' || command == 'w' || command == 'q') std::cin >> number;
    if (command == 'c' || command == 'o') databases.try_emplace(name, argv[1], name, number, command == 'c');
    if (command == 'w') databases.at(name).write(number);
    if (command == 'e') databases.at(name).end(how == "c");
    if (command == 'a') databases.at(name).abandon(how, std::cin);
    if (command == 'q') databases.at(name).search(how[0], number);
    if (command == 'h') std::cout << cachet::hint_bytes();
    std::cout << std::endl;
  }
}
