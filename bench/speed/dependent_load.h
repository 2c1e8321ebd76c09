// How long one load takes whose address comes from the load before: the physical limit of every search in memory.
#ifndef CACHET_BENCH_DEPENDENT_LOAD_H
#define CACHET_BENCH_DEPENDENT_LOAD_H

#include "results.h"

namespace bench {

// System "machine": dependent_load, in pages of 4 KiB, and dependent_load_huge, in pages of 2 MiB where the system
// gives them. The memory is larger than the caches.
void measure_dependent_load(Results& results);

}  // namespace bench

#endif
