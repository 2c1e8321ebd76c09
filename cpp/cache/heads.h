// Where the tree heads lie: directly behind the catalog, in a fixed order, at places that follow from the
// catalog's size and the number of trees alone.
#ifndef CACHET_CPP_CACHE_HEADS_H
#define CACHET_CPP_CACHE_HEADS_H

#include "caches.h"

namespace cachet {

// Where the first head is looked for; the allocator's page rule may put it further up.
std::int64_t first_head_offset(const Rb_memory& header);

// The end of `count` heads that are looked for from `offset` on.
std::int64_t end_of_heads(std::int64_t offset, std::int64_t count);

// Gives every table and index a new empty tree at the old place: all records and nodes are abandoned, and so
// are the before-images that this handle keeps of them. Data blocks will lie below `data_front`.
void abandon_records(ZtDbHandle database, std::int64_t data_front);

// The part of it in shared memory, with readers kept out. Repeatable: what was cut off is finished by another.
void reset_in_place(ZtDbHandle database, std::int64_t data_front);

// Gives every index tree that has none a nonce. By a writer that keeps the others out.
void provide_nonces(ZtDbHandle database);

}  // namespace cachet

#endif
