// The check of a whole database, live or orphaned: segments and header, catalog, every tree and list, and what dead
// processes left in the lock page, the session table and the marks.
#ifndef CACHET_TOOLS_INSPECT_DATABASE_CHECK_H
#define CACHET_TOOLS_INSPECT_DATABASE_CHECK_H

#include <optional>

#include "inspect/findings.h"
#include "inspect/lock_state.h"
#include "inspect/raw_database.h"
#include "inspect/schema.h"

namespace cachet::inspect {

// Segments, header and catalog.
void check_frame(const RawDatabase& database, const Schema& schema, Findings& findings);
// What nobody alive is responsible for: sessions, work, words and an odd epoch of the dead.
void check_locks(const LockState& state, Findings& findings);
// Marks on tables and records although nobody writes.
void check_marks(const Rb_base* view, const Schema& schema, const LockState& state, Findings& findings);

struct Verdict {
  Findings findings;
  int passes = 0;
  bool moving = false;      // somebody wrote during the last pass: what was found there only once is left out
  bool left_alone = false;  // the last regular user left meanwhile
};

// Attaches for as long as the check takes. While others are attached, what looks broken may be a change under way:
// only what several passes agree on counts. Throws as RawDatabase does.
Verdict verify(const BasePath& path);

}  // namespace cachet::inspect

#endif
