// The demo's one table: its fields and indexes, and how a row is written and read.
//
// The package's own fields never change. `stock` and `revision` do, together with `seal`, a checksum over
// name, version, stock and revision: a row that was read half-way through a change would show a wrong seal.
#ifndef CACHET_TOOLS_DEMO_SCHEMA_H
#define CACHET_TOOLS_DEMO_SCHEMA_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "handles.h"
#include "package_index.h"

namespace demo {

constexpr const char* kDatabaseName = "packages";
constexpr const char* kVersionText = "cachet-demo 1";

constexpr int kTable = 0;
enum Field { kName, kVersion, kSection, kPriority, kSummary, kSizeKib, kStock, kRevision, kSeal };
enum Index { kByNameAndVersion, kBySection, kBySize };
constexpr int kByRecordId = -1;  // the table's own list, in order of insertion

constexpr int32_t kFirstStock = 100;

// The changing part of a row.
struct Account {
  int32_t stock = 0;
  uint32_t revision = 0;
};

// A row as it lies in its record: the texts point into it.
struct Row {
  int record_id = 0;
  std::string_view name, version, section, priority, summary;
  int64_t size_kib = 0;
  Account account;
  bool sealed = false;  // the seal agrees with the other fields
};

// Creates directory//packages with room for `packages` and what the writers add, and its table. The handle
// still holds the exclusive file lock. Null when it cannot be made.
Database create_database(const std::string& directory, const std::vector<Package>& packages);

// Attaches the database, isolated when a manager's port is given. Null when it cannot be opened.
Database open_database(const std::string& directory, int mode, int manager_port = 0);

// Creates the database anew over whatever a killed process left, and removes it.
void remove_leftovers(const std::string& directory);

// Inserts a row. False when the library refuses.
bool insert_row(const Database& database, const Package& package, Account account);

// Changes a stored row in place.
bool change_account(const Database& database, ZtRecordHandle record, const Row& row, Account account);

Row read_row(const Database& database, ZtRecordHandle record);

// The handle's last error as one line of UTF-8.
std::string last_error(const Database& database);

}  // namespace demo

#endif
