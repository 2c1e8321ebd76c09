// What the transactions do, and what they would show if something went wrong:
//
//   transfer   moves stock between two packages of a section: the section's sum never changes. Undone ones
//   write
//              negative stocks, which nobody may see.
//   insert     adds a made-up row. Undone ones carry a name that nobody may see.
//   erase      deletes a made-up row of this writer; undone ones must be back afterwards.
//   duplicate  inserts a package that is there already: the unique index must refuse it.
//
// The ledger is written after the commit, and only then.
#include "writer.h"

#include <thread>
#include <utility>

namespace demo {
namespace {

// How long a change that is to be undone stands there, for everybody to see who should not.
constexpr auto kSecondThoughts = std::chrono::microseconds(100);

}  // namespace

Writer::Writer(const Database& database, const Model& model, int number, Report& report, Ledger ledger)
    : database_(database),
      model_(model),
      number_(number),
      report_(report),
      ledger_(ledger),
      random_(static_cast<unsigned>(number)) {}

void Writer::write_once() {
  const int lot = below(100);
  if (lot < 60) return transfer(Outcome::kKept);
  if (lot < 70) return transfer(Outcome::kUndone);
  if (lot < 80) return insert(Outcome::kKept);
  if (lot < 85) return insert(Outcome::kUndone);
  if (lot < 92) return erase(Outcome::kKept);
  if (lot < 95) return erase(Outcome::kUndone);
  insert_duplicate();
}

void Writer::transfer(Outcome outcome) {
  int from = model_.choose(random_);
  const std::vector<int>& section = model_.section_of(from).record_ids;
  int to = section[static_cast<size_t>(below(static_cast<int>(section.size())))];
  if (below(2) == 0) std::swap(from, to);
  const int32_t amount = from == to ? 0 : 1 + below(5);

  const Clock::time_point begin = Clock::now();
  Transaction transaction(database_);
  if (!find_and_change(from, -amount, outcome)) return;
  if (from != to && !find_and_change(to, amount, outcome)) return;
  end(transaction, outcome, begin);
  if (outcome == Outcome::kUndone) return;
  enter(from, -amount);
  if (from != to) enter(to, amount);
}

void Writer::enter(int record_id, int32_t stock_change) {
  ledger_.stock_changes[record_id] += stock_change;
  ++ledger_.revisions[record_id];
}

// False when the package has too little stock; then nothing was changed, and the transaction ends without
// effect.
bool Writer::find_and_change(int record_id, int32_t stock_change, Outcome outcome) {
  const Record record(database_);
  if (!find(model_.package(record_id), record)) {
    fail("finding " + model_.package(record_id).name);
    return false;
  }
  const Row row = read_row(database_, record);
  if (const char* complaint = model_.complaint_about(row)) report_.complain(complaint);
  if (row.account.stock + stock_change < 0) return false;
  Account changed{row.account.stock + stock_change, row.account.revision + 1};
  if (outcome == Outcome::kUndone) changed.stock = -1;
  if (change_account(database_, record, row, changed)) return true;
  fail("changing " + model_.package(record_id).name);
  return false;
}

void Writer::insert(Outcome outcome) {
  if (next_serial_ == kMadeUpRowsMax) return;
  const int serial = next_serial_++;
  const bool kept = outcome == Outcome::kKept;
  const Package package = made_up_package(model_, kept ? kKeptPrefix : kUndonePrefix, number_, serial);

  const Clock::time_point begin = Clock::now();
  Transaction transaction(database_);
  if (!insert_row(database_, package, {})) return fail("inserting " + package.name);
  end(transaction, outcome, begin);
  if (!kept) return;
  ledger_.made_up_rows[serial] = true;
  alive_.push_back(serial);
}

void Writer::erase(Outcome outcome) {
  if (alive_.empty()) return;
  const size_t chosen = static_cast<size_t>(below(static_cast<int>(alive_.size())));
  const int serial = alive_[chosen];
  const Package package = made_up_package(model_, kKeptPrefix, number_, serial);

  const Clock::time_point begin = Clock::now();
  Transaction transaction(database_);
  const Record record(database_);
  if (!find(package, record)) return fail("finding " + package.name);
  ZtDeleteRecord(database_.get(), record);
  end(transaction, outcome, begin);
  if (outcome == Outcome::kUndone) return;
  ledger_.made_up_rows[serial] = false;
  alive_[chosen] = alive_.back();
  alive_.pop_back();
}

void Writer::insert_duplicate() {
  const Package& package = model_.package(below(model_.count()));
  const Clock::time_point begin = Clock::now();
  Transaction transaction(database_);
  const bool inserted = insert_row(database_, package, {});
  int code = ZT_OK;
  char message[ZT_ERRMSG_SIZE];
  ZtGetError(database_.get(), &code, message);
  if (inserted || code != ZT_ERR_DUPLICATE_KEY) fail("a second " + package.name + " was not refused");
  transaction.commit();
  report_.tasks[kRefused].add(Clock::now() - begin);
}

bool Writer::find(const Package& package, ZtRecordHandle record) {
  condition_.select(kByNameAndVersion);
  condition_.add(package.name);
  condition_.add(package.version);
  return ZtFindRecord(database_.get(), kTable, condition_, ZT_OP_EQUAL) &&
         ZtGetRecord(database_.get(), condition_, record);
}

void Writer::end(Transaction& transaction, Outcome outcome, Clock::time_point begin) {
  const bool kept = outcome == Outcome::kKept;
  if (!kept) std::this_thread::sleep_for(kSecondThoughts);
  kept ? transaction.commit() : transaction.roll_back();
  report_.tasks[kept ? kCommit : kRollback].add(Clock::now() - begin);
}

void Writer::fail(const std::string& what) {
  report_.complain(what + ": " + last_error(database_));
}

}  // namespace demo
