// The handle's before-images, for transactions and for whatever ends a handle or abandons its records.
#ifndef CACHET_CPP_CACHE_TRANSACTION_H
#define CACHET_CPP_CACHE_TRANSACTION_H

#include "caches.h"

namespace cachet {

// Frees every copy and forgets it.
void forget_copies(ZtDbHandle database);

// Takes off the marks that writes outside a transaction left, since nobody will commit them any more. Not
// while another writer is inside, whose marks they may be by now.
void take_marks_off(ZtDbHandle database);

// A reset abandons all records: their images would be written over whatever comes to lie there. The tables
// that they mark are remembered, and unmarked by the next commit or rollback all the same.
void drop_copies_of_abandoned_records(ZtDbHandle database);

}  // namespace cachet

#endif
