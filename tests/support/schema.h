// A small standard database for tests, and owners for the library's handles.
//
//   table 0 "items":  id INT | name STRING[20] | team INT | price DOUBLE, 2 places
//   indexes:          0 by id (unique) | 1 by name | 2 by team
#ifndef CACHET_TESTS_SUPPORT_SCHEMA_H
#define CACHET_TESTS_SUPPORT_SCHEMA_H

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "caches.h"
#include "support/temp_database.h"

namespace cachet::test {

inline constexpr char version_text[] = "tests 1";
inline constexpr ZTINT8 small_bytes = 4 << 20;

enum : int { items = 0 };
enum : int { item_id = 0, item_name = 1, item_team = 2, item_price = 3 };
enum : int { by_id = 0, by_name = 1, by_team = 2 };
inline constexpr int name_bytes = 20;

struct Error {
  int code = 0;
  std::string text;  // GBK
  bool operator==(const Error&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const Error& error) {
  return out << error.code << ' ' << ::testing::PrintToString(error.text);
}

inline Error last_error(ZtDbHandle handle) {
  Error error;
  char text[ZT_ERRMSG_SIZE];
  ZtGetError(handle, &error.code, text);
  error.text = text;
  return error;
}

// Takes errors silently, in place of a printed line.
inline void silence(ZtDbHandle handle) {
  ZtSetErrorHandle(handle, [](int, const char*) { return true; });
}

// Owns a handle; deletes it at the end.
class Database {
 public:
  Database() = default;
  Database(Database&& other) noexcept
      : opened(other.opened), handle_(std::exchange(other.handle_, nullptr)) {}
  Database& operator=(Database&& other) noexcept {
    std::swap(handle_, other.handle_);
    std::swap(opened, other.opened);
    return *this;
  }
  ~Database() { close(); }
  void close() {
    if (handle_ != nullptr) ZtDeleteDb(std::exchange(handle_, nullptr));
  }
  // Forgets the handle, as a process that dies does.
  ZtDbHandle release() { return std::exchange(handle_, nullptr); }
  operator ZtDbHandle() const { return handle_; }
  ZtDbHandle* out() { return &handle_; }

  bool opened = false;

 private:
  ZtDbHandle handle_ = nullptr;
};

inline Rb_base* base_of(const Database& db) {
  return &static_cast<ZtDbHandle>(db)->base;
}

// ZtCreateDb and ZtOpenDb with the usual arguments; both return holding the file lock when `opened`.
inline Database begin_create(TempDirectory& directory, ZTINT8 size_bytes = small_bytes,
                             const char* name = "d", int session_mode = 1) {
  Database db;
  db.opened = ZtCreateDb(db.out(), directory.path().c_str(), name, version_text, size_bytes, session_mode);
  directory.note_objects();
  return db;
}

inline Database begin_open(const TempDirectory& directory, int mode = ZT_MODE_READ_WRITE,
                           const char* name = "d", const char* version = version_text, int reuse = 0) {
  Database db;
  db.opened = ZtOpenDb(db.out(), directory.path().c_str(), name, version, mode, 0, false, reuse, 0, 1);
  return db;
}

// What a creator does after its schema calls, and an opener after its open.
inline void finish_create(ZtDbHandle db) {
  ZtSaveDbInfo(db);
  ZtLoadDb(db);
  ZtUnLockDb(db);
}

inline void finish_open(ZtDbHandle db) {
  ZtLoadDbInfo(db);
  ZtLoadDb(db);
  ZtUnLockDb(db);
}

struct Field {
  const char* name;
  int type, length, decimals;
};
struct Index {
  const char* name;
  int type;
  std::vector<int> fields;
};

inline void define_table(ZtDbHandle db, const char* name, const std::vector<Field>& fields,
                         const std::vector<Index>& indexes) {
  ZtAddTable(db, name);
  const int table = static_cast<int>(db->database.size()) - 1;
  for (const Field& f : fields) ZtAddField(db, table, f.name, f.type, f.length, f.decimals);
  for (int i = 0; const Index& index : indexes) {
    ZtAddIndex(db, table, index.name, index.type);
    for (const int field : index.fields) ZtAddIndexField(db, table, i, field);
    ++i;
  }
}

inline void define_items(ZtDbHandle db) {
  define_table(db, "items",
               {{"id", FIELD_INT, 4, -1},
                {"name", FIELD_STRING, name_bytes, -1},
                {"team", FIELD_INT, 4, -1},
                {"price", FIELD_DOUBLE, 8, 2}},
               {{"by id", ZT_INDEX_UNIQUE, {item_id}},
                {"by name", ZT_INDEX_DUPLICATES, {item_name}},
                {"by team", ZT_INDEX_DUPLICATES, {item_team}}});
}

// The whole database in one call, ready for use.
inline Database create_items(TempDirectory& directory, ZTINT8 size_bytes = small_bytes) {
  Database db = begin_create(directory, size_bytes);
  EXPECT_TRUE(db.opened);
  define_items(db);
  finish_create(db);
  return db;
}

inline Database open_items(const TempDirectory& directory, int mode = ZT_MODE_READ_WRITE) {
  Database db = begin_open(directory, mode);
  EXPECT_TRUE(db.opened);
  if (db.opened) finish_open(db);
  return db;
}

// Owns a record handle.
class Row {
 public:
  explicit Row(ZtDbHandle db) : db_(db) { ZtCreateRecord(&handle_); }
  ~Row() { ZtCloseRecord(db_, handle_); }
  Row(const Row&) = delete;
  Row& operator=(const Row&) = delete;
  operator ZtRecordHandle() const { return handle_; }

