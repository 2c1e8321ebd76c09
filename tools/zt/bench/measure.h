// The clock of zt bench: an operation again and again for a while, and how long one of them took.
#ifndef CACHET_TOOLS_ZT_BENCH_MEASURE_H
#define CACHET_TOOLS_ZT_BENCH_MEASURE_H

#include <chrono>
#include <cstdint>

#include "zt/status.h"
#include "zt/stop.h"

namespace zt::bench {

struct Measured {
  std::int64_t count = 0;
  double seconds = 0;
  double nanoseconds_each() const { return count > 0 ? 1e9 * seconds / static_cast<double>(count) : 0; }
};

// Throws Failure as soon as the tool is asked to stop.
inline void check_stop() {
  if (stop_asked()) throw Failure(tr("interrupted"));
}

// Calls `operation()`, which says how many it has done (0 ends it), until the time is over.
template <class Operation>
Measured measure_cold(double seconds, const Operation& operation) {
  using Clock = std::chrono::steady_clock;
  constexpr std::int64_t between_looks = 256;
  const auto begin = Clock::now();
  const auto elapsed_s = [&] { return std::chrono::duration<double>(Clock::now() - begin).count(); };
  Measured measured;
  for (std::int64_t next_look = 0;;) {
    const std::int64_t done = operation();
    measured.count += done;
    if (done > 0 && measured.count < next_look) continue;
    check_stop();
    next_look = measured.count + between_looks;
    if (done == 0 || elapsed_s() >= seconds) break;
  }
  measured.seconds = elapsed_s();
  return measured;
}

// The same after a third of the time in which nothing is counted.
template <class Operation>
Measured measure(double seconds, const Operation& operation) {
  measure_cold(seconds / 3, operation);
  return measure_cold(seconds * 2 / 3, operation);
}

}  // namespace zt::bench

#endif
