#include "zt/move/input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "zt/status.h"
#include "zt/stop.h"

namespace zt {
namespace {

constexpr std::size_t buffer_bytes = 256 << 10;

}  // namespace

Input::Input(const std::string& file)
    : name_(file == "-" ? tr("standard input") : file),
      file_(file == "-" ? STDIN_FILENO : open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY)),
      buffer_(buffer_bytes) {
  struct stat status {};
  if (file_ < 0 || fstat(file_, &status) != 0)
    throw Failure(tr("cannot open {}: {}", name_, std::strerror(errno)));
  const bool from_begin = file_ != STDIN_FILENO || lseek(file_, 0, SEEK_CUR) == 0;
  if (S_ISREG(status.st_mode) && from_begin) size_bytes_ = status.st_size;
}

Input::~Input() {
  if (file_ > STDIN_FILENO) close(file_);
}

bool Input::refill() {
  ssize_t came = -1;
  do {
    if (stop_asked()) throw Failure(tr("interrupted while reading {}", name_));
    came = read(file_, buffer_.data(), buffer_.size());
  } while (came < 0 && errno == EINTR);
  if (came < 0) throw Failure(tr("cannot read {}: {}", name_, std::strerror(errno)));
  taken_bytes_ += static_cast<std::int64_t>(filled_);
  filled_ = static_cast<std::size_t>(came);
  position_ = 0;
  return came > 0;
}

void Input::skip_byte_order_mark() {
  constexpr char mark[] = "\xef\xbb\xbf";
  constexpr std::size_t bytes = sizeof mark - 1;
  if (peek() == end || filled_ - position_ < bytes) return;
  if (std::memcmp(buffer_.data() + position_, mark, bytes) == 0) position_ += bytes;
}

double Input::share() const {
  if (size_bytes_ < 0) return -1;
  const auto taken = static_cast<double>(taken_bytes_) + static_cast<double>(position_);
  return size_bytes_ > 0 ? taken / static_cast<double>(size_bytes_) : 1;
}

void Input::rewind() {
  if (lseek(file_, 0, SEEK_SET) != 0)
    throw Failure(tr("cannot read {} again: {}", name_, std::strerror(errno)));
  position_ = filled_ = 0;
  taken_bytes_ = 0;
  place_ = {};
}

}  // namespace zt
