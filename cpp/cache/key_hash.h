// The hash of a search key, for the keys that can be equal to one node's only: they have all fields of a unique index,
// in the index's types, and of every value that compares as equal the same bytes.
//
// Keys of conditions alone: their values have room for a word behind their end.
#ifndef CACHET_CPP_CACHE_KEY_HASH_H
#define CACHET_CPP_CACHE_KEY_HASH_H

#include <bit>

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
  std::uint32_t value() const noexcept { return static_cast<std::uint32_t>(state_ >> 32); }

 private:
  std::uint64_t state_ = 0x9E3779B97F4A7C15;
};

// Adds a text, word by word, and gives its length; SIZE_MAX when it does not end within its slot.
[[gnu::always_inline]] inline std::size_t add_text(KeyHash& hash, const ZtIndexField& field) noexcept {
  constexpr std::uint64_t ones = 0x0101010101010101;
  constexpr std::uint64_t tops = 0x8080808080808080;
  const std::size_t slot = static_cast<unsigned short>(field.length);
  for (std::size_t at = 0; at < slot; at += sizeof(std::uint64_t)) {
    const auto word = load_unaligned<std::uint64_t>(field.data + at);
    const std::uint64_t zeros = (word - ones) & ~word & tops;  // its lowest bit marks the first zero byte
    if (zeros == 0) {
      hash.add(word);
      continue;
    }
    const auto bits_before = static_cast<unsigned>(std::countr_zero(zeros)) - 7;
    const std::size_t length = at + bits_before / 8;
    hash.add(word & ((std::uint64_t{1} << bits_before) - 1));
    return length < slot ? length : SIZE_MAX;
  }
  return SIZE_MAX;
}

template <class T>
inline bool add_number(KeyHash& hash, const ZtIndexField& field) noexcept {
  if (static_cast<unsigned short>(field.length) < sizeof(T)) return false;
  hash.add(static_cast<std::uint64_t>(load_unaligned<T>(field.data)));
  return true;
}

// False for a value that may equal others: a double, a value of an unknown type, one that does not fill its type.
[[gnu::noinline]] inline bool add_value(KeyHash& hash, const ZtIndexField& field) noexcept {
  switch (field.type) {
    case FIELD_INT8:
      return add_number<std::uint64_t>(hash, field);
    case FIELD_STRING:
      return add_text(hash, field) != SIZE_MAX;
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

// The types of the most frequent keys: those of one field, a number of eight bytes or a text.
constexpr bool is_lone_type(signed char type) noexcept {
  return type == FIELD_INT8 || type == FIELD_STRING;
}
inline bool is_lone(const ZtIndexItem& key) noexcept {
  return key.point == 1 && is_lone_type(key.index->type);
}

// For the only field of a key, of such a type and in the index's type.
template <signed char type>
[[gnu::always_inline]] inline ExactKey exact_lone_key(const ZtIndexField& field) noexcept {
  static_assert(is_lone_type(type));
  KeyHash hash;
  if constexpr (type == FIELD_STRING) {
    const std::size_t length = add_text(hash, field);
    return {length != SIZE_MAX, hash.value(), length};
  } else {
    if (!add_number<std::uint64_t>(hash, field)) return {};
    return {true, hash.value(), load_unaligned<std::uint64_t>(field.data)};
  }
}

[[gnu::noinline]] inline ExactKey exact_key(const ZtTable& table, std::size_t indexid,
                                            const ZtIndexItem& key) noexcept {
  const ZtIndexDescrible& index = table.indexdescrible[indexid];
  const std::vector<int>& fields = index.indexdescrible;
  if (index.indextype != ZT_INDEX_UNIQUE || static_cast<std::size_t>(key.point) != fields.size()) return {};
  KeyHash hash;
  for (std::size_t at = 0; at < fields.size(); ++at) {
    const ZtIndexField& given = key.index[at];
    if (given.type != table.fielddescrible[static_cast<std::size_t>(fields[at])].type) return {};
    if (is_lone(key)) {
      return given.type == FIELD_STRING ? exact_lone_key<FIELD_STRING>(given)
                                        : exact_lone_key<FIELD_INT8>(given);
    }
    if (!add_value(hash, given)) return {};
  }
  return {true, hash.value(), 0};
}

}  // namespace cachet

#endif
