// Comparison of keys. The sign is the reverse of strcmp: positive when the first key orders before the
// second, so a tree runs from the largest key to the smallest.
//
// No comparison reads beyond a value's length: a number in a slot narrower than its type counts as extended
// with zero bytes, a text ends at its NUL or at its length. For fields and keys that match their types this
// changes nothing.
#ifndef CACHET_CPP_CACHE_COMPARE_KEYS_H
#define CACHET_CPP_CACHE_COMPARE_KEYS_H

#include <algorithm>
#include <cstring>

#include "cache/key_fields.h"

namespace cachet {

// With NaN neither is less and both differ: -1.
template <class T>
int compare_numbers(const Value& a, const Value& b) {
  const T left = number_in<T>(a);
  const T right = number_in<T>(b);
  if (left < right) return 1;
  return left == right ? 0 : -1;
}

// Neither text is longer than its length. Of two that agree as far as both go, the one that goes on is the larger.
inline int compare_texts(const Value& a, const Value& b) {
  const std::size_t both = std::min(a.length, b.length);
  const int order = std::strncmp(a.data, b.data, both);
  if (order != 0 || a.length == b.length) return -order;
  if (std::memchr(a.data, 0, both) != nullptr) return 0;
  const bool a_goes_on = a.length > both && a.data[both] != 0;
  const bool b_goes_on = b.length > both && b.data[both] != 0;
  return static_cast<int>(b_goes_on) - static_cast<int>(a_goes_on);
}

inline int compare_values(signed char type, const Value& a, const Value& b) {
  switch (type) {
    case FIELD_SHORT:
      return compare_numbers<std::int16_t>(a, b);
    case FIELD_INT:
      return compare_numbers<std::int32_t>(a, b);
    case FIELD_CHAR:
      return compare_numbers<std::int8_t>(a, b);
    case FIELD_USHORT:
      return compare_numbers<std::uint16_t>(a, b);
    case FIELD_UINT:
      return compare_numbers<std::uint32_t>(a, b);
    case FIELD_UCHAR:
      return compare_numbers<std::uint8_t>(a, b);
    case FIELD_STRING:
      return compare_texts(a, b);
    case FIELD_DOUBLE:
      return compare_numbers<double>(a, b);
    case FIELD_INT8:
      return compare_numbers<std::int64_t>(a, b);
    default:
      return 0;
  }
}

constexpr int undecided_by_unreadable = -1;

template <bool checked>
[[gnu::always_inline]] inline int compare_keys(const Rb_base* base, const void* key1, const void* key2) {
  const KeyFields<checked> first(base, key1);
  const KeyFields<checked> second(base, key2);
  const int count = std::min(first.count(), second.count());
  if (!first.readable() || !second.readable()) return undecided_by_unreadable;
  for (int index = 0; index < count; ++index) {
    const Value a = first.value(index);
    const Value b = second.value(index);
    if (a.data == nullptr || b.data == nullptr) return undecided_by_unreadable;
    const int order = compare_values(first.type(index), a, b);
    if (order != 0) return order;
  }
  return 0;
}

}  // namespace cachet

#endif
