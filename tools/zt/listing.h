// Rows of a table on the output.
#ifndef CACHET_TOOLS_ZT_LISTING_H
#define CACHET_TOOLS_ZT_LISTING_H

#include <cstdint>
#include <limits>

#include "zt/cursor.h"

namespace zt {

struct Listing {
  bool with_id = false;  // the record id before the fields
  std::int64_t limit = std::numeric_limits<std::int64_t>::max();
};

// Prints the rows as the cursor meets them, and returns how many there were.
std::int64_t list_rows(const Context& context, const Database& database, const Table& table, Cursor& cursor,
                       const Listing& listing);

// NotFound for a choice that no row fits.
[[noreturn]] void throw_no_row(const Table& table, const RowChoice& choice);

}  // namespace zt

#endif
