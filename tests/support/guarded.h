// GuardedBytes: a copy of some bytes that ends exactly at an unreadable page, so that one byte read too far
// ends the process, with or without a sanitizer.
#ifndef CACHET_TESTS_SUPPORT_GUARDED_H
#define CACHET_TESTS_SUPPORT_GUARDED_H

#include <sys/mman.h>

#include <cstddef>
#include <cstring>
#include <string_view>

namespace cachet::test {

class GuardedBytes {
 public:
  explicit GuardedBytes(std::string_view bytes) : GuardedBytes(bytes.data(), bytes.size()) {}
  GuardedBytes(const void* bytes, std::size_t size_bytes) {
    pages_ = static_cast<char*>(
        mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    mprotect(pages_ + page, page, PROT_NONE);
    data_ = pages_ + page - size_bytes;
    std::memcpy(data_, bytes, size_bytes);
  }
  ~GuardedBytes() { munmap(pages_, 2 * page); }
  GuardedBytes(const GuardedBytes&) = delete;
  GuardedBytes& operator=(const GuardedBytes&) = delete;

  char* data() const { return data_; }

 private:
  static constexpr std::size_t page = 4096;
  char* pages_;
  char* data_;
};

}  // namespace cachet::test

#endif
