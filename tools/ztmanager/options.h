// What the command line says.
#ifndef CACHET_TOOLS_ZTMANAGER_OPTIONS_H
#define CACHET_TOOLS_ZTMANAGER_OPTIONS_H

#include <chrono>
#include <string>

namespace manager {

struct Options {
  std::string directory;
  std::string name;
  std::string version;
  int port = 0;
  std::string folder;  // of the files that clients may name; none when empty
  int max_clients = 128;
  std::chrono::milliseconds login_time{5000};
  std::chrono::milliseconds clear_interval{1000};
  std::chrono::milliseconds shutdown_time{30000};
};

}  // namespace manager

#endif
