// Processes as /proc shows them: whether they live, what they are, and which of them have a segment attached.
#ifndef CACHET_TOOLS_INSPECT_PROCESSES_H
#define CACHET_TOOLS_INSPECT_PROCESSES_H

#include <sys/types.h>

#include <ctime>
#include <map>
#include <string>

namespace cachet::inspect {

enum class Life { alive, zombie, dead };

// By the rule of the library: dead is whose id nobody has. A zombie still counts as alive there.
Life life_of(int pid);

struct Process {
  int pid = 0;
  std::string user;  // its name, or its number
  std::string
      command;  // arguments, separated by blanks; of a kernel-made or foreign process the name in brackets
  std::time_t started = 0;  // 0 = unknown
};

// What is known of it; empty texts of a process that is gone.
Process process(int pid);
std::string user_name(uid_t uid);

// Who has a segment attached, how often each; and how many attachments belong to processes that cannot be seen from
// here: another user's, or those of another pid namespace.
struct Attached {
  std::map<int, int> times_by_pid;  // without this process
  long unseen = 0;
  // Processes that are seen, and have another number in their own pid namespace: what they enter in a session table
  // means nobody here.
  long renumbered = 0;
};

// Processes come and go meanwhile: looks again, a few times, while something seems to be unseen.
Attached attached_to(int segment_id);

}  // namespace cachet::inspect

#endif
