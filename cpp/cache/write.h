// What the loader of records shares with the insert.
#ifndef CACHET_CPP_CACHE_WRITE_H
#define CACHET_CPP_CACHE_WRITE_H

#include "caches.h"

namespace cachet {

// False, reported with -1003, when a stored record of this size would leave less memory free than an insert
// needs at least.
bool require_room_for_record(ZtDbHandle database, int record_bytes);

}  // namespace cachet

#endif
