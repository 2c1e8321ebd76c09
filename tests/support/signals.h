// A timer's signals, which interrupt every wait of this process.
#ifndef CACHET_TESTS_SUPPORT_SIGNALS_H
#define CACHET_TESTS_SUPPORT_SIGNALS_H

#include <sys/time.h>

#include <csignal>

namespace cachet::test {

// 0 ends them.
inline void interrupt_every(int microseconds) {
  struct sigaction action = {};
  action.sa_handler = [](int) {};  // without SA_RESTART
  sigaction(SIGALRM, &action, nullptr);
  const itimerval interval{{0, microseconds}, {0, microseconds}};
  setitimer(ITIMER_REAL, &interval, nullptr);
}

}  // namespace cachet::test

#endif
