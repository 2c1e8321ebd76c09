// Writing before-images back, and taking the marks of a transaction off: for a handle's own copies, and for those of a
// dead process. `copies(each)` calls `each(Copy)` for every copy; it may be run more than once, and so may both of these.
#ifndef CACHET_CPP_CACHE_ROLLBACK_H
#define CACHET_CPP_CACHE_ROLLBACK_H

#include "cache/copies.h"
#include "cache/relink.h"

namespace cachet {

// Everything but the mark, the counter last.
void restore_all_but_mark(const Copy& copy);

// Takes a record's mark off, or back to the image's, and then the table's.
void clear_mark(ZtDbHandle database, const Copy& copy, bool duty);

// Which restored records may be missing from their keys' lists: those that were deleted until now, or, when an earlier
// attempt may have restored some already, every live one.
enum class Suspects { deleted_ones, all };

// Readers take a restored counter for an untouched record's, so the epoch tells them: it is raised when every record is
// restored, and only then do the marks clear.
template <class Copies>
void roll_back(ZtDbHandle database, const Copies& copies, Suspects suspects) {
  Revived revived;
  copies([&](const Copy& copy) {
    const bool suspect = suspects == Suspects::all || is_deleted(copy.record);
    restore_all_but_mark(copy);
    if (suspect && !is_deleted(copy.record)) revived.push_back({copy.tableid, copy.record});
  });
  put_back_into_indexes(database, revived);
  database->lock.RaiseEpoch();
  copies([&](const Copy& copy) { clear_mark(database, copy, mark_of(copy.image).duty); });
}

// Repeatable as well: a commit that was cut off is finished by another.
template <class Copies>
void make_final(ZtDbHandle database, const Copies& copies) {
  copies([&](const Copy& copy) { clear_mark(database, copy, false); });
}

}  // namespace cachet

#endif
