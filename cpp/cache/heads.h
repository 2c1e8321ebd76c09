// Emptying a database in place.
#ifndef CACHET_CPP_CACHE_HEADS_H
#define CACHET_CPP_CACHE_HEADS_H

#include "caches.h"

namespace cachet {

// Makes every table empty, with readers kept out meanwhile. Repeatable: a reset that was cut off is finished by another.
void reset_in_place(ZtDbHandle database);

}  // namespace cachet

#endif
