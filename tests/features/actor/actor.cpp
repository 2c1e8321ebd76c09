// Usage: actor DIRECTORY
//
// One of two processes that use the same databases: built once with everything that makes the library fast, and once
// without. What it does follows from the commands on its input alone, so both can be asked the same:
//
//   c NAME        makes a database         o NAME   opens it
//   w NAME SEED   writes: inserts, deletes, commits and rolls back; prints what every call gave
//   q NAME SEED   searches and walks; prints the record ids it came by
//   e             ends
//
//   table "mixed":  id INT8 | name STRING[24] | d DOUBLE | grp INT | narrow INT in 2 bytes | u USHORT
#include <cmath>
#include <cstring>
#include <iostream>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "cachet.h"
#include "cachetx.h"

namespace {

struct Field {
  const char* name;
  int type, length;
};
constexpr Field fields[] = {{"id", FIELD_INT8, 8}, {"name", FIELD_STRING, 24}, {"d", FIELD_DOUBLE, 8},
                            {"grp", FIELD_INT, 4}, {"narrow", FIELD_INT, 2},   {"u", FIELD_USHORT, 2}};
const std::vector<int> indexes[] = {{0}, {1}, {2, 1}, {3, 1}, {4, 5}, {1, 2}, {5}};
constexpr int unique_index = 0;
constexpr int no_rounding = -1;

class Random {
 public:
  explicit Random(unsigned seed) : bits_(seed) {}
  unsigned below(unsigned limit) { return static_cast<unsigned>(bits_() % limit); }
  bool one_in(unsigned count) { return below(count) == 0; }

  // A value of the type, from few enough that some are stored.
  std::string value(int type) {
    switch (type) {
      case FIELD_STRING:
        return name();
      case FIELD_DOUBLE:
        return stored(number());
      case FIELD_INT8:
        return stored(one_in(20) ? -static_cast<long long>(below(3000))
                                 : static_cast<long long>(below(3000)));
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
    const double special[] = {NAN, -0.0, 0.0, 5e-324, -1e-310, INFINITY, -INFINITY};
    if (one_in(12)) return special[below(std::size(special))];
    return (static_cast<double>(below(400)) - 200) / 8;
  }

  std::string name() {
    if (one_in(60)) return std::string(one_in(2) ? "zzz" : "") + '\0';
    std::string text = one_in(5) ? "name-in-a-group-" : "name-";
    const std::string digits = std::to_string(below(20000));
    text += std::string(6 - digits.size(), '0') + digits;
    if (one_in(10)) text.resize(5 + below(8));
    return text + '\0';
  }

  std::mt19937 bits_;
};

class Database {
 public:
  Database(const std::string& directory, const std::string& name, bool create) {
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
  }
  ~Database() {
    ZtDeleteDb(reader_);
    ZtDeleteDb(writer_);
  }
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  void write(unsigned seed) {
    Random random(seed);
    ZtBeginTransaction(writer_);
    for (int left = 120; left > 0; --left) random.one_in(5) ? erase(random) : insert(random);
    random.one_in(4) ? ZtRollbackTransaction(writer_) : ZtCommitTransaction(writer_);
  }

  void search(unsigned seed) {
    Random random(seed);
    const ZtDbHandle db = random.one_in(2) ? writer_ : reader_;
    for (int left = 60; left > 0; --left) search_one(db, random);
    for (int op = ZT_OP_LESS; op <= ZT_OP_GREATER; ++op) search_many(db, random, op);
    ZtConditionHandle list = new_condition(static_cast<int>(random.below(std::size(indexes))));
    ZtRecordHandle row = new_row();
    unsigned long sum = 0;
    for (bool stands = ZtListRecord(db, 0, list); stands; stands = ZtNextRecord(db, list))
      sum = sum * 31 + static_cast<unsigned>(id(db, list, row));
    std::cout << " all " << sum;
    ZtCloseRecord(db, row);
    ZtCloseCondition(list);
  }

 private:
  void define() {
    ZtAddTable(writer_, "mixed");
    for (const Field& field : fields)
      ZtAddField(writer_, 0, field.name, field.type, field.length, no_rounding);
    for (int index = 0; const std::vector<int>& key : indexes) {
      ZtAddIndex(writer_, 0, "index", index == unique_index ? ZT_INDEX_UNIQUE : ZT_INDEX_DUPLICATES);
      for (const int field : key) ZtAddIndexField(writer_, 0, index, field);
      ++index;
    }
  }
  static void ready(ZtDbHandle db) {
    ZtSetErrorHandle(db, [](int, const char*) { return true; });
    ZtLoadDb(db);
    ZtUnLockDb(db);
  }

