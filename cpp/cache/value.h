// The bytes of one field, wherever they lie, and the number in them.
#ifndef CACHET_CPP_CACHE_VALUE_H
#define CACHET_CPP_CACHE_VALUE_H

#include <cstddef>
#include <cstring>

#include "cache/record.h"

namespace cachet {

// No address: the value cannot be read.
struct Value {
  const char* data;
  std::size_t length;
};

inline Value value_in(ZtRecord* record, const ZtDataField& field) noexcept {
  return {field_bytes(record, field), field.length};
}

// A number in a slot narrower than its type counts as extended with zero bytes.
template <class T>
T number_in(const Value& value) {
  if (value.length >= sizeof(T)) [[likely]]
    return load_unaligned<T>(value.data);
  T number{};
  std::memcpy(&number, value.data, value.length);
  return number;
}

}  // namespace cachet

#endif
