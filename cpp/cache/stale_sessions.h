// Undoing what dead processes left: their transactions, locks and unfinished work.
#ifndef CACHET_CPP_CACHE_STALE_SESSIONS_H
#define CACHET_CPP_CACHE_STALE_SESSIONS_H

#include "caches.h"

namespace cachet {

// Finishes the commit that process `pid` died in. False when its store cannot be read.
bool finish_commit_of(ZtDbHandle database, unsigned long pid);

}  // namespace cachet

#endif
