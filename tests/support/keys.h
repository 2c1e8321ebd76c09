// Key: a caller-built search key whose values end at unreadable pages, to hand to the comparators directly.
#ifndef CACHET_TESTS_SUPPORT_KEYS_H
#define CACHET_TESTS_SUPPORT_KEYS_H

#include <memory>
#include <vector>

#include "caches.h"
#include "support/guarded.h"

namespace cachet::test {

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
