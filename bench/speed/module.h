// What a module with cachet in it exports. Modules are loaded with their symbols kept apart, so that the library and its
// plain build live in one process.
#ifndef CACHET_BENCH_MODULE_H
#define CACHET_BENCH_MODULE_H

#include "channel.h"
#include "system.h"

namespace bench {

enum class WarmUp { no, yes };

}  // namespace bench

// The caller owns the results.
extern "C" {
__attribute__((visibility("default"))) bench::System* bench_make_system(bench::WarmUp warm_up);
__attribute__((visibility("default"))) bench::Channel* bench_make_mailbox(const char* folder);
}

#endif
