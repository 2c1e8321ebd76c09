#include "zt/stop.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <ctime>

namespace zt {

namespace {

constexpr int stop_signals[] = {SIGINT, SIGTERM, SIGHUP};
bool outlives = false;

}  // namespace

void catch_stop_signals() {
  struct sigaction action {};
  action.sa_handler = cachet::inspect::ask_to_stop;  // without SA_RESTART: a wait ends
  // Who asks twice wants the process to end, whatever it waits for.
  action.sa_flags = outlives ? 0 : static_cast<int>(SA_RESETHAND);
  for (const int signal : stop_signals) sigaction(signal, &action, nullptr);
}

void release_stop_signals() {
  if (outlives) return;
  for (const int signal : stop_signals) std::signal(signal, SIG_DFL);
}

void outlive_stop_signals() {
  outlives = true;
  catch_stop_signals();
}

Wait wait_for(double seconds, bool keys) {
  // Signals come in only during the wait, so that none is missed just before it.
  sigset_t stops, before;
  sigemptyset(&stops);
  for (const int signal : stop_signals) sigaddset(&stops, signal);
  sigprocmask(SIG_BLOCK, &stops, &before);
  const auto whole = static_cast<std::time_t>(seconds);
  const timespec limit{whole, static_cast<long>((seconds - static_cast<double>(whole)) * 1e9)};
  pollfd input{STDIN_FILENO, POLLIN, 0};
  int ready = 0;
  if (!stop_asked()) ready = ppoll(&input, keys ? 1 : 0, &limit, &before);
  sigprocmask(SIG_SETMASK, &before, nullptr);
  if (stop_asked()) return Wait::stop;
  return ready > 0 ? Wait::key : Wait::over;
}

}  // namespace zt
