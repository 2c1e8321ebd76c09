// A reader: searches in the three ways below and checks every answer against the plain copy.
//
// A read-only handle validates by itself and reads at any time. A read-write handle reads the shared memory
// as it is, so this reader takes its turn among the writers: each search is a transaction that changes
// nothing.
#ifndef CACHET_TOOLS_DEMO_READER_H
#define CACHET_TOOLS_DEMO_READER_H

#include <random>

#include "board.h"
#include "model.h"

namespace demo {

class Reader {
 public:
  Reader(const Database& database, const Model& model, int mode, Report& report);

  // One search of a kind chosen by lot.
  void read_once();

 private:
  void look_up();
  void look_up_nothing();
  void list_section();
  void ten_largest();

  // The row where the cursor stands, already checked.
  Row row_at_cursor();
  int below(int limit) { return std::uniform_int_distribution(0, limit - 1)(random_); }

  const Database& database_;
  const Model& model_;
  const int mode_;
  Report& report_;
  std::mt19937 random_;
  Condition condition_{kByNameAndVersion};
  Record record_;
};

}  // namespace demo

#endif
