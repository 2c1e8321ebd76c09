// Control-C and its like end the benchmark between two operations, so that everything is cleaned up.
#ifndef CACHET_BENCH_INTERRUPTION_H
#define CACHET_BENCH_INTERRUPTION_H

#include <signal.h>

#include <stdexcept>

namespace bench {

inline volatile sig_atomic_t interrupted = 0;

inline void catch_interruptions() {
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) signal(number, [](int) { interrupted = 1; });
}

inline void check_interruption() {
  if (interrupted != 0) throw std::runtime_error("interrupted");
}

}  // namespace bench

#endif
