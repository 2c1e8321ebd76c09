// How the tool ends: its exit statuses, and the errors that lead to them. What they say is made by tr().
#ifndef CACHET_TOOLS_ZT_STATUS_H
#define CACHET_TOOLS_ZT_STATUS_H

#include <stdexcept>

#include "zt/translation.h"

namespace zt {

enum class Status : int {
  ok = 0,
  failure = 1,    // the system or the library refused; the message says why
  usage = 2,      // the command line is wrong
  not_found = 3,  // no such database, table, record
  damaged = 4,    // the database, or what it needs of this host, is not whole
  refused = 5     // it is in use, or cannot be judged from here
};

struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};
struct Refused : std::runtime_error {
  using std::runtime_error::runtime_error;
};
struct Failure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

}  // namespace zt

#endif
