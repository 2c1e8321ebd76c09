// Separators: the first bytes of the key that an internal node of a record tree compares with, kept in the node.
//
// An internal node routes by the key of its `lext`, which lies up to four cache lines away. The layout leaves eleven
// bytes of the node unused; they hold a window of that key's order-preserving bytes (key_bytes.h):
//
//   byte   13      17                 21      25        26     27            28    29               32
//         +-------+------------------+-------+---------+------+-------------+-----+----------------+
//         | lext  | window 0 to 3    | rext  | window 7| skip | type, count | tag | window 4 to 6  |
//         +-------+------------------+-------+---------+------+-------------+-----+----------------+
//
//   window   bytes `skip` to `skip` + 7 of the key, most significant first
//   type     type code of the key's first field, in the upper half of its byte
//   count    how many bytes of the window are the key's, 1 to 8, in the lower half; the others are zeros
//   tag      version of this encoding; every other value (0 is what a plain writer leaves) means: no separator
//
// What must stay true:
//   - `lext` of a node that is linked never changes, and neither do the fields of an index: a separator is written
//     once, before its node is linked, and stays right for ever.
//   - Stores to `lext` and `rext` are 4 bytes wide. An 8-byte store to `v` by somebody else clears the tag with it;
//     the 8 bytes from 24 on are read in one load, so nobody sees half of that.
//   - Only the record paths write separators, and only the record comparisons use them. Other trees have none.
#ifndef CACHET_CPP_ACCELERATE_SEPARATOR_H
#define CACHET_CPP_ACCELERATE_SEPARATOR_H

#include <cstdint>

#include "rb_insert.h"

namespace cachet {

inline constexpr std::uint64_t separator_version = 1;
static_assert(separator_version != 0 && separator_version != 0xff, "what unused and damaged bytes look like");

// A node's separator as it lies there, in two loads of one cache line.
class SeparatorBytes {
 public:
  explicit SeparatorBytes(const srb_node* node) noexcept
      : front_(load_unaligned<std::uint32_t>(reinterpret_cast<const char*>(node) + 17)),
        rest_(load_relaxed<std::uint64_t>(reinterpret_cast<const char*>(node) + 24)) {}

  bool is_there() const noexcept { return static_cast<std::uint8_t>(rest_ >> 32) == separator_version; }
  // Whether there is one, for keys that begin with a field of this type.
  bool is_for(unsigned type) const noexcept {
    return ((rest_ >> 28) & 0xfff) == (separator_version << 4 | type) && count() - 1U < 8U;
  }
  // Skip, type, count and tag, as one number.
  std::uint32_t header() const noexcept { return (rest_ >> 16) & 0xffffff; }
  static std::uint32_t header_of(const Separator& separator) noexcept {
    return separator.skip | static_cast<std::uint32_t>(separator.type << 4 | separator.count) << 8 |
           static_cast<std::uint32_t>(separator_version << 16);
  }
  unsigned skip() const noexcept { return static_cast<std::uint8_t>(rest_ >> 16); }
  unsigned count() const noexcept { return (rest_ >> 24) & 0xf; }
  std::uint64_t window() const noexcept {
    return __builtin_bswap64(front_ | (rest_ >> 40) << 32 | (rest_ >> 8) << 56);
  }

 private:
  std::uint32_t front_;
  std::uint64_t rest_;
};

// Into a node that nothing leads to yet.
inline void write_separator(Rb_node node, const Separator& separator) noexcept {
  if (separator.count == 0) return;
  char* const bytes = reinterpret_cast<char*>(node);
  const std::uint64_t window = __builtin_bswap64(separator.window);
  const std::uint64_t kept = load_unaligned<std::uint64_t>(bytes + 24) & 0xff;
  const std::uint64_t header = SeparatorBytes::header_of(separator);
  store_unaligned<std::uint32_t>(bytes + 17, static_cast<std::uint32_t>(window));
  store_unaligned<std::uint64_t>(bytes + 24, kept | window >> 56 << 8 | header << 16 | (window >> 32) << 40);
}

// Takes away whatever a node holds there.
inline void clear_separator(Rb_node node) noexcept {
  char* const bytes = reinterpret_cast<char*>(node);
  store_unaligned<std::uint32_t>(bytes + 17, 0);
  store_unaligned<std::uint64_t>(bytes + 24, load_unaligned<std::uint64_t>(bytes + 24) & 0xff);
}

}  // namespace cachet

#endif
