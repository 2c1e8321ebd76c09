// Mailboxes: their names, none of which is ever used twice, and the removal of those whose manager died.
//
//   DIR//NAME.mailbox-PID-START-NUMBER-KEYID      (START: when this manager began, in nanoseconds)
//
// followed by what the channel appends for its four objects. A dead manager's boxes are found by these names, and their
// keys by KEYID, which also keeps them apart from the database's own objects (key id 1).
#ifndef CACHET_TOOLS_ZTMANAGER_MAILBOXES_H
#define CACHET_TOOLS_ZTMANAGER_MAILBOXES_H

#include <memory>
#include <string>

#include "memchanel.h"

namespace manager {

struct Mailbox {
  // Takes the objects out of the system under the feet of whoever uses the channel: a sleep there ends, and the memory
  // stays until it is detached.
  void remove_objects() const;

  std::string name;
  int keyid = 0;
  std::unique_ptr<Cztmemchanel> channel;
};

// One for each process; used by many threads.
class Mailboxes {
 public:
  // Throws std::length_error for a path that leaves no room for the names.
  explicit Mailboxes(std::string base_path);

  // A new one, with room for every frame; without a channel when it could not be made.
  Mailbox make() const;
  // Removes what managers of this database left that are no more. Their clients' waits end.
  void remove_those_of_dead() const;

 private:
  std::string base_path_;
  std::string stem_;  // of this process
};

}  // namespace manager

#endif
