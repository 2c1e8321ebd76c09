// What a child process does with the table of its parent.
#ifndef CACHET_BENCH_TASKS_H
#define CACHET_BENCH_TASKS_H

#include "child.h"

namespace bench {

// The first lookups of a fresh process, which the numbers of this task are of.
inline constexpr std::int64_t few_lookups = 2000;

// The names of tasks, and the lines of numbers that they report:
//   fresh    attaches and looks `count` ids up: ns to the first answer, ns per lookup of the first few_lookups, of all,
//            the sum
//   reader   ready; after a signal looks `count` ids up: ns per lookup, the sum
//   watcher  ready; after each signal, until the parent closes its end, looks `count` ids up: ns of the median and of
//            the 99.9th percentile, the sum
//   writer   ready; after a signal updates 100 rows a transaction until the next one
//   taker    ready; after a signal commits `count` transactions of one update each: ns in all
// Throws when anything fails.
void run_task(const Task& task);

}  // namespace bench

#endif
