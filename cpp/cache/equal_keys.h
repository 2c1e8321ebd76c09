// Whether a key of a condition and one that lies in a tree are equal: the shorter way to an answer that compare_keys
// gives too. For keys that can be equal to one stored key only (key_hash.h) and on handles with a FlatSpace.
#ifndef CACHET_CPP_CACHE_EQUAL_KEYS_H
#define CACHET_CPP_CACHE_EQUAL_KEYS_H

#include <cstring>

#include "cache/compare_keys.h"
#include "cache/key_hash.h"

namespace cachet {

[[gnu::always_inline]] inline bool equal_bytes(const char* a, const char* b, std::size_t length) noexcept {
  constexpr std::size_t word = sizeof(std::uint64_t);
  if (length < word) return std::memcmp(a, b, length) == 0;
  const std::size_t last = length - word;  // the last word may overlap the one before
  for (std::size_t at = 0; at < last; at += word) {
    if (load_unaligned<std::uint64_t>(a + at) != load_unaligned<std::uint64_t>(b + at)) return false;
  }
  return load_unaligned<std::uint64_t>(a + last) == load_unaligned<std::uint64_t>(b + last);
}

// A text that ends within its length, and one that ends there or with its slot.
[[gnu::always_inline]] inline bool equal_texts(const Value& text, const Value& stored) noexcept {
  const std::size_t length = text.length;
  return stored.length >= length && equal_bytes(text.data, stored.data, length) &&
         (stored.length == length || stored.data[length] == 0);
}

// Whether a stored key has one field: two bytes of its item, seen at once.
[[gnu::always_inline]] inline bool has_one_field(const char* item) noexcept {
  constexpr std::size_t point_at = offsetof(ZtIndexItem, point);
  static_assert(offsetof(ZtIndexItem, sharememory) == point_at + 2);
  return (load_unaligned<std::uint32_t>(item + point_at) & 0x00FF00FF) == 0x00010001;
}

// For a key of one field of this type (is_lone). `checked` as in KeyFields. `places` are those of a record of
// `record_bytes` bytes: no less than a field of it, and than the block that describes one.
template <signed char type, bool checked>
[[gnu::always_inline]] inline bool equal_lone_keys(const FlatSpace& space, const Places& places,
                                                   int record_bytes, const ZtIndexField& field,
                                                   const ExactKey& exact, const char* item) noexcept {
  static_assert(sizeof(ZtIndexField) < ZT_RECORD_HEADER);
  const auto stored_at = load_unaligned<std::int64_t>(item + offsetof(ZtIndexItem, index));
  if (!has_one_field(item) || (checked && !places.have(stored_at))) return false;
  const char* const stored = space.at(stored_at);
  const auto length = load_unaligned<unsigned short>(stored + offsetof(ZtIndexField, length));
  const auto data_at = load_unaligned<std::int64_t>(stored + offsetof(ZtIndexField, data));
  if (checked && (length > record_bytes || !places.have(data_at))) return false;
  const Value value{space.at(data_at), length};
  if constexpr (type == FIELD_STRING) return equal_texts({field.data, exact.content}, value);
  return length >= sizeof exact.content && exact.content == load_unaligned<std::uint64_t>(value.data);
}

template <bool checked>
[[gnu::noinline]] bool equal_keys(const Rb_base* base, const ZtIndexItem& key, const ExactKey& exact,
                                  const char* item, int record_bytes) noexcept {
  if (is_lone(key)) {
    const FlatSpace space(base);
    const Places places = Places::of_data(space, record_bytes);
    const auto equal_lone = key.index->type == FIELD_STRING ? equal_lone_keys<FIELD_STRING, checked>
                                                            : equal_lone_keys<FIELD_INT8, checked>;
    return equal_lone(space, places, record_bytes, *key.index, exact, item);
  }
  const KeyFields<checked> stored(base, item);
  if (!stored.readable() || stored.count() != key.point) return false;
  for (int index = 0; index < key.point; ++index) {
    const ZtIndexField& field = key.index[index];
    const Value own{field.data, static_cast<unsigned short>(field.length)};
    const Value other = stored.value(index);
    if (other.data == nullptr || compare_values(field.type, own, other) != 0) return false;
  }
  return true;
}

}  // namespace cachet

#endif
