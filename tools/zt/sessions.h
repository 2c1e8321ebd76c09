// The processes and sessions of a database, put together: what ps, locks and top show.
#ifndef CACHET_TOOLS_ZT_SESSIONS_H
#define CACHET_TOOLS_ZT_SESSIONS_H

#include <optional>
#include <string>
#include <vector>

#include "inspect/lock_state.h"
#include "inspect/processes.h"
#include "zt/context.h"

namespace zt {

// One session, or one process that is attached and neither holds nor waits.
struct Participant {
  cachet::inspect::Process process;
  std::optional<cachet::inspect::Session> session;
  int attachments = 0;
  cachet::inspect::Life life = cachet::inspect::Life::alive;
};

struct Participants {
  std::vector<Participant> list;  // sessions first, holders before waiters
  long unseen = 0;                // attachments of processes that cannot be seen from here
  long renumbered = 0;            // processes with another number in their own pid namespace
  std::optional<cachet::inspect::LockState> locks;  // none when the lock page cannot be read
};

// Looks at the lock page, the sessions and /proc; says what cannot be looked at.
Participants participants_of(const Context& context, const cachet::inspect::BasePath& path, int segment_id);

// "alive", "zombie", "dead"; "not attached" for a live process that does not have the database: an id that somebody
// else has come to use, or a process of another pid namespace.
std::string life_text(const Participant& participant, bool all_seen);
std::int64_t age_seconds(const cachet::inspect::Session& session);

}  // namespace zt

#endif
