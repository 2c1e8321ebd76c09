#include "base/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <system_error>

namespace cachet {

namespace {

constexpr int guarding_flags = O_NOFOLLOW | O_CLOEXEC;

bool is_own(int descriptor) {
  struct stat status;
  return fstat(descriptor, &status) == 0 && status.st_uid == geteuid();
}

// A file system may refuse modes altogether (EPERM); the file is usable all the same.
bool set_mode(int descriptor, mode_t mode) {
  if (!is_own(descriptor)) return true;
  return retry_interrupted([=] { return fchmod(descriptor, mode); }) == 0 || errno == EPERM;
}

}  // namespace

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  std::swap(descriptor_, other.descriptor_);
  return *this;
}

Descriptor::~Descriptor() {
  if (descriptor_ < 0) return;
  const int saved_errno = errno;
  ::close(descriptor_);
  errno = saved_errno;
}

// Not repeated when interrupted: the descriptor is gone either way.
bool Descriptor::close() {
  return ::close(release()) == 0 || errno == EINTR;
}

Descriptor open_file(const char* path, int flags, mode_t mode) {
  if (path == nullptr) {
    errno = EFAULT;
    return Descriptor();
  }
  return Descriptor(retry_interrupted([=] { return open(path, flags | O_CLOEXEC, mode); }));
}

Descriptor open_key_file(const char* path, int flags) {
  return Descriptor(retry_interrupted([=] { return open(path, flags | guarding_flags); }));
}

Descriptor create_key_file(const char* path, bool truncate, mode_t mode) {
  const int flags = O_CREAT | O_RDWR | (truncate ? O_TRUNC : 0) | guarding_flags;
  Descriptor file(retry_interrupted([=] { return open(path, flags, mode); }));
  if (file && !set_mode(file.get(), mode)) return Descriptor();
  return file;
}

std::string absolute_path(const char* path) {
  std::error_code error;
  const std::filesystem::path absolute = std::filesystem::absolute(path, error);
  return error ? std::string(path) : absolute.string();
}

}  // namespace cachet
