// Readers wait while a table is marked as being changed, and writers while another one is inside. When whoever they
// wait for is dead, that has no end.
#ifndef CACHET_TOOLS_ZT_ENDLESS_WAIT_H
#define CACHET_TOOLS_ZT_ENDLESS_WAIT_H

#include "zt/database.h"

namespace zt {

// Throw Damaged, with what ends the wait, when it would have none; judge nobody that cannot be seen from here.
void refuse_endless_read(const Context& context, const Database& database, int table);
void refuse_endless_write(const Context& context, const Database& database);

}  // namespace zt

#endif
