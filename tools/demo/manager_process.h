// A ztmanager of the demo's own: started from beside the demo's program, ready when the constructor returns, and ended
// in order by the destructor.
#ifndef CACHET_TOOLS_DEMO_MANAGER_PROCESS_H
#define CACHET_TOOLS_DEMO_MANAGER_PROCESS_H

#include <sys/types.h>

#include <string>

namespace demo {

class ManagerProcess {
 public:
  // Whether there is such a program.
  static bool is_built();

  // Serves the database in `directory`.
  explicit ManagerProcess(const std::string& directory);
  ~ManagerProcess() { end(); }
  ManagerProcess(const ManagerProcess&) = delete;
  ManagerProcess& operator=(const ManagerProcess&) = delete;

  bool is_ready() const { return ready_; }
  int port() const { return port_; }
  // Asks it to end, and waits for that. False when it complained, or had to be killed.
  bool end();

 private:
  int port_;
  pid_t pid_ = -1;
  bool ready_ = false;
};

}  // namespace demo

#endif
