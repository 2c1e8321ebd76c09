// A writer: changes rows in transactions, commits most of them, rolls the others back, and keeps a ledger of
// what it committed.
#ifndef CACHET_TOOLS_DEMO_WRITER_H
#define CACHET_TOOLS_DEMO_WRITER_H

#include <random>
#include <vector>

#include "board.h"
#include "model.h"

namespace demo {

class Writer {
 public:
  Writer(const Database& database, const Model& model, int number, Report& report, Ledger ledger);

  // One transaction of a kind chosen by lot.
  void write_once();

 private:
  enum class Outcome { kKept, kUndone };

  void transfer(Outcome outcome);
  void insert(Outcome outcome);
  void erase(Outcome outcome);
  void insert_duplicate();

  bool find(const Package& package, ZtRecordHandle record);
  bool find_and_change(int record_id, int32_t stock_change, Outcome outcome);
  void enter(int record_id, int32_t stock_change);
  void end(Transaction& transaction, Outcome outcome, Clock::time_point begin);
  void fail(const std::string& what);
  int below(int limit) { return std::uniform_int_distribution(0, limit - 1)(random_); }

  const Database& database_;
  const Model& model_;
  const int number_;
  Report& report_;
  Ledger ledger_;
  std::mt19937 random_;
  Condition condition_{kByNameAndVersion};
  std::vector<int> alive_;  // serials of own rows that were inserted and not deleted
  int next_serial_ = 0;
};

}  // namespace demo

#endif
