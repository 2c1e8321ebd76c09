// Creating and opening the database in the order the library asks for, and moving rows in and out of records.
#include "schema.h"

#include <algorithm>
#include <cstring>

#include "text.h"

namespace demo {
namespace {

constexpr int kWithSessions = 1;

bool keep_error(int, const char*) {
  return true;
}  // ZtGetError tells it to whoever asks

// The width of a text slot: the longest text with its NUL.
int slot_bytes(const std::vector<Package>& packages, std::string Package::*text) {
  size_t longest = 40;  // room for the rows that the writers make up
  for (const Package& package : packages) longest = std::max(longest, (package.*text).size());
  return static_cast<int>(longest) + 1;
}

struct TextField {
  const char* name;
  std::string Package::*text;
};
constexpr TextField kTextFields[] = {{"name", &Package::name},
                                     {"version", &Package::version},
                                     {"section", &Package::section},
                                     {"priority", &Package::priority},
                                     {"summary", &Package::summary}};

// Memory is taken only when it is touched, so the estimate may be generous: the row, and for each of its four
// trees a leaf, an inner node, a list entry and a key; twice, for the rows that the writers add.
int64_t database_bytes(const std::vector<Package>& packages) {
  int64_t row_bytes = 64;
  for (const TextField& field : kTextFields) row_bytes += slot_bytes(packages, field.text);
  constexpr int64_t tree_bytes = int64_t{4} * (32 + 32 + 32 + 64);
  constexpr int64_t unit_bytes = int64_t{64} << 20;
  const int64_t rows = 2 * static_cast<int64_t>(packages.size()) + 100'000;
  return (rows * (row_bytes + tree_bytes) / unit_bytes + 1) * unit_bytes;
}

void define_table(ZtDbHandle database, const std::vector<Package>& packages) {
  ZtAddTable(database, "package");
  for (const TextField& field : kTextFields) {
    ZtAddField(database, kTable, field.name, FIELD_STRING, slot_bytes(packages, field.text), -1);
  }
  ZtAddField(database, kTable, "size_kib", FIELD_INT8, 8, -1);
  ZtAddField(database, kTable, "stock", FIELD_INT, 4, -1);
  ZtAddField(database, kTable, "revision", FIELD_UINT, 4, -1);
  ZtAddField(database, kTable, "seal", FIELD_INT8, 8, -1);

  ZtAddIndex(database, kTable, "name and version", ZT_INDEX_UNIQUE);
  ZtAddIndexField(database, kTable, kByNameAndVersion, kName);
  ZtAddIndexField(database, kTable, kByNameAndVersion, kVersion);
  ZtAddIndex(database, kTable, "section", ZT_INDEX_DUPLICATES);
  ZtAddIndexField(database, kTable, kBySection, kSection);
  ZtAddIndex(database, kTable, "size", ZT_INDEX_DUPLICATES);
  ZtAddIndexField(database, kTable, kBySize, kSizeKib);
}

int64_t seal_of(std::string_view name, std::string_view version, Account account) {
  uint64_t hash = 0xcbf29ce484222325;  // FNV-1a
  const auto mix = [&hash](uint64_t value) { hash = (hash ^ value) * 0x100000001b3; };
  for (const char c : name) mix(static_cast<unsigned char>(c));
  for (const char c : version) mix(static_cast<unsigned char>(c));
  mix(static_cast<uint32_t>(account.stock));
  mix(account.revision);
  return static_cast<int64_t>(hash);
}

// ZtSetField takes as many bytes as the slot is wide.
bool set_text(const Database& database, ZtRecordHandle record, int field, const std::string& text) {
  std::string slot = text;
  slot.resize(static_cast<size_t>(ZtGetColSize(database.get(), record, field)), '\0');
  return ZtSetField(database.get(), record, field, slot.data());
}

// Fields are unaligned in their record: copy them out.
template <typename Value>
Value number(const Database& database, ZtRecordHandle record, int field) {
  int type = 0;
  Value value;
  std::memcpy(&value, ZtGetField(database.get(), record, field, &type), sizeof value);
  return value;
}

std::string_view text(const Database& database, ZtRecordHandle record, int field) {
  int type = 0;
  return ZtGetField(database.get(), record, field, &type);
}

bool set_account(const Database& database, ZtRecordHandle record, Account account, int64_t seal) {
  return ZtSetField(database.get(), record, kStock, &account.stock) &&
         ZtSetField(database.get(), record, kRevision, &account.revision) &&
         ZtSetField(database.get(), record, kSeal, &seal);
}

}  // namespace

Database create_database(const std::string& directory, const std::vector<Package>& packages) {
  ZtDbHandle handle = nullptr;
  const bool created = ZtCreateDb(&handle, directory.c_str(), kDatabaseName, kVersionText,
                                  database_bytes(packages), kWithSessions);
  Database database(handle);
  if (!created) return nullptr;
  ZtSetErrorHandle(handle, keep_error);
  define_table(handle, packages);
  ZtSaveDbInfo(handle);
  ZtLoadDb(handle);
  return database;
}

Database open_database(const std::string& directory, int mode, int manager_port) {
  ZtDbHandle handle = nullptr;
  const bool opened = ZtOpenDb(&handle, directory.c_str(), kDatabaseName, kVersionText, mode, manager_port,
                               manager_port != 0, 0, 0, kWithSessions);
  Database database(handle);
  if (!opened) return nullptr;
  ZtSetErrorHandle(handle, keep_error);
  ZtLoadDbInfo(handle);
  ZtLoadDb(handle);
  ZtUnLockDb(handle);  // ZtOpenDb returned holding the file lock
  return database;
}

void remove_leftovers(const std::string& directory) {
  create_database(directory, {});
}

bool insert_row(const Database& database, const Package& package, Account account) {
  const Record record(database);
  if (!ZtNewRecord(database.get(), kTable, record)) return false;
  for (int field = kName; field <= kSummary; ++field) {
    if (!set_text(database, record, field, package.*kTextFields[field].text)) return false;
  }
  return ZtSetField(database.get(), record, kSizeKib, &package.size_kib) &&
         set_account(database, record, account, seal_of(package.name, package.version, account)) &&
         ZtPutRecord(database.get(), record);
}

bool change_account(const Database& database, ZtRecordHandle record, const Row& row, Account account) {
  return set_account(database, record, account, seal_of(row.name, row.version, account));
}

Row read_row(const Database& database, ZtRecordHandle record) {
  Row row;
  row.record_id = ZtGetRecordId(database.get(), record);
  row.name = text(database, record, kName);
  row.version = text(database, record, kVersion);
  row.section = text(database, record, kSection);
  row.priority = text(database, record, kPriority);
  row.summary = text(database, record, kSummary);
  row.size_kib = number<int64_t>(database, record, kSizeKib);
  row.account = {number<int32_t>(database, record, kStock), number<uint32_t>(database, record, kRevision)};
  row.sealed = number<int64_t>(database, record, kSeal) == seal_of(row.name, row.version, row.account);
  return row;
}

std::string last_error(const Database& database) {
  int code = 0;
  char message[ZT_ERRMSG_SIZE] = "";
  ZtGetError(database.get(), &code, message);
  return "error " + std::to_string(code) + ": " + utf8_from_gbk(message);
}

}  // namespace demo
