// Entering a record into the trees of its table: one place for every way a record is stored.
#ifndef CACHET_CPP_CACHE_LINK_H
#define CACHET_CPP_CACHE_LINK_H

#include "caches.h"

namespace cachet {

// Searches every index of the table for the row's key. The places stay right until the writer changes those
// trees: the unique check, the dry run and the linking all use them.
void find_places(ZtDbHandle database, ZtTable& table, ZtRecord* row);

// Whether a live record has the row's key in a unique index.
bool conflicts(ZtDbHandle database, const ZtTable& table);

// A dry run of every allocation of the insert on copies of the fronts, the stored record's `record_bytes`
// first.
inline constexpr int record_is_stored = 0;
bool fits(ZtDbHandle database, const ZtTable& table, int record_bytes);

// The record-id tree's entry for a stored record.
ZtListItem* store_list_item(Rb_base* base, const ZtRecord* record);

// Makes the entries and keys of the stored record and links it into the index trees, then into the record-id tree.
void enter_into_trees(ZtDbHandle database, int tableid, ZtRecord* record, ZtListItem* list_item);

// The same from one step on (an index, or behind the last one the record-id tree), for a record whose writer died.
void resume_entering(ZtDbHandle database, ZtTable& table, ZtRecord* record, int first_step);

}  // namespace cachet

#endif
