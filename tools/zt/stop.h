// Commands that go on until they are stopped: SIGINT, SIGTERM and SIGHUP end a wait instead of the process, so that
// what was begun (a JSON array, a full screen, a transaction) is brought to its end. A second one of the same kind ends
// the process, unless that is to outlive its commands.
#ifndef CACHET_TOOLS_ZT_STOP_H
#define CACHET_TOOLS_ZT_STOP_H

#include "inspect/stop.h"

namespace zt {

using cachet::inspect::stop_asked;

void catch_stop_signals();
// They end the process again: for a wait that nothing else would end.
void release_stop_signals();
// For a shell: from now on they are always caught, and never end the process.
void outlive_stop_signals();

// Waits; ends early when asked to stop, or, with `keys`, when a key was pressed on standard input.
enum class Wait { over, key, stop };
Wait wait_for(double seconds, bool keys);

}  // namespace zt

#endif
