// The demo's child processes: started by fork, watched, and ended by their process ids, whatever happens.
#ifndef CACHET_TOOLS_DEMO_CHILDREN_H
#define CACHET_TOOLS_DEMO_CHILDREN_H

#include <sys/types.h>

#include <array>
#include <functional>

#include "board.h"

namespace demo {

class Children {
 public:
  explicit Children(Board& board) : board_(board) {}
  ~Children() { end_all(); }
  Children(const Children&) = delete;
  Children& operator=(const Children&) = delete;

  // Runs `work` in a new process, which ends when it returns. The process obeys Board::stop alone; it is also
  // told to stop when its parent dies.
  void start(Role role, const std::function<void()>& work);

  pid_t pid(Role role) const { return pids_[role]; }

  // Collects the ended ones. A complaint goes to the report of each that ended without having finished its
  // work.
  void collect();

  bool any_running() const;

  // Asks all to stop, and kills those that have not ended after some seconds.
  void end_all();

 private:
  void collect(Role role, int wait_options);

  Board& board_;
  std::array<pid_t, kRoles> pids_{};  // as started
  std::array<bool, kRoles> running_{};
};

}  // namespace demo

#endif
