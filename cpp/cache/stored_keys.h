// The keys that lie in an index's tree, as bytes and compared with a searched one.
#ifndef CACHET_CPP_CACHE_STORED_KEYS_H
#define CACHET_CPP_CACHE_STORED_KEYS_H

#include "accelerate/descent.h"
#include "cache/key_fields.h"
#include "cache/search_key.h"

namespace cachet {

// False when a writer has overtaken this handle there.
template <bool checked>
bool read_stored_key(const Rb_base* base, Rb_node external, KeyBytes& bytes) {
  const std::int64_t offset = key_offset_of(external);
  if (checked && !is_data(base, offset, 1)) return false;
  const KeyFields<checked> fields(base, address_of(base, FlatOffset{offset}));
  if (!fields.readable()) return false;
  bool whole = true;
  for (int index = 0; whole && index < fields.count(); ++index) {
    const Value value = fields.value(index);
    if (value.data == nullptr) return false;
    whole = bytes.append(fields.type(index), value.data, value.length);
  }
  bytes.finish(whole);
  return true;
}

// The keys of an index's tree, compared with one searched key.
template <bool checked>
class StoredKeys {
 public:
  StoredKeys(Rb_base* base, const SearchKey& key) : base_(base), key_(&key) {}

  Comparison compare(Rb_node external) const {
    const KeyBytes& searched = key_->bytes();
    KeyBytes stored;
    if (searched.size() == 0 || !bytes_of(external, stored)) return {compare_fields(external), 0};
    const unsigned shared = searched.mismatch(stored);
    if (shared < searched.size() && shared < stored.size()) {
      return {searched[shared] < stored[shared] ? 1 : -1, shared};
    }
    const bool is_equal = shared == searched.size() && searched.is_whole();
    return {is_equal ? 0 : compare_fields(external), shared};
  }

  bool bytes_of(Rb_node external, KeyBytes& bytes) const {
    return read_stored_key<checked>(base_, external, bytes);
  }

 private:
  int compare_fields(Rb_node external) const {
    const std::int64_t offset = key_offset_of(external);
    if (checked && !is_data(base_, offset, 1)) return -1;
    return ZtComp(base_, key_->item(), address_of(base_, FlatOffset{offset}));
  }

  Rb_base* base_;
  const SearchKey* key_;
};

}  // namespace cachet

#endif
