// The shared store of a handle's before-images, and what dead processes left of theirs.
#ifndef CACHET_CPP_CACHE_SHARED_STORE_H
#define CACHET_CPP_CACHE_SHARED_STORE_H

#include "caches.h"

namespace cachet {

// Makes this process's store for the handle. False when it cannot be made: a process has one per database.
bool provide_shared_store(ZtDbHandle database);

// Removes the stores of processes that are gone, after rolling back what they still hold. Only while nobody else is
// attached to the database.
void remove_stores_of_dead(ZtDbHandle database);

}  // namespace cachet

#endif
