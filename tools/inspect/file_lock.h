// The file lock of a database, byte 1 of its lock file: who holds it and who waits, asked without taking it.
#ifndef CACHET_TOOLS_INSPECT_FILE_LOCK_H
#define CACHET_TOOLS_INSPECT_FILE_LOCK_H

#include <optional>
#include <vector>

#include "inspect/base_path.h"

namespace cachet::inspect {

struct FileLock {
  int pid = 0;
  bool exclusive = false;
  bool waits = false;
};

// As /proc/locks lists them; of processes that can be seen from here.
std::vector<FileLock> file_locks_of(const BasePath& path);

// Whoever keeps everybody from opening the database; none when nobody does, or when the file cannot be asked.
std::optional<int> exclusive_file_lock_holder(const BasePath& path);

// Takes the lock exclusively for as long as this lives, so that nobody makes or opens the database meanwhile.
class ExclusiveFileLock {
 public:
  // Does not wait, and makes no file.
  explicit ExclusiveFileLock(const BasePath& path);
  ~ExclusiveFileLock();
  ExclusiveFileLock(const ExclusiveFileLock&) = delete;
  ExclusiveFileLock& operator=(const ExclusiveFileLock&) = delete;

  // False when somebody else holds it.
  bool is_ours() const { return is_ours_; }

 private:
  int file_ = -1;
  bool is_ours_ = false;
};

}  // namespace cachet::inspect

#endif
