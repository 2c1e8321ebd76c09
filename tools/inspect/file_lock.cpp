#include "inspect/file_lock.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <sstream>

namespace cachet::inspect {

namespace {

constexpr int lock_byte = 1;

struct flock lock_of_byte(short type) {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = lock_byte;
  lock.l_len = 1;
  return lock;
}

int open_lock_file(const BasePath& path, int flags) {
  return open(path.text().c_str(), flags | O_CLOEXEC | O_NOCTTY | O_NOFOLLOW);
}

// "1: POSIX  ADVISORY  WRITE 1234 00:2f:5678 1 1", with "->" behind the number for one that waits.
std::optional<FileLock> lock_in(const std::string& line, const std::string& inode) {
  std::istringstream words(line);
  std::string number, kind, advisory, type, file, begin, end;
  FileLock lock;
  words >> number >> kind;
  lock.waits = kind == "->";
  if (lock.waits) words >> kind;
  words >> advisory >> type >> lock.pid >> file >> begin >> end;
  const bool ours = words && kind == "POSIX" && file.substr(file.rfind(':') + 1) == inode;
  if (!ours || begin != std::to_string(lock_byte) || end != begin) return std::nullopt;
  lock.exclusive = type == "WRITE";
  return lock;
}

}  // namespace

std::vector<FileLock> file_locks_of(const BasePath& path) {
  struct stat status;
  if (stat(path.text().c_str(), &status) != 0) return {};
  std::vector<FileLock> locks;
  std::ifstream table("/proc/locks");
  for (std::string line; std::getline(table, line);) {
    if (const auto lock = lock_in(line, std::to_string(status.st_ino))) locks.push_back(*lock);
  }
  return locks;
}

std::optional<int> exclusive_file_lock_holder(const BasePath& path) {
  const int file = open_lock_file(path, O_RDONLY);
  if (file < 0) return std::nullopt;
  struct flock question = lock_of_byte(F_RDLCK);
  const bool asked = fcntl(file, F_GETLK, &question) == 0;
  close(file);
  return asked && question.l_type == F_WRLCK ? std::optional(static_cast<int>(question.l_pid)) : std::nullopt;
}

ExclusiveFileLock::ExclusiveFileLock(const BasePath& path) : file_(open_lock_file(path, O_RDWR)) {
  if (file_ < 0) {
    is_ours_ = errno == ENOENT;  // without the file nobody has the database open
    return;
  }
  const struct flock lock = lock_of_byte(F_WRLCK);
  is_ours_ = fcntl(file_, F_SETLK, &lock) == 0;
}

ExclusiveFileLock::~ExclusiveFileLock() {
  if (file_ >= 0) close(file_);
}

}  // namespace cachet::inspect
