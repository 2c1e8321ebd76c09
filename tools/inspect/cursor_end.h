// Why a cursor of the library has no further row: its calls do not tell the end of a walk from a link that leads nowhere.
#ifndef CACHET_TOOLS_INSPECT_CURSOR_END_H
#define CACHET_TOOLS_INSPECT_CURSOR_END_H

#include "caches.h"

namespace cachet::inspect {

// Whether a walk that met a row before has come to its last key; keys are never removed, so that it does unless a link
// is broken or somebody resets the database meanwhile.
inline bool has_come_to_end(const ZtCondition& cursor, bool backward) {
  return cursor.point == (backward ? cursor.begin : cursor.end);
}

}  // namespace cachet::inspect

#endif
