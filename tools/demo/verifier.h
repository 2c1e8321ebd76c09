// The last word: the whole database against the plain copy and the writers' ledgers, row by row, by every way
// in.
//
// Called when nobody writes any more.
#ifndef CACHET_TOOLS_DEMO_VERIFIER_H
#define CACHET_TOOLS_DEMO_VERIFIER_H

#include <span>

#include "board.h"
#include "model.h"

namespace demo {

struct Comparison {
  int64_t rows = 0;         // live rows
  int64_t made_up = 0;      // of these, rows of the writers
  int64_t changes = 0;      // committed changes of packages
  int64_t comparisons = 0;  // rows compared, all ways together
  std::string difference;   // the first one; empty when there is none
};

Comparison compare(const Database& database, const Model& model, std::span<const Ledger> ledgers);

// The first `count` packages whose names sort at or after `name`.
void show_search(const Database& database, const std::string& name, int count);

}  // namespace demo

#endif
