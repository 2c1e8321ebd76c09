// A process that works on a database as it is told, a line at a time, and answers each line with one: built with what
// makes the library fast, and once more without. Two handles are open throughout, one that reads and writes and one
// that only reads.
//
//   create | open                          the database "d" in the directory of the first argument
//   begin | commit | rollback | reset
//   put TABLE ID NAME GROUP NUMBER         answers the record id, or the error
//   erase TABLE ID
//   save FILE | load FILE
//   find r|w TABLE INDEX OPERATOR STEPS KEY...
//                                          answers the record there, STEPS behind it, and those on the way back
//   goto r|w TABLE ROWID
//   hints                                  answers the bytes that hints take
#include <cstring>
#include <iostream>
#include <sstream>
#include <string>

#include "accelerate_hints.h"
#include "cachet.h"

namespace {

constexpr ZTINT8 size_bytes = 8 << 20;
constexpr char version[] = "peers";
constexpr int name_bytes = 16;

struct Field {
  const char* name;
  int type, length;
};
constexpr Field fields[] = {{"id", FIELD_INT8, 8},
                            {"name", FIELD_STRING, name_bytes},
                            {"group", FIELD_INT, 4},
                            {"number", FIELD_DOUBLE, 8}};
// By id, by name, by group, by group and name, by number.
constexpr struct {
  int type, first, second;
} indexes[] = {{ZT_INDEX_UNIQUE, 0, -1},
               {ZT_INDEX_UNIQUE, 1, -1},
               {ZT_INDEX_DUPLICATES, 2, -1},
               {ZT_INDEX_UNIQUE, 2, 1},
               {ZT_INDEX_DUPLICATES, 3, -1}};

void define(ZtDbHandle db) {
  for (const char* table : {"rows", "the same"}) {
    const int id = table[0] == 'r' ? 0 : 1;
    ZtAddTable(db, table);
    for (const Field& field : fields) ZtAddField(db, id, field.name, field.type, field.length, -1);
    for (int index = 0; const auto& each : indexes) {
      ZtAddIndex(db, id, "index", each.type);
      ZtAddIndexField(db, id, index, each.first);
      if (each.second >= 0) ZtAddIndexField(db, id, index, each.second);
      ++index;
    }
  }
}

class Peer {
 public:
  explicit Peer(const char* directory) : directory_(directory) {
    ZtCreateCondition(2, &condition_);
    ZtCreateRecord(&row_);
  }
  ~Peer() {
    ZtCloseCondition(condition_);
    ZtCloseRecord(reader_, row_);
    ZtDeleteDb(reader_);
    ZtDeleteDb(writer_);
  }

  std::string answer(const std::string& line) {
    std::istringstream words(line);
    std::string what;
    words >> what;
    std::ostringstream out;
    if (what == "create") create();
    if (what == "open") writer_ = open(ZT_MODE_READ_WRITE);
    if (what == "create" || what == "open") reader_ = open(ZT_MODE_READ_ONLY);
    if (what == "begin") ZtBeginTransaction(writer_);
    if (what == "commit") ZtCommitTransaction(writer_);
    if (what == "rollback") ZtRollbackTransaction(writer_);
    if (what == "reset") ZtResetDb(writer_);
    if (what == "put") put(words, out);
    if (what == "erase") erase(words, out);
    if (what == "save" || what == "load") image(what == "save", words, out);
    if (what == "find") find(words, out);
    if (what == "goto") go_to(words, out);
    if (what == "hints") out << cachet::hint_bytes();
    return out.str();
  }

 private:
  static ZtDbHandle silent(ZtDbHandle db) {
    ZtSetErrorHandle(db, [](int, const char*) { return true; });
    return db;
  }
  void create() {
    ZtCreateDb(&writer_, directory_, "d", version, size_bytes, 1);
    define(silent(writer_));
    ZtSaveDbInfo(writer_);
    ZtLoadDb(writer_);
    ZtUnLockDb(writer_);
  }
  ZtDbHandle open(int mode) const {
    ZtDbHandle db = nullptr;
    ZtOpenDb(&db, directory_, "d", version, mode, 0, false, 0, 0, 1);
    ZtLoadDbInfo(silent(db));
    ZtLoadDb(db);
    ZtUnLockDb(db);
    return db;
  }
  static int error_of(ZtDbHandle db) {
    int code = 0;
    char text[ZT_ERRMSG_SIZE];
    ZtGetError(db, &code, text);
    return code;
  }