  template <class T>
  T get(int field) const {
    T value{};
    int type = 0;
    if (const char* data = ZtGetField(db_, handle_, field, &type)) std::memcpy(&value, data, sizeof value);
    return value;
  }
  std::string text(int field) const {
    int type = 0;
    const char* data = ZtGetField(db_, handle_, field, &type);
    return data == nullptr ? std::string() : std::string(data);
  }
  template <class T>
  bool set(int field, T value) {
    return ZtSetField(db_, handle_, field, &value);
  }
  bool set_name(const std::string& name) {
    char slot[name_bytes] = {};
    std::strncpy(slot, name.c_str(), sizeof slot - 1);
    return ZtSetField(db_, handle_, item_name, slot);
  }

 private:
  ZtDbHandle db_;
  ZtRecordHandle handle_ = nullptr;
};

// Fills `row` and stores it; in no transaction of its own.
inline bool put_item(ZtDbHandle db, Row& row, int id, const std::string& name, int team, double price) {
  return ZtNewRecord(db, items, row) && row.set(item_id, id) && row.set_name(name) &&
         row.set(item_team, team) && row.set(item_price, price) && ZtPutRecord(db, row);
}

inline bool put_item(ZtDbHandle db, int id, const std::string& name = "", int team = 0, double price = 0) {
  Row row(db);
  return put_item(db, row, id, name, team, price);
}

// The same inside a transaction, committed.
inline bool commit_item(ZtDbHandle db, int id, const std::string& name = "", int team = 0, double price = 0) {
  ZtBeginTransaction(db);
  const bool stored = put_item(db, id, name, team, price);
  ZtCommitTransaction(db);
  return stored;
}

// Owns a condition on one index.
class Condition {
 public:
  explicit Condition(int index) {
    ZtCreateCondition(4, &handle_);
    ZtSetConditionIndex(handle_, index);
  }
  Condition(int index, int key) : Condition(index) { add(key); }
  Condition(int index, const char* key) : Condition(index) { add(key); }
  ~Condition() { ZtCloseCondition(handle_); }
  Condition(const Condition&) = delete;
  Condition& operator=(const Condition&) = delete;
  operator ZtConditionHandle() const { return handle_; }

  void add(ZTINT8 key) { ZtAddConditionIndexItem(handle_, FIELD_INT8, sizeof key, &key); }
  void add(int key) { ZtAddConditionIndexItem(handle_, FIELD_INT, sizeof key, &key); }
  void add(const char* key) {
    ZtAddConditionIndexItem(handle_, FIELD_STRING, static_cast<int>(std::strlen(key)) + 1, key);
  }

 private:
  ZtConditionHandle handle_ = nullptr;
};

// Puts the item with this id into `row`; false when there is none.
inline bool find_item(ZtDbHandle db, int id, Row& row) {
  Condition condition(by_id, id);
  return ZtFindRecord(db, items, condition, ZT_OP_EQUAL) && ZtGetRecord(db, condition, row);
}

}  // namespace cachet::test

#endif
