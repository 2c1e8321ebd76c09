// Whether a database can be made here: everything that the library, or the kernel behind it, would stumble over, each
// with what mends it.
#ifndef CACHET_TOOLS_ZT_PREFLIGHT_H
#define CACHET_TOOLS_ZT_PREFLIGHT_H

#include <cstdint>

#include "inspect/base_path.h"
#include "inspect/schema.h"
#include "zt/diagnosis.h"

namespace zt {

struct Preflight {
  Diagnoses diagnoses;
  bool exists = false;  // there is such a database: nothing else was looked at
  bool passed() const;
};

// Changes nothing, and makes no file.
Preflight preflight(const Context& context, const cachet::inspect::BasePath& path, std::int64_t size_bytes,
                    const cachet::inspect::Schema& schema);

// Of that what this host has to give: segments, semaphores, memory.
void examine_limits(Diagnoses& diagnoses, std::int64_t size_bytes);

// How many segments a database of this size has.
std::int64_t segments_for(std::int64_t size_bytes);

}  // namespace zt

#endif
