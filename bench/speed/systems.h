// The systems that this build can run, by name, in the order of the table.
#ifndef CACHET_BENCH_SYSTEMS_H
#define CACHET_BENCH_SYSTEMS_H

#include <memory>
#include <string>
#include <vector>

#include "system.h"

namespace bench {

// Those of the table; a peer whose package was missing at build time is not among them.
std::vector<std::string> available_systems();

// Throws for an unknown name.
std::unique_ptr<System> make_system(const std::string& name);

}  // namespace bench

#endif
