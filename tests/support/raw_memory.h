// A database's segments seen through shmget and shmat alone, and its bytes at flat offsets. Knows nothing of
// the library: what it reads is what any other program on the host would read.
#ifndef CACHET_TESTS_SUPPORT_RAW_MEMORY_H
#define CACHET_TESTS_SUPPORT_RAW_MEMORY_H

#include <sys/ipc.h>
#include <sys/shm.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace cachet::test {

// The System V id behind a key file, -1 without one.
inline int segment_id(const std::string& key_file) {
  const key_t key = ftok(key_file.c_str(), 1);
  return key == -1 ? -1 : shmget(key, 0, 0);
}

inline shmid_ds segment_status(int id) {
  shmid_ds status{};
  shmctl(id, IPC_STAT, &status);
  return status;
}

// One segment, found through its key file, read and written bytewise.
class RawSegment {
 public:
  explicit RawSegment(const std::string& key_file)
      : id_(segment_id(key_file)), bytes_(static_cast<char*>(shmat(id_, nullptr, 0))) {}
  ~RawSegment() { shmdt(bytes_); }
  RawSegment(const RawSegment&) = delete;
  RawSegment& operator=(const RawSegment&) = delete;

  std::size_t size() const { return segment_status(id_).shm_segsz; }
  char* place(long offset) const { return bytes_ + offset; }
  template <class T>
  T at(long offset) const {
    T value;
    std::memcpy(&value, bytes_ + offset, sizeof value);
    return value;
  }
  template <class T>
  void put(long offset, T value) const {
    std::memcpy(bytes_ + offset, &value, sizeof value);
  }
  std::string bytes(long offset, std::size_t count) const { return {bytes_ + offset, count}; }

 private:
  int id_;
  char* bytes_;
};

// How many attachments segment 0 of the database with this base path has.
inline int attachments(const std::string& base) {
  return static_cast<int>(segment_status(segment_id(base + "00.data")).shm_nattch);
}

class RawMemory {
 public:
  // `base`: the base path of the key files. Attaches every segment that is there, read-only.
  explicit RawMemory(const std::string& base) {
    for (int i = 0; i < 100; ++i) {
      const int id = segment_id(base + (i < 10 ? "0" : "") + std::to_string(i) + ".data");
      if (id < 0) break;
      sizes.push_back(segment_status(id).shm_segsz);
      addresses_.push_back(static_cast<const char*>(shmat(id, nullptr, SHM_RDONLY)));
    }
  }
  ~RawMemory() {
    for (const char* address : addresses_) shmdt(address);
  }
  RawMemory(const RawMemory&) = delete;
  RawMemory& operator=(const RawMemory&) = delete;

  const char* address(std::int64_t offset) const {
    return addresses_.at(static_cast<std::size_t>(offset >> 30)) + (offset & 0x3FFFFFFF);
  }
  template <class T>
  T at(std::int64_t offset) const {
    T value;
    std::memcpy(&value, address(offset), sizeof value);
    return value;
  }
  std::int8_t i8(std::int64_t offset) const { return at<std::int8_t>(offset); }
  std::int16_t i16(std::int64_t offset) const { return at<std::int16_t>(offset); }
  std::int32_t i32(std::int64_t offset) const { return at<std::int32_t>(offset); }
  std::uint32_t u32(std::int64_t offset) const { return at<std::uint32_t>(offset); }
  std::int64_t i64(std::int64_t offset) const { return at<std::int64_t>(offset); }
  std::string text(std::int64_t offset) const { return address(offset); }
  std::string bytes(std::int64_t offset, std::size_t count) const { return {address(offset), count}; }

  std::vector<std::size_t> sizes;

 private:
  std::vector<const char*> addresses_;
};

}  // namespace cachet::test

#endif
