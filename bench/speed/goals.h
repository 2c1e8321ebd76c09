// How fast cachet is to be, as factors of what others take in the same run.
#ifndef CACHET_BENCH_GOALS_H
#define CACHET_BENCH_GOALS_H

#include <string>
#include <vector>

#include "results.h"
#include "rows.h"

namespace bench {

// A goal beside what was measured.
struct Verdict {
  std::string operation;
  std::string measured;  // "0.47 x lmdb"
  std::string goal;      // "<= 0.6"
  bool met;
};

// Those whose both sides were measured.
std::vector<Verdict> judge(const Results& results, Order order);

}  // namespace bench

#endif
