#include "base/replace_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "base/file.h"

namespace cachet {

namespace {

constexpr mode_t permission_bits = 07777;
constexpr mode_t new_file_mode = 0600;

using Write = std::function<bool(int descriptor)>;

// A file of its own name beside `path`; removed at the end unless it was put in place.
class Temporary {
 public:
  explicit Temporary(const char* path) : name_(path) {
    name_.resize(name_.rfind('/') + 1);  // nothing is left of a path without a folder
    name_ += ".cachet-XXXXXX";
    file_ = Descriptor(mkostemp(name_.data(), O_CLOEXEC));
  }
  ~Temporary() {
    if (file_ && !in_place_) unlink(name_.c_str());
  }
  Temporary(const Temporary&) = delete;
  Temporary& operator=(const Temporary&) = delete;

  explicit operator bool() const { return static_cast<bool>(file_); }
  int descriptor() const { return file_.get(); }

  // The owner first: a change of owner clears bits of the mode.
  bool take_over(const struct stat& status) const {
    return fchown(descriptor(), status.st_uid, status.st_gid) == 0 &&
           fchmod(descriptor(), status.st_mode & permission_bits) == 0;
  }

  bool put_in_place(const char* path) {
    in_place_ = std::rename(name_.c_str(), path) == 0;
    return in_place_;
  }

 private:
  std::string name_;
  Descriptor file_;
  bool in_place_ = false;
};

// Some file systems have nothing to synchronise, and say so.
bool reach_disk(int descriptor) {
  return retry_interrupted([=] { return fsync(descriptor); }) == 0 || errno == EINVAL || errno == ENOSYS;
}

Written write_straight(const char* path, const Write& write) {
  Descriptor file = open_file(path, O_WRONLY | O_CREAT | O_TRUNC, new_file_mode);
  if (!file) return Written::not_opened;
  return write(file.get()) && file.close() ? Written::whole : Written::not_whole;
}

// Nothing when the file has to be written straight.
std::optional<Written> write_beside(const char* path, const struct stat* existing, const Write& write) {
  Temporary temporary(path);
  if (!temporary || (existing != nullptr && !temporary.take_over(*existing))) return std::nullopt;
  if (!write(temporary.descriptor()) || !reach_disk(temporary.descriptor())) return Written::not_whole;
  if (!temporary.put_in_place(path)) return std::nullopt;
  return Written::whole;
}

}  // namespace

Written replace_file(const char* path, const Write& write) {
  if (path == nullptr) return Written::not_opened;
  struct stat status {};
  const bool exists = lstat(path, &status) == 0;
  const bool may_be_replaced = exists ? S_ISREG(status.st_mode) : errno == ENOENT;
  if (!may_be_replaced) return write_straight(path, write);
  // A file that its mode protects is not replaced behind its back.
  if (exists && !open_file(path, O_WRONLY)) return Written::not_opened;
  const std::optional<Written> written = write_beside(path, exists ? &status : nullptr, write);
  return written.has_value() ? *written : write_straight(path, write);
}

}  // namespace cachet
