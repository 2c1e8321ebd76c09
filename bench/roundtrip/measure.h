// How long a round trip takes, with free processors and with busy ones.
#ifndef CACHET_BENCH_ROUNDTRIP_MEASURE_H
#define CACHET_BENCH_ROUNDTRIP_MEASURE_H

#include <sys/types.h>

#include <vector>

#include "ways.h"

namespace roundtrip {

// While it lives, every processor has one process that does nothing but count.
class BusyProcessors {
 public:
  BusyProcessors();
  ~BusyProcessors();
  BusyProcessors(const BusyProcessors&) = delete;
  BusyProcessors& operator=(const BusyProcessors&) = delete;

 private:
  std::vector<pid_t> spinners_;
};

// The mean of one series, in nanoseconds: forks a child that answers, asks for about `milliseconds`, reaps it. Exits
// when a message gets lost or changed.
double mean_round_trip_ns(Kind kind, int body_bytes, int milliseconds);

// Series of all ways in turn; the median of each, in the order of `kinds`.
std::vector<double> median_round_trips_ns(int body_bytes, int series, int milliseconds);

}  // namespace roundtrip

#endif
