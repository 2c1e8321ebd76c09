// What zt bench does with its database.
#ifndef CACHET_TOOLS_ZT_BENCH_WORKLOAD_H
#define CACHET_TOOLS_ZT_BENCH_WORKLOAD_H

#include <span>

#include "zt/bench/measure.h"
#include "zt/bench/private_database.h"

namespace zt::bench {

struct Operation {
  const char* name;
  const char* handle;  // "read-write", "read-only"
  Measured (*run)(const PrivateDatabase& database, double seconds);
};

// In the order in which they run: the first one fills the database.
std::span<const Operation> operations();

}  // namespace zt::bench

#endif
