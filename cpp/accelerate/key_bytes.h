// A key as a run of bytes that orders as the key does, smallest first: what separators hold a window of, and what
// the other structures over keys are built from.
//
// Field by field: a signed number with its sign bit flipped, an unsigned one as it is, both most significant byte
// first; a double likewise, with -0.0 made 0.0 and a negative one inverted as a whole; a text up to and with its
// NUL; a field of an unknown type is nothing, as it is in comparisons.
//
// The run ENDS BEFORE what does not order by its bytes: a number in a slot narrower than its type, NaN, a subnormal
// double (which some processes take for zero); and behind a text without a NUL in its slot. It also ends behind 64
// bytes. So for the bytes that two keys both have: the first different one decides as the comparison does, and if
// there is none, the keys are equal as far as the shorter run goes, which is all of a key that `is_whole`.
#ifndef CACHET_CPP_ACCELERATE_KEY_BYTES_H
#define CACHET_CPP_ACCELERATE_KEY_BYTES_H

#include <algorithm>
#include <bit>
#include <cstring>

#include "accelerate/separator.h"

namespace cachet {

class KeyBytes {
 public:
  static constexpr unsigned capacity = 64;

  // Appends a value. False when the run ends before or inside it: nothing may be appended any more.
  bool append(int type, const char* data, std::size_t length) noexcept;
  // All fields of the key have been appended; `whole` if each of them came back true.
  void finish(bool whole) noexcept {
    is_whole_ = whole;
    std::memset(bytes_ + size_, 0, sizeof(std::uint64_t));
  }

  unsigned size() const noexcept { return size_; }
  bool is_whole() const noexcept { return is_whole_; }
  // Type code of the first field with bytes.
  unsigned first_type() const noexcept { return first_type_; }
  // Bytes in front of the first double. A tree with NaN in it is in order only as far as these go.
  unsigned ordered() const noexcept { return std::min(ordered_, size_); }

  // Eight bytes from `skip` on, most significant first; behind the end of the run zeros.
  std::uint64_t window(unsigned skip) const noexcept {
    return __builtin_bswap64(load_unaligned<std::uint64_t>(bytes_ + skip));
  }
  // The separator for a node over this key.
  Separator separator(unsigned skip) const noexcept {
    const unsigned count = std::min<unsigned>(size_ - skip, Separator::window_bytes);
    return {window(skip), static_cast<std::uint8_t>(skip), static_cast<std::uint8_t>(count),
            static_cast<std::uint8_t>(first_type_)};
  }
  // Where the two runs first differ; the length of the shorter one if nowhere.
  unsigned mismatch(const KeyBytes& other) const noexcept {
    const unsigned end = std::min(size_, other.size_);
    for (unsigned at = 0; at < end; at += sizeof(std::uint64_t)) {
      const std::uint64_t different = window(at) ^ other.window(at);
      if (different != 0) return std::min(end, at + static_cast<unsigned>(std::countl_zero(different)) / 8);
    }
    return end;
  }
  unsigned char operator[](unsigned at) const noexcept { return bytes_[at]; }

 private:
  static std::uint8_t reversed(std::uint8_t number) noexcept { return number; }
  static std::uint16_t reversed(std::uint16_t number) noexcept { return __builtin_bswap16(number); }
  static std::uint32_t reversed(std::uint32_t number) noexcept { return __builtin_bswap32(number); }
  static std::uint64_t reversed(std::uint64_t number) noexcept { return __builtin_bswap64(number); }

  template <class T>
  bool put(T number) noexcept {
    if (size_ + sizeof(T) > capacity) return false;
    const auto most_significant_first = reversed(number);
    std::memcpy(bytes_ + size_, &most_significant_first, sizeof number);
    size_ += sizeof(T);
    return true;
  }
  template <class T>
  bool append_number(const char* data, std::size_t length, T flipped) noexcept {
    return length >= sizeof(T) && put<T>(static_cast<T>(load_unaligned<T>(data) ^ flipped));
  }
  bool append_double(const char* data, std::size_t length) noexcept;
  bool append_text(const char* data, std::size_t length) noexcept;

  unsigned size_ = 0;
  unsigned ordered_ = capacity;
  unsigned first_type_ = 0;
  bool is_whole_ = false;
  unsigned char bytes_[capacity + sizeof(std::uint64_t)];
};

inline bool KeyBytes::append_double(const char* data, std::size_t length) noexcept {
  constexpr std::uint64_t sign = std::uint64_t{1} << 63;
  constexpr std::uint64_t infinity = std::uint64_t{0x7ff} << 52;
  constexpr std::uint64_t least_normal = std::uint64_t{1} << 52;
  ordered_ = std::min(ordered_, size_);
  if (length < sizeof(std::uint64_t)) return false;
  std::uint64_t bits = load_unaligned<std::uint64_t>(data);
  const std::uint64_t magnitude = bits & ~sign;
  if (magnitude == 0) bits = 0;
  if (magnitude > infinity || (magnitude != 0 && magnitude < least_normal)) return false;
  return put<std::uint64_t>((bits & sign) != 0 ? ~bits : bits ^ sign);
}

// The part of a text that finds room counts also when its end does not.
inline bool KeyBytes::append_text(const char* data, std::size_t length) noexcept {
  const std::size_t room = std::min<std::size_t>(length, capacity - size_);
  const void* const end = std::memchr(data, 0, room);
  const std::size_t count =
      end != nullptr ? static_cast<std::size_t>(static_cast<const char*>(end) - data) + 1 : room;
  std::memcpy(bytes_ + size_, data, count);
  size_ += static_cast<unsigned>(count);
  return end != nullptr;
}

[[gnu::always_inline]] inline bool KeyBytes::append(int type, const char* data, std::size_t length) noexcept {
  if (size_ == 0 && type > 0) first_type_ = static_cast<unsigned>(type);
  switch (type) {
    case FIELD_SHORT:
      return append_number<std::uint16_t>(data, length, 0x8000);
    case FIELD_INT:
      return append_number<std::uint32_t>(data, length, std::uint32_t{1} << 31);
    case FIELD_CHAR:
      return append_number<std::uint8_t>(data, length, 0x80);
    case FIELD_USHORT:
      return append_number<std::uint16_t>(data, length, 0);
    case FIELD_UINT:
      return append_number<std::uint32_t>(data, length, 0);
    case FIELD_UCHAR:
      return append_number<std::uint8_t>(data, length, 0);
    case FIELD_STRING:
      return append_text(data, length);
    case FIELD_DOUBLE:
      return append_double(data, length);
    case FIELD_INT8:
      return append_number<std::uint64_t>(data, length, std::uint64_t{1} << 63);
    default:
      return true;
  }
}

}  // namespace cachet

#endif
