// What the search for one key and the search for many share.
#ifndef CACHET_CPP_CACHE_FIND_H
#define CACHET_CPP_CACHE_FIND_H

#include "cache/cursor.h"

namespace cachet {

// Says why accepts_search is false.
[[gnu::cold]] bool report_search(ZtDbHandle database, int tableid, const ZtCondition* condition, int op);

// False, reported, for an operator, a table, an index or a key that no search can be made with.
inline bool accepts_search(ZtDbHandle database, int tableid, const ZtCondition* condition, int op) {
  const bool accepts = names_table(database, tableid, condition) && op >= ZT_OP_LESS && op <= ZT_OP_GREATER &&
                       walks_index(condition) && !condition->overfull;
  return accepts || report_search(database, tableid, condition, op);
}

// Notes in the condition what is searched for.
inline void begin_search(int tableid, ZtConditionHandle condition, int op) {
  condition->tableid = tableid;
  condition->indexitem.sharememory = 0;
  condition->op = op;
}

// Places the cursor by what the search has ended at; false when no key satisfies the operator.
bool place_cursor(const Rb_base* base, Rb_node head, ZtConditionHandle condition, Rb_node node, bool found);

}  // namespace cachet

#endif
