// A child ignores Ctrl-C, which a terminal sends to the whole group: the parent decides when and how all
// stop.
#include "children.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

namespace demo {
namespace {

Board* board_of_this_child = nullptr;

void stop_this_child(int) {
  board_of_this_child->stop = true;
}

void prepare_child(Board& board, pid_t parent) {
  board_of_this_child = &board;
  signal(SIGINT, SIG_IGN);
  signal(SIGHUP, SIG_IGN);
  signal(SIGTERM, stop_this_child);
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (getppid() != parent) board.stop = true;
}

}  // namespace

void Children::start(Role role, const std::function<void()>& work) {
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child == 0) {
    prepare_child(board_, parent);
    work();
    std::fflush(stdout);  // what the library printed
    _exit(EXIT_SUCCESS);
  }
  if (child < 0) {
    board_.reports[role].complain("the process could not be started");
    return;
  }
  pids_[role] = child;
  running_[role] = true;
}

void Children::collect() {
  for (const Role role : kAllRoles) collect(role, WNOHANG);
}

void Children::collect(Role role, int wait_options) {
  int status = 0;
  if (!running_[role] || waitpid(pids_[role], &status, wait_options) != pids_[role]) return;
  running_[role] = false;
  if (board_.reports[role].finished) return;
  board_.reports[role].complain(WIFSIGNALED(status)
                                    ? "killed by signal " + std::to_string(WTERMSIG(status))
                                    : "ended early, status " + std::to_string(WEXITSTATUS(status)));
}

bool Children::any_running() const {
  return std::ranges::find(running_, true) != running_.end();
}

void Children::end_all() {
  board_.stop = true;
  const Clock::time_point deadline = Clock::now() + std::chrono::seconds(3);
  while (any_running() && Clock::now() < deadline) {
    collect();
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  for (const Role role : kAllRoles) {
    if (!running_[role]) continue;
    kill(pids_[role], SIGKILL);
    collect(role, 0);
  }
}

}  // namespace demo