  void put(std::istream& words, std::ostream& out) {
    int table = 0, group = 0;
    ZTINT8 id = 0;
    std::string name, number_text;
    words >> table >> id >> name >> group >> number_text;
    const double number = std::strtod(number_text.c_str(), nullptr);
    char slot[name_bytes] = {};
    std::strncpy(slot, name.c_str(), sizeof slot - 1);
    ZtRecordHandle row = nullptr;
    ZtCreateRecord(&row);
    ZtNewRecord(writer_, table, row);
    const void* const values[] = {&id, slot, &group, &number};
    for (int field = 0; field < 4; ++field) ZtSetField(writer_, row, field, values[field]);
    if (ZtPutRecord(writer_, row)) {
      out << ZtGetRecordId(writer_, row);
    } else {
      out << "error " << error_of(writer_);
    }
    ZtCloseRecord(writer_, row);
  }

  void erase(std::istream& words, std::ostream& out) {
    int table = 0;
    ZTINT8 id = 0;
    words >> table >> id;
    ZtConditionHandle condition = nullptr;
    ZtRecordHandle row = nullptr;
    ZtCreateRecord(&row);
    ZtCreateCondition(1, &condition);
    ZtSetConditionIndex(condition, 0);
    ZtAddConditionIndexItem(condition, FIELD_INT8, sizeof id, &id);
    const bool found =
        ZtFindRecord(writer_, table, condition, ZT_OP_EQUAL) && ZtGetRecord(writer_, condition, row);
    if (found) ZtDeleteRecord(writer_, row);
    out << found;
    ZtCloseRecord(writer_, row);
    ZtCloseCondition(condition);
  }

  void image(bool save, std::istream& words, std::ostream& out) {
    std::string file;
    words >> file;
    out << (save ? ZtWriteDbFile(writer_, file.c_str()) : ZtReadDbFile(writer_, file.c_str()));
  }

  void show(ZtDbHandle db, std::ostream& out) {
    if (!ZtGetRecord(db, condition_, row_)) return;
    int type = 0;
    ZTINT8 id = 0;
    std::memcpy(&id, ZtGetField(db, row_, 0, &type), sizeof id);
    out << ' ' << ZtGetRecordId(db, row_) << ':' << id;
  }

  void add_key(int field, const std::string& text) {
    if (field == 1) {
      ZtAddConditionIndexItem(condition_, FIELD_STRING, static_cast<int>(text.size()) + 1, text.c_str());
    } else if (field == 2) {
      const int number = std::stoi(text);
      ZtAddConditionIndexItem(condition_, FIELD_INT, sizeof number, &number);
    } else if (field == 3) {
      const double number = std::strtod(text.c_str(), nullptr);
      ZtAddConditionIndexItem(condition_, FIELD_DOUBLE, sizeof number, &number);
    } else {
      const ZTINT8 number = std::stoll(text);
      ZtAddConditionIndexItem(condition_, FIELD_INT8, sizeof number, &number);
    }
  }

  void find(std::istream& words, std::ostream& out) {
    char handle = 0;
    int table = 0, index = 0, op = 0, steps = 0;
    words >> handle >> table >> index >> op >> steps;
    ZtDbHandle const db = handle == 'r' ? reader_ : writer_;
    ZtSetConditionIndex(condition_, index);
    std::string key;
    words >> key;
    add_key(indexes[index].first, key);
    if (words >> key) add_key(indexes[index].second, key);
    const bool found = ZtFindRecord(db, table, condition_, op);
    out << found;
    if (found) {
      show(db, out);
      bool stands = true;
      for (int step = 0; step < steps && stands; ++step) {
        stands = ZtNextRecord(db, condition_);
        if (stands) show(db, out);
      }
      // Where a walk that ran out stands depends on who has unlinked deleted records before.
      while (stands && ZtPrevRecord(db, condition_)) show(db, out);
    }
  }

  void go_to(std::istream& words, std::ostream& out) {
    char handle = 0;
    int table = 0, rowid = 0;
    words >> handle >> table >> rowid;
    ZtDbHandle const db = handle == 'r' ? reader_ : writer_;
    if (ZtGotoRecord(db, table, rowid, condition_)) show(db, out);
  }

  const char* directory_;
  // One of each for all questions: what they keep of one handle, table or index must not show with the next.
  ZtConditionHandle condition_ = nullptr;
  ZtRecordHandle row_ = nullptr;
  ZtDbHandle writer_ = nullptr;
  ZtDbHandle reader_ = nullptr;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  Peer peer(argv[1]);
  for (std::string line; std::getline(std::cin, line);) std::cout << peer.answer(line) << std::endl;
  return 0;
}
