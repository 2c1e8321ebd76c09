// How much memory rows take, so that an import that cannot end well does not begin: what is taken back stays in memory as
// deleted records.
#ifndef CACHET_TOOLS_ZT_MOVE_ROOM_H
#define CACHET_TOOLS_ZT_MOVE_ROOM_H

#include <cachet.h>

#include "inspect/schema.h"

namespace zt {

// Throws Failure when so many new rows cannot fit, whatever is in them.
void refuse_without_room(ZtDbHandle database, const cachet::inspect::Table& table, std::int64_t rows);

}  // namespace zt

#endif
