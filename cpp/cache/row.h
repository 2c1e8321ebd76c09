// Private rows in process memory.
#ifndef CACHET_CPP_CACHE_ROW_H
#define CACHET_CPP_CACHE_ROW_H

#include "caches.h"

namespace cachet {

// A zeroed row of the table; ends the process, naming `line`, when there is no memory.
ZtRecord* allocate_row(const ZtTable& table, int line);
// Frees the handle's private row and leaves the handle without one.
void release_row(ZtRecordRow* row);

}  // namespace cachet

#endif
