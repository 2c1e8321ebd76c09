// What the search for one key and the search for many share.
#ifndef CACHET_CPP_CACHE_FIND_H
#define CACHET_CPP_CACHE_FIND_H

#include "caches.h"

namespace cachet {

// False, reported, for an operator, a table, an index or a key that no search can be made with.
bool accepts_search(ZtDbHandle database, int tableid, const ZtCondition* condition, int op);

// Notes in the condition what is searched for.
void begin_search(int tableid, ZtConditionHandle condition, int op);

// Places the cursor by what the tree search has found; false when no key satisfies the operator.
bool place_cursor(const Rb_base* base, Rb_node head, ZtConditionHandle condition, const IndexPlace& place);

}  // namespace cachet

#endif
