// The operations of the table as named scenarios. Each one checks what it has read against the sum that the rows give.
#ifndef CACHET_BENCH_OPERATIONS_H
#define CACHET_BENCH_OPERATIONS_H

#include <span>
#include <string>

#include "results.h"
#include "rows.h"
#include "system.h"

namespace bench {

// One system with one table, in one round.
struct Session {
  System& system;
  const std::string& name;
  const Rows& rows;
  Place place;
  std::uint64_t seed;
  Results& results;

  void report(const char* operation, double ns) const { results.add(name, operation, ns); }
  // `count` operations, as far as there are rows, and less of them on a system that waits for each.
  std::int64_t at_most(std::int64_t count) const;
};

struct Scenario {
  const char* name;
  bool (*possible)(const System& system);
  void (*run)(const Session& session);
};

// In the order in which they run.
std::span<const Scenario> loading();       // fills the table
std::span<const Scenario> reading();       // one process
std::span<const Scenario> writing();       // one process; see writing.cpp
std::span<const Scenario> in_processes();  // several; see processes.cpp
std::span<const Scenario> removing();      // one process; see writing.cpp

// Throws when `sum` is not `expected`.
void check_sum(double sum, double expected);
// Of the rows with these ids, as they were inserted.
double sum_of_prices(const Rows& rows, std::span<const std::int64_t> ids);

}  // namespace bench

#endif
