// Room in this process's addresses for all segments of a database side by side, at a huge page's boundary: one base
// then leads to every position, and the system can map huge pages. Whoever gets none attaches wherever it may.
//
// What must stay true:
//   - a segment replaces only what is this range's own, and ends inside its place, rounded up to pages;
//   - no byte of the range is free for others while the handle lives, so segments leave it all at once;
//   - a segment is mapped in one piece. A change of a part's protection or advice would split the mapping, and the
//     system counts each piece as an attachment.
// A forked child inherits the range with what is in it, and gives back its own.
#ifndef CACHET_CPP_RB_ADDRESS_RANGE_H
#define CACHET_CPP_RB_ADDRESS_RANGE_H

#include "rb.h"

namespace cachet {

// Takes room for `bytes`; an empty range when there is none.
AddressRange reserve_addresses(std::int64_t bytes) noexcept;

// Attaches a segment at its place in the range. Null when it does not fit or the system refuses: the caller may still
// attach it elsewhere.
char* attach_in_range(AddressRange& range, int index, int id, int flags) noexcept;

// Detaches what is in the range and gives its addresses back. False, with everything as it was, when the system
// refuses.
bool give_back(AddressRange& range) noexcept;

bool contains(const AddressRange& range, const char* address) noexcept;

}  // namespace cachet

#endif