  static ZtRecordHandle new_row() {
    ZtRecordHandle row;
    ZtCreateRecord(&row);
    return row;
  }
  static ZtConditionHandle new_condition(int index) {
    ZtConditionHandle condition;
    ZtCreateCondition(4, &condition);
    ZtSetConditionIndex(condition, index);
    return condition;
  }

  void insert(Random& random) {
    ZtRecordHandle row = new_row();
    ZtNewRecord(writer_, 0, row);
    for (int field = 0; const Field& each : fields) {
      std::string value = random.value(each.type);
      value.resize(24);
      ZtSetField(writer_, row, field++, value.data());
    }
    std::cout << (ZtPutRecord(writer_, row) ? '+' : '!');
    ZtCloseRecord(writer_, row);
  }

  void erase(Random& random) {
    ZtConditionHandle place = new_condition(-1);
    ZtRecordHandle row = new_row();
    if (ZtGotoRecord(writer_, 0, static_cast<int>(random.below(2000)), place)) {
      ZtGetRecord(writer_, place, row);
      ZtDeleteRecord(writer_, row);
      std::cout << '-' << ZtGetRecordId(writer_, row);
    }
    ZtCloseRecord(writer_, row);
    ZtCloseCondition(place);
  }

  // Now and then a key that does not fit its index: fewer fields or more, of other types, too short.
  static ZtConditionHandle random_key(Random& random) {
    const auto index = random.below(std::size(indexes));
    ZtConditionHandle key = new_condition(static_cast<int>(index));
    const unsigned count = random.one_in(4) ? random.below(4) : static_cast<unsigned>(indexes[index].size());
    for (unsigned i = 0; i < count; ++i) {
      int type = i < indexes[index].size() ? fields[indexes[index][i]].type : FIELD_INT;
      if (random.one_in(25)) type = static_cast<int>(random.below(11));
      std::string value = random.value(type);
      if (random.one_in(25)) value.resize(random.below(static_cast<unsigned>(value.size()) + 1));
      ZtAddConditionIndexItem(key, type, static_cast<int>(value.size()), value.data());
    }
    return key;
  }

  static int id(ZtDbHandle db, ZtConditionHandle condition, ZtRecordHandle row) {
    return ZtGetRecord(db, condition, row) ? ZtGetRecordId(db, row) : -1;
  }

  static void search_one(ZtDbHandle db, Random& random) {
    ZtConditionHandle condition = random_key(random);
    ZtRecordHandle row = new_row();
    for (int op = ZT_OP_LESS; op <= ZT_OP_GREATER; ++op) {
      bool stands = ZtFindRecord(db, 0, condition, op);
      std::cout << ' ' << op << ':';
      for (int left = 40; stands && left > 0; --left) {
        std::cout << id(db, condition, row) << ',';
        stands = ZtNextRecord(db, condition);
      }
      if (op >= ZT_OP_GREATER_EQUAL) stands = ZtLastRecord(db, condition);
      for (int left = 20; stands && left > 0; --left) {
        std::cout << id(db, condition, row) << ';';
        stands = ZtPrevRecord(db, condition);
      }
    }
    ZtCloseRecord(db, row);
    ZtCloseCondition(condition);
  }

  static void search_many(ZtDbHandle db, Random& random, int op) {
    constexpr int count = 37;
    std::vector<ZtConditionHandle> conditions;
    for (int left = count; left > 0; --left) conditions.push_back(random_key(random));
    bool found[count] = {};
    ZtRecordHandle row = new_row();
    std::cout << " many" << ZtxFindRecords(db, 0, conditions.data(), count, op, found);
    for (int i = 0; i < count; ++i) {
      std::cout << ',' << (found[i] ? id(db, conditions[static_cast<std::size_t>(i)], row) : -1);
      ZtCloseCondition(conditions[static_cast<std::size_t>(i)]);
    }
    ZtCloseRecord(db, row);
  }

  ZtDbHandle writer_ = nullptr;
  ZtDbHandle reader_ = nullptr;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  std::map<std::string, Database> databases;
  char command = 0;
  std::string name;
  for (unsigned seed = 0; std::cin >> command && command != 'e';) {
    std::cin >> name;
    if (command == 'c' || command == 'o') databases.try_emplace(name, argv[1], name, command == 'c');
    if (command == 'w' || command == 'q') std::cin >> seed;
    if (command == 'w') databases.at(name).write(seed);
    if (command == 'q') databases.at(name).search(seed);
    std::cout << std::endl;
  }
}
