// Putting records that return to life back into the lists of their keys.
#ifndef CACHET_CPP_CACHE_RELINK_H
#define CACHET_CPP_CACHE_RELINK_H

#include <vector>

#include "caches.h"

namespace cachet {

struct RevivedRecord {
  int tableid;
  ZtRecord* record;
};
using Revived = std::vector<RevivedRecord>;

// A cursor may have unlinked a record while it was deleted. Every record given is afterwards in the current
// list of each of its keys, which stay in ascending order of record ids. Reports -1003 when there is no
// memory for an entry.
void put_back_into_indexes(ZtDbHandle database, const Revived& revived);

}  // namespace cachet

#endif
