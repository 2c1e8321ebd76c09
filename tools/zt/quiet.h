// Keeps the library's lines off standard output: opening calls print their errors there, and keep them to be asked for.
#ifndef CACHET_TOOLS_ZT_QUIET_H
#define CACHET_TOOLS_ZT_QUIET_H

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

namespace zt {

class Quiet {
 public:
  Quiet() {
    std::fflush(stdout);
    kept_ = dup(STDOUT_FILENO);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDOUT_FILENO);
    close(nowhere);
  }
  ~Quiet() {
    std::fflush(stdout);
    dup2(kept_, STDOUT_FILENO);
    close(kept_);
  }
  Quiet(const Quiet&) = delete;
  Quiet& operator=(const Quiet&) = delete;

 private:
  int kept_;
};

}  // namespace zt

#endif
