// Moving bytes between memory and descriptors: whole reads and writes, and buffers for files that are read
// and written in small pieces.
#ifndef CACHET_CPP_BASE_TRANSFER_H
#define CACHET_CPP_BASE_TRANSFER_H

#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <string_view>

namespace cachet {

// Reads until `size` bytes are there or the file ends. Returns how many came; -1 on an error, errno says
// which.
ssize_t read_whole(int descriptor, void* buffer, std::size_t size);

// Writes all of it. False on an error, errno says which.
bool write_whole(int descriptor, const void* data, std::size_t size);

// Reads ahead. A failed read ends the file, and failed() tells.
class FileReader {
 public:
  explicit FileReader(int descriptor);

  static constexpr int end = -1;
  // The next byte (0 to 255), or `end`.
  int next() {
    if (position_ == filled_ && !refill()) return end;
    return static_cast<unsigned char>(buffer_[position_++]);
  }
  // Copies up to `size` bytes; fewer came only when the file ended.
  std::size_t read(void* to, std::size_t size);

  bool failed() const { return failed_; }

 private:
  bool refill();

  int descriptor_;
  bool failed_ = false;
  std::size_t position_ = 0;
  std::size_t filled_ = 0;
  std::unique_ptr<char[]> buffer_;
};

// Collects what is put and writes it in large pieces. After a failed write nothing more is written.
class FileWriter {
 public:
  explicit FileWriter(int descriptor);

  void put(std::string_view bytes);
  void put(const void* bytes, std::size_t size) { put({static_cast<const char*>(bytes), size}); }
  // Writes what is still held; whether everything that was ever put has been written. False: errno says why.
  bool finish();

 private:
  void flush();

  int descriptor_;
  int error_ = 0;
  std::size_t filled_ = 0;
  std::unique_ptr<char[]> buffer_;
};

}  // namespace cachet

#endif
