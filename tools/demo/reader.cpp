// The searches. Each is timed from its turn to its last checked row, so the waiting counts.
#include "reader.h"

#include <optional>

namespace demo {
namespace {

// The time of one search, and for a read-write handle its turn among the writers.
class Search {
 public:
  Search(const Database& database, int mode, Latencies& latencies) : latencies_(latencies) {
    if (mode == ZT_MODE_READ_WRITE) turn_.emplace(database);
  }
  ~Search() {
    turn_.reset();
    latencies_.add(Clock::now() - begin_);
  }
  Search(const Search&) = delete;
  Search& operator=(const Search&) = delete;

 private:
  Latencies& latencies_;
  const Clock::time_point begin_ = Clock::now();
  std::optional<Transaction> turn_;
};

}  // namespace

Reader::Reader(const Database& database, const Model& model, int mode, Report& report)
    : database_(database),
      model_(model),
      mode_(mode),
      report_(report),
      random_(static_cast<unsigned>(100 + mode)),
      record_(database) {}

void Reader::read_once() {
  const int lot = below(400);
  if (lot < 2) return list_section();
  if (lot < 10) return ten_largest();
  if (lot < 30) return look_up_nothing();
  look_up();
}

Row Reader::row_at_cursor() {
  if (!ZtGetRecord(database_.get(), condition_, record_)) {
    report_.complain("a row could not be read: " + last_error(database_));
    return {};
  }
  const Row row = read_row(database_, record_);
  if (const char* complaint = model_.complaint_about(row)) {
    report_.complain(std::string(complaint) + " (" + std::string(row.name) + ")");
  }
  ++report_.rows_checked;
  return row;
}

// The key has one field of the two that the index has: any version of the name matches.
void Reader::look_up() {
  const Package& wanted = model_.package(model_.choose(random_));
  condition_.select(kByNameAndVersion);
  condition_.add(wanted.name);
  const Search search(database_, mode_, report_.tasks[kLookUp]);
  if (!ZtFindRecord(database_.get(), kTable, condition_, ZT_OP_EQUAL)) {
    return report_.complain(wanted.name + " was not found");
  }
  if (row_at_cursor().name != wanted.name) report_.complain(wanted.name + ": another package was found");
}

void Reader::look_up_nothing() {
  const std::string absent = model_.package(below(model_.count())).name + "~";  // no package name has a tilde
  condition_.select(kByNameAndVersion);
  condition_.add(absent);
  const Search search(database_, mode_, report_.tasks[kLookUp]);
  if (ZtFindRecord(database_.get(), kTable, condition_, ZT_OP_EQUAL)) report_.complain(absent + " was found");
}

// All packages of a section in order of insertion, then what the writers made up. The writers only move stock
// within a section; its sum can be judged by who keeps them out meanwhile.
void Reader::list_section() {
  const Section& section =
      model_.sections()[static_cast<size_t>(below(static_cast<int>(model_.sections().size())))];
  condition_.select(kBySection);
  condition_.add(section.name);
  const Search search(database_, mode_, report_.tasks[kListSection]);
  size_t listed = 0;
  int64_t stock = 0;
  int last_id = -1;
  bool more = ZtFindRecord(database_.get(), kTable, condition_, ZT_OP_EQUAL);
  for (; more; more = ZtNextRecord(database_.get(), condition_)) {
    const Row row = row_at_cursor();
    const bool right_package =
        listed >= section.record_ids.size() || row.record_id == section.record_ids[listed];
    if (!right_package || row.record_id <= last_id || row.section != section.name) {
      return report_.complain("section " + section.name + " is not in order at " + std::string(row.name));
    }
    last_id = row.record_id;
    stock += row.account.stock;
    ++listed;
  }
  if (listed < section.record_ids.size()) report_.complain("section " + section.name + " is not complete");
  const int64_t expected = int64_t{kFirstStock} * static_cast<int64_t>(section.record_ids.size());
  if (mode_ == ZT_MODE_READ_WRITE && stock != expected) {
    report_.complain("the stock of section " + section.name + " does not add up");
  }
}

// From the end of the size index backwards.
void Reader::ten_largest() {
  condition_.select(kBySize);
  const Search search(database_, mode_, report_.tasks[kTenLargest]);
  bool more = ZtListRecord(database_.get(), kTable, condition_) && ZtLastRecord(database_.get(), condition_);
  for (const int expected : model_.largest()) {
    if (!more || row_at_cursor().record_id != expected) {
      return report_.complain("the largest packages are not in order");
    }
    more = ZtPrevRecord(database_.get(), condition_);
  }
}

}  // namespace demo
