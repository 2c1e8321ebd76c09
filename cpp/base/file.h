// Opening files. No descriptor survives exec, and an interrupted call is repeated.
//
// Key files and lock files, at which other processes meet, lie where others may write: none of them is
// reached through a symbolic link.
#ifndef CACHET_CPP_BASE_FILE_H
#define CACHET_CPP_BASE_FILE_H

#include <sys/types.h>

#include <cerrno>
#include <string>
#include <utility>

namespace cachet {

// Owns a file descriptor and closes it, leaving errno as it is. False when it owns none.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
  Descriptor(Descriptor&& other) noexcept : descriptor_(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept;
  ~Descriptor();

  explicit operator bool() const { return descriptor_ >= 0; }
  int get() const { return descriptor_; }
  // Closes it now. False when the system tells only here that something written was lost.
  bool close();
  // Gives the descriptor away; -1 when there is none.
  int release() { return std::exchange(descriptor_, -1); }

 private:
  int descriptor_ = -1;
};

template <class Call>
auto retry_interrupted(const Call& call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

// Opens a file that a caller named. False on failure, errno says why; a null path is one that cannot be
// opened.
Descriptor open_file(const char* path, int flags, mode_t mode = 0);

// Opens an existing file with these flags. False on failure, errno says why: ELOOP for a symbolic link.
Descriptor open_key_file(const char* path, int flags);

// Opens the file for reading and writing, making it if it is missing, emptying it if `truncate`. A file of
// the caller's own gets exactly `mode`, whatever the umask; somebody else's keeps the mode it has. False on
// failure, errno says why.
Descriptor create_key_file(const char* path, bool truncate, mode_t mode);

// The path behind the current directory, unless it is absolute already. The text alone: links and ".." stay.
// When there is no current directory any more, the path as it is.
std::string absolute_path(const char* path);

}  // namespace cachet

#endif
