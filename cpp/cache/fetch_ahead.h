// What a cursor reads at each key, asked for some keys ahead.
#ifndef CACHET_CPP_CACHE_FETCH_AHEAD_H
#define CACHET_CPP_CACHE_FETCH_AHEAD_H

#include "caches.h"

namespace cachet {

// The cursor has moved to a neighbouring leaf, `leftward` (to a larger key) or not.
void fetch_ahead(ZtDb* database, const ZtCondition* condition, Rb_node from, bool leftward);

// What one key leads to, in the order in which it is found: its item and the entry that an insert puts next to the
// leaf, then the record of its first entry. Each asks for its own and reads only what those before have asked for.
void fetch_item(const Rb_base* base, Rb_node leaf);
void fetch_first_record(const Rb_base* base, Rb_node leaf);

}  // namespace cachet

#endif
