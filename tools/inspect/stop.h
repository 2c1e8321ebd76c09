// Whether this process is asked to stop what it does. Signals ask, and long walks and whoever prints many rows look
// whether they have; a process that catches no signals is never asked.
#ifndef CACHET_TOOLS_INSPECT_STOP_H
#define CACHET_TOOLS_INSPECT_STOP_H

#include <stdexcept>

namespace cachet::inspect {

// Ends what was under way.
struct Stopped : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// For a signal's handler. An interrupt (SIGINT) can be forgotten, every other signal stays.
void ask_to_stop(int signal) noexcept;
bool stop_asked() noexcept;
// True when nothing else asks.
bool forget_interrupt() noexcept;

void throw_stopped();
inline void stop_if_asked() {
  if (stop_asked()) throw_stopped();
}

}  // namespace cachet::inspect

#endif
