// What the benchmark is told on its command line.
#ifndef CACHET_BENCH_OPTIONS_H
#define CACHET_BENCH_OPTIONS_H

#include <string>
#include <vector>

#include "rows.h"

namespace bench {

struct Options {
  std::int64_t rows = 1000000;
  Order order = Order::random;
  int rounds = 5;
  std::vector<std::string> systems;  // empty: all that there are
  std::string json_file;             // empty: none
  std::string markdown_file;         // likewise
  std::string folder;                // empty: a new one in /dev/shm
  double load = 0;                   // of the machine before the run: processes that want a core
};

inline const char* name_of(Order order) {
  return order == Order::random ? "random" : "sorted";
}

// Throws std::invalid_argument.
Options parse(int argc, char** argv);

}  // namespace bench

#endif
