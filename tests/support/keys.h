// Key: a caller-built search key whose values end at unreadable pages, to hand to the comparators directly.
#ifndef CACHET_TESTS_SUPPORT_KEYS_H
#define CACHET_TESTS_SUPPORT_KEYS_H

#include <sys/mman.h>

#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

#include "caches.h"

namespace cachet::test {

// A copy of some bytes that ends exactly at an unreadable page: one byte read too far ends the process.
class GuardedBytes {
 public:
  explicit GuardedBytes(std::string_view bytes) : GuardedBytes(bytes.data(), bytes.size()) {}
  GuardedBytes(const void* bytes, std::size_t size_bytes) : readable_((size_bytes + page - 1) / page * page) {
    pages_ = static_cast<char*>(
        mmap(nullptr, readable_ + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    mprotect(pages_ + readable_, page, PROT_NONE);
    data_ = pages_ + readable_ - size_bytes;
    std::memcpy(data_, bytes, size_bytes);
  }
  ~GuardedBytes() { munmap(pages_, readable_ + page); }
  GuardedBytes(const GuardedBytes&) = delete;
  GuardedBytes& operator=(const GuardedBytes&) = delete;

  char* data() const { return data_; }

 private:
  static constexpr std::size_t page = 4096;
  std::size_t readable_;
  char* pages_;
  char* data_;
};

class Key {
 public:
  Key() = default;
  template <class T>
  Key(int type, const T& value) {
    add(type, &value, sizeof value);
  }
  Key(int type, const char* text) { add(type, text, std::strlen(text) + 1); }

  Key& add(int type, const void* bytes, std::size_t size_bytes) {
    values_.push_back(std::make_unique<GuardedBytes>(bytes, size_bytes));
    ZtIndexField field = {};
    field.data = values_.back()->data();
    field.type = static_cast<signed char>(type);
    field.length = static_cast<short>(size_bytes);
    fields_.push_back(field);
    item_.index = fields_.data();
    item_.point = item_.count = static_cast<signed char>(fields_.size());
    return *this;
  }
  template <class T>
  Key& then(int type, const T& value) {
    return add(type, &value, sizeof value);
  }

  ZtIndexItem* item() { return &item_; }

 private:
  std::vector<std::unique_ptr<GuardedBytes>> values_;
  std::vector<ZtIndexField> fields_;
  ZtIndexItem item_ = {};
};

}  // namespace cachet::test

#endif
