#include "base/transfer.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "base/file.h"

namespace cachet {

namespace {

constexpr std::size_t buffer_bytes = std::size_t{256} << 10;

// The system moves at most 2 GiB at once.
constexpr std::size_t most_bytes_at_once = 0x40000000;

}  // namespace

ssize_t read_whole(int descriptor, void* buffer, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    const std::size_t wanted = std::min(size - done, most_bytes_at_once);
    char* const to = static_cast<char*>(buffer) + done;
    const ssize_t came = retry_interrupted([=] { return read(descriptor, to, wanted); });
    if (came < 0) return -1;
    if (came == 0) break;
    done += static_cast<std::size_t>(came);
  }
  return static_cast<ssize_t>(done);
}

bool write_whole(int descriptor, const void* data, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    const std::size_t wanted = std::min(size - done, most_bytes_at_once);
    const char* const from = static_cast<const char*>(data) + done;
    const ssize_t went = retry_interrupted([=] { return write(descriptor, from, wanted); });
    if (went < 0) return false;
    done += static_cast<std::size_t>(went);
  }
  return true;
}

FileReader::FileReader(int descriptor)
    : descriptor_(descriptor), buffer_(std::make_unique_for_overwrite<char[]>(buffer_bytes)) {}

bool FileReader::refill() {
  const ssize_t came =
      failed_ ? 0 : retry_interrupted([this] { return ::read(descriptor_, buffer_.get(), buffer_bytes); });
  if (came < 0) failed_ = true;
  position_ = 0;
  filled_ = came > 0 ? static_cast<std::size_t>(came) : 0;
  return filled_ > 0;
}

std::size_t FileReader::read(void* to, std::size_t size) {
  std::size_t done = 0;
  while (done < size && (position_ < filled_ || refill())) {
    const std::size_t part = std::min(size - done, filled_ - position_);
    std::memcpy(static_cast<char*>(to) + done, buffer_.get() + position_, part);
    position_ += part;
    done += part;
  }
  return done;
}

FileWriter::FileWriter(int descriptor)
    : descriptor_(descriptor), buffer_(std::make_unique_for_overwrite<char[]>(buffer_bytes)) {}

void FileWriter::put(std::string_view bytes) {
  if (bytes.size() > buffer_bytes - filled_) flush();
  if (bytes.size() > buffer_bytes) {
    if (error_ == 0 && !write_whole(descriptor_, bytes.data(), bytes.size())) error_ = errno;
    return;
  }
  if (!bytes.empty()) std::memcpy(buffer_.get() + filled_, bytes.data(), bytes.size());
  filled_ += bytes.size();
}

void FileWriter::flush() {
  if (error_ == 0 && !write_whole(descriptor_, buffer_.get(), filled_)) error_ = errno;
  filled_ = 0;
}

bool FileWriter::finish() {
  flush();
  if (error_ != 0) errno = error_;
  return error_ == 0;
}

}  // namespace cachet
