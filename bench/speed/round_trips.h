// A message to another process and back, through every channel, with free cores and with busy ones.
#ifndef CACHET_BENCH_ROUND_TRIPS_H
#define CACHET_BENCH_ROUND_TRIPS_H

#include <string>

#include "results.h"

namespace bench {

// Operations roundtrip_64, roundtrip_1k, and both with "_busy" behind, when every core has a process that never
// rests. The mailbox is listed as cachet. `folder` is for its key files.
void measure_round_trips(const std::string& folder, Results& results);

}  // namespace bench

#endif
