// The one clock of all measurements.
#ifndef CACHET_BENCH_CLOCK_H
#define CACHET_BENCH_CLOCK_H

#include <chrono>

namespace bench {

class Stopwatch {
 public:
  double elapsed_ns() const {
    return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start_).count();
  }

 private:
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace bench

#endif
