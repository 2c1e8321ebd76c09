// The fields of a key, wherever the key lies: in process memory, or in the shared memory with offsets in place of
// addresses.
#ifndef CACHET_CPP_CACHE_KEY_FIELDS_H
#define CACHET_CPP_CACHE_KEY_FIELDS_H

#include "cache/value.h"
#include "caches.h"

namespace cachet {

// Offsets in a stored key are turned into addresses; on a handle that a writer may overtake only after their bounds
// were checked: `checked` is checks_links(base), asked once for many keys.
template <bool checked>
class KeyFields {
 public:
  [[gnu::always_inline]] KeyFields(const Rb_base* base, const void* key) : base_(base) {
    const char* const item = static_cast<const char*>(key);
    if (checked && runs_out(base, key, sizeof(ZtIndexItem))) return;
    stored_ = load_unaligned<unsigned char>(item + offsetof(ZtIndexItem, sharememory)) == 1;
    // What a writer is about to make a key has no addresses of this process in it.
    if (checked && !stored_ && is_shared(base, key)) return;
    count_ = load_unaligned<signed char>(item + offsetof(ZtIndexItem, point));
    fields_ = load_unaligned<char*>(item + offsetof(ZtIndexItem, index));
    if (stored_) fields_ = resolve(fields_, count_ * static_cast<std::int64_t>(sizeof(ZtIndexField)));
    readable_ = fields_ != nullptr || count_ <= 0;
  }

  int count() const { return count_; }
  bool readable() const { return readable_; }
  signed char type(int index) const {
    return load_unaligned<signed char>(field(index) + offsetof(ZtIndexField, type));
  }

  // No address: the value cannot be read.
  Value value(int index) const {
    const auto length = load_unaligned<unsigned short>(field(index) + offsetof(ZtIndexField, length));
    char* data = load_unaligned<char*>(field(index) + offsetof(ZtIndexField, data));
    if (stored_) data = resolve(data, length);
    return {data, length};
  }

 private:
  const char* field(int index) const {
    return fields_ + static_cast<std::size_t>(index) * sizeof(ZtIndexField);
  }

  char* resolve(const char* offset, std::int64_t length) const {
    const auto position = reinterpret_cast<std::int64_t>(offset);
    if (checked && !is_data(base_, position, length)) return nullptr;
    return address_of(base_, FlatOffset{position});
  }

  const Rb_base* base_;
  bool stored_ = false;
  bool readable_ = false;
  int count_ = 0;
  const char* fields_ = nullptr;
};

}  // namespace cachet

#endif
