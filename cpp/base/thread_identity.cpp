#include "base/thread_identity.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>

namespace cachet {

namespace {

std::atomic<unsigned> forks{1};

void count_fork() {
  forks.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace

const ThreadIdentity& this_thread() {
  static const int registered = pthread_atfork(nullptr, nullptr, count_fork);
  static_cast<void>(registered);
  thread_local ThreadIdentity identity{};
  thread_local unsigned known_for = 0;
  const unsigned now = forks.load(std::memory_order_relaxed);
  if (known_for != now) {
    identity = {getpid(), static_cast<int>(syscall(SYS_gettid))};
    known_for = now;
  }
  return identity;
}

bool is_gone(unsigned long pid) {
  return kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH;
}

}  // namespace cachet
