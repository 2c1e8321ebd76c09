// Walks the table by record id, comparing contents, and then every index, comparing order and number of rows.
#include "verifier.h"

#include <tuple>
#include <unordered_set>

#include "text.h"

namespace demo {
namespace {

class Verifier {
 public:
  Verifier(const Database& database, const Model& model, std::span<const Ledger> ledgers)
      : database_(database), model_(model), ledgers_(ledgers), record_(database) {}

  Comparison run() {
    expect_made_up_rows();
    compare_contents();
    compare_order(kByNameAndVersion, "name and version", [](const Row& row) {
      return Key{row.name, row.version, 0};
    });
    compare_order(kBySection, "section", [](const Row& row) { return Key{row.section, "", row.record_id}; });
    compare_order(kBySize, "size", [](const Row& row) { return Key{"", "", row.size_kib}; });
    return result_;
  }

 private:
  using Key = std::tuple<std::string, std::string, int64_t>;

  void expect_made_up_rows() {
    int writer = 0;
    for (const Ledger& ledger : ledgers_) {
      ++writer;
      for (int serial = 0; serial < kMadeUpRowsMax; ++serial) {
        if (ledger.made_up_rows[serial]) {
          expected_made_up_.insert(made_up_package(model_, kKeptPrefix, writer, serial).name);
        }
      }
    }
  }

  // Calls take(row) for every row of the index in order, until there is a difference.
  template <typename Take>
  void walk(int index, Take take) {
    const Condition condition(index);
    bool more = ZtListRecord(database_.get(), kTable, condition);
    for (; more && result_.difference.empty(); more = ZtNextRecord(database_.get(), condition)) {
      if (!ZtGetRecord(database_.get(), condition, record_)) return differ("a row cannot be read");
      take(read_row(database_, record_));
      ++result_.comparisons;
    }
  }

  void compare_contents() {
    int next_id = 0;
    walk(kByRecordId, [&](const Row& row) {
      ++result_.rows;
      if (const char* complaint = model_.complaint_about(row)) return differ(complaint);
      if (row.record_id >= model_.count()) return compare_made_up_row(row);
      if (row.record_id != next_id++) return differ("a package is missing before " + std::string(row.name));
      compare_account(row);
    });
    if (next_id != model_.count()) differ("packages are missing at the end");
    if (!expected_made_up_.empty()) differ(*expected_made_up_.begin() + " was committed and is missing");
  }

  void compare_account(const Row& row) {
    Account expected{kFirstStock, 0};
    for (const Ledger& ledger : ledgers_) {
      expected.stock += ledger.stock_changes[row.record_id];
      expected.revision += ledger.revisions[row.record_id];
    }
    result_.changes += expected.revision;
    if (row.account.stock != expected.stock || row.account.revision != expected.revision) {
      differ("stock or revision of " + std::string(row.name) + " is not what was committed");
    }
  }

  void compare_made_up_row(const Row& row) {
    ++result_.made_up;
    if (expected_made_up_.erase(std::string(row.name)) == 0) {
      differ(std::string(row.name) + " was not committed, or deleted");
    }
  }

  template <typename KeyOf>
  void compare_order(int index, const std::string& name, KeyOf key_of) {
    int64_t rows = 0;
    Key last;
    walk(index, [&](const Row& row) {
      const Key key = key_of(row);
      if (rows++ > 0 && key < last)
        differ("the index on " + name + " is not in order at " + std::string(row.name));
      last = key;
    });
    if (rows != result_.rows) differ("the index on " + name + " has another number of rows than the table");
  }

  void differ(const std::string& what) {
    if (result_.difference.empty()) result_.difference = what;
  }

  const Database& database_;
  const Model& model_;
  const std::span<const Ledger> ledgers_;
  Record record_;
  std::unordered_set<std::string> expected_made_up_;
  Comparison result_;
};

}  // namespace

Comparison compare(const Database& database, const Model& model, std::span<const Ledger> ledgers) {
  return Verifier(database, model, ledgers).run();
}

void show_search(const Database& database, const std::string& name, int count) {
  Condition condition(kByNameAndVersion);
  condition.add(name);
  const Record record(database);
  std::vector<std::vector<std::string>> rows;
  bool more = ZtFindRecord(database.get(), kTable, condition, ZT_OP_GREATER_EQUAL);
  for (; more && count > 0; more = ZtNextRecord(database.get(), condition), --count) {
    if (!ZtGetRecord(database.get(), condition, record)) return;
    const Row row = read_row(database, record);
    rows.push_back({std::string(row.name), std::string(row.version), std::string(row.section),
                    with_thousands(row.size_kib), std::to_string(row.account.stock),
                    std::string(row.summary)});
  }
  print_table(
      {{"name", 20}, {"version", 14}, {"section", 12}, {"KiB", 7, true}, {"stock", 5, true}, {"summary", 36}},
      rows);
}

}  // namespace demo
