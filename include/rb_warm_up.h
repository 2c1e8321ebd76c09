// Making a database's memory resident before it is used.
#ifndef CACHET_RB_WARM_UP_H
#define CACHET_RB_WARM_UP_H

#include "rb.h"

namespace cachet {

// Populates every segment, its mapping in this process included, and puts huge pages in place of small ones as far as
// the mapping's alignment and the system allow. Changes no byte. What the system refuses or does not know stays as it
// was.
void make_resident(const Rb_base* base) noexcept;

}  // namespace cachet

#endif
