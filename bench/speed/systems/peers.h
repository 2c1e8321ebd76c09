// One function per peer. Which of them are built depends on the packages found; see systems.cpp.
#ifndef CACHET_BENCH_SYSTEMS_PEERS_H
#define CACHET_BENCH_SYSTEMS_PEERS_H

#include <memory>

#include "../system.h"

namespace bench {

std::unique_ptr<System> make_lmdb();
std::unique_ptr<System> make_sqlite_memory();
std::unique_ptr<System> make_sqlite_wal();
std::unique_ptr<System> make_bdb();
std::unique_ptr<System> make_boost_interprocess();
std::unique_ptr<System> make_redis();
std::unique_ptr<System> make_absl_btree();

}  // namespace bench

#endif
