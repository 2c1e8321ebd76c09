// The hash of a search key, for the keys that can be equal to one node's only: they have all fields of a unique index,
// in the index's types, and of every value that compares as equal the same bytes.
#ifndef CACHET_CPP_CACHE_KEY_HASH_H
#define CACHET_CPP_CACHE_KEY_HASH_H

#include <cstring>

#include "caches.h"

namespace cachet {

__extension__ typedef unsigned __int128 Product;

// A number that depends on every bit of the values that are added.
class KeyHash {
 public:
  void add(std::uint64_t value) noexcept {
    constexpr std::uint64_t factor = 0xD6E8FEB86659FD93;
    const Product product = Product{state_ ^ value} * factor;
    state_ = static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
  }
  void add(const char* bytes, std::size_t length) noexcept {
    for (; length >= sizeof(std::uint64_t); bytes += sizeof(std::uint64_t), length -= sizeof(std::uint64_t))
      add(load_unaligned<std::uint64_t>(bytes));
    std::uint64_t rest = length << 56;
    std::memcpy(&rest, bytes, length);
    add(rest);
  }
  std::uint32_t value() const noexcept { return static_cast<std::uint32_t>(state_ >> 32); }

 private:
  std::uint64_t state_ = 0x9E3779B97F4A7C15;
};

template <class T>
inline bool add_number(KeyHash& hash, const ZtIndexField& field) noexcept {
  if (static_cast<unsigned short>(field.length) < sizeof(T)) return false;
  hash.add(static_cast<std::uint64_t>(load_unaligned<T>(field.data)));
  return true;
}

inline bool add_text(KeyHash& hash, const ZtIndexField& field) noexcept {
  const void* const end = std::memchr(field.data, 0, static_cast<unsigned short>(field.length));
  if (end == nullptr) return false;
  hash.add(field.data, static_cast<std::size_t>(static_cast<const char*>(end) - field.data));
  return true;
}

// False for a value that may equal others: a double, a value of an unknown type, one that does not fill its type.
inline bool add_value(KeyHash& hash, const ZtIndexField& field) noexcept {
  switch (field.type) {
    case FIELD_INT8:
      return add_number<std::uint64_t>(hash, field);
    case FIELD_STRING:
      return add_text(hash, field);
    case FIELD_INT:
    case FIELD_UINT:
      return add_number<std::uint32_t>(hash, field);
    case FIELD_SHORT:
    case FIELD_USHORT:
      return add_number<std::uint16_t>(hash, field);
    case FIELD_CHAR:
    case FIELD_UCHAR:
      return add_number<std::uint8_t>(hash, field);
    default:
      return false;
  }
}

// False for a key that may equal several nodes'.
inline bool hash_exact_key(const ZtTable& table, std::size_t indexid, const ZtIndexItem& key,
                           KeyHash& hash) noexcept {
  const ZtIndexDescrible& index = table.indexdescrible[indexid];
  const std::vector<int>& fields = index.indexdescrible;
  if (index.indextype != ZT_INDEX_UNIQUE || static_cast<std::size_t>(key.point) != fields.size())
    return false;
  for (std::size_t at = 0; at < fields.size(); ++at) {
    const ZtIndexField& given = key.index[at];
    if (given.type != table.fielddescrible[static_cast<std::size_t>(fields[at])].type) return false;
    if (!add_value(hash, given)) return false;
  }
  return true;
}

}  // namespace cachet

#endif
