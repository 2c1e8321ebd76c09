// The one way into an index's tree: the search for a key's place.
#ifndef CACHET_CPP_CACHE_INDEX_SEARCH_H
#define CACHET_CPP_CACHE_INDEX_SEARCH_H

#include <array>

#include "accelerate/lockstep.h"
#include "cache/search_key.h"

namespace cachet {

// The largest key that is not above the searched one (`found`: it is equal), or the head. Reads like
// rb_find_gkey_n with ZtComp, whose decisions it takes.
IndexPlace find_in_index(Rb_base* base, const ZtTable& table, std::size_t indexid, ZtIndexItem* item);

// The same for a key that is about to enter the tree: `separator` is set.
IndexPlace find_place_in_index(Rb_base* base, const ZtTable& table, std::size_t indexid,
                               const SearchKey& key);

// find_in_index, or a hint, for the keys of up to lockstep_width conditions, at the same time. Adds to `learnt` what is
// to be kept when the read has been validated.
void find_in_indexes(ZtDb* database, const ZtTable& table, const ZtConditionHandle* conditions,
                     std::size_t count, std::array<IndexPlace, lockstep_width>& places,
                     std::vector<LearntHint>& learnt);

// find_place_in_index of a row's keys in all indexes of its table, at the same time.
void find_places_in_indexes(ZtDb* database, const ZtTable& table, ZtRecord* row,
                            std::vector<IndexPlace>& places);

// The same for the record-id tree of a table: like rb_find_gkey_n with ZtComp2.
IndexPlace find_record_id(ZtDb* database, const ZtTable& table, ZTINT8 recordid);

// For the node that is made when this record id enters in front of all others.
Separator separator_of(ZTINT8 recordid);

// The bytes of what lies in the trees. False when there is no key at the node; checks every link.
KeyBytes bytes_of_id(ZTINT8 recordid);
bool bytes_of_stored_key(const Rb_base* base, Rb_node external, KeyBytes& bytes);

}  // namespace cachet

#endif
