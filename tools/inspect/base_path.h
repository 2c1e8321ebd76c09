// Where a database's files are: its directory, its name, and the key files that are made from both.
#ifndef CACHET_TOOLS_INSPECT_BASE_PATH_H
#define CACHET_TOOLS_INSPECT_BASE_PATH_H

#include <string>

namespace cachet::inspect {

struct BasePath {
  std::string directory;
  std::string name;

  // Of text(), in bytes: a header holds no more.
  static constexpr std::size_t longest_text = 79;

  // From "DIR/NAME"; a name alone lies in the current directory.
  static BasePath parse(const std::string& text);

  // As the library composes it: "DIR//NAME", which is also the lock file.
  std::string text() const { return directory + "//" + name; }
  // As a user writes it.
  std::string shown() const { return directory == "/" ? "/" + name : directory + "/" + name; }

  std::string segment_file(int index) const;
  std::string lock_page_file() const { return text() + ".lk"; }
  std::string session_file() const { return text() + "_session_shmname"; }
  // `slot`: 0 or 1; `role`: 'r' for the readers' set, 'w' for the writers'.
  std::string semaphore_file(int slot, char role) const;
  // What the names of all rollback stores' key files begin with, directory left out.
  std::string store_prefix() const { return name + "_rcsetshm_"; }
};

}  // namespace cachet::inspect

#endif
