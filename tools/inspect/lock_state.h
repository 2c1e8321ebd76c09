// Who holds and who waits: copies of the lock page and of the session table, each taken in one short attachment.
#ifndef CACHET_TOOLS_INSPECT_LOCK_STATE_H
#define CACHET_TOOLS_INSPECT_LOCK_STATE_H

#include <ctime>
#include <vector>

#include "dbsessions.h"
#include "inspect/base_path.h"
#include "lock_page.h"

namespace cachet::inspect {

struct Session {
  SessionType type = WTREAD;
  int pid = 0;
  int tid = 0;
  int slot = 0;
  std::time_t since = 0;  // 0 when its text is no time
  bool moving = false;    // half-way in or out
};

struct LockState {
  LockPage page;
  std::vector<Session> sessions;  // by slot, holders before waiters, then by age
  bool left_alone = false;        // the last regular user left while this copy was taken
};

// Throws NotFound and Unreadable as an Attachment does, Damaged for a page or a table that is too small.
LockState read_lock_state(const BasePath& path);

bool holds(SessionType type);
// "writes", "reads", "waits to write", "waits to read".
const char* state_name(SessionType type);
const char* work_name(std::int32_t kind);

}  // namespace cachet::inspect

#endif
