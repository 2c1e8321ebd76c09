// Copies of a few dozen bytes without a call, which would cost as much as they do, and the caller its registers.
#ifndef CACHET_CPP_BASE_COPY_BYTES_H
#define CACHET_CPP_BASE_COPY_BYTES_H

#include <cstdint>
#include <cstring>

namespace cachet {

struct CopyPiece {
  std::uint64_t words[2];
};
inline constexpr std::size_t piece_bytes = sizeof(CopyPiece);

[[gnu::always_inline]] inline void copy_piece(char* to, const char* from, std::size_t at) noexcept {
  std::memcpy(to + at, from + at, piece_bytes);
}

// From one piece to eight. The last ones may overlap those before.
constexpr bool is_block(std::size_t count) noexcept {
  return count - piece_bytes <= 7 * piece_bytes;
}
[[gnu::always_inline]] inline void copy_block(char* to, const char* from, std::size_t count) noexcept {
  if (count - 2 * piece_bytes <= 2 * piece_bytes) [[likely]] {
    copy_piece(to, from, 0);
    copy_piece(to, from, piece_bytes);
    copy_piece(to, from, count - 2 * piece_bytes);
  } else {
    for (std::size_t at = 0; at < count - piece_bytes; at += piece_bytes) copy_piece(to, from, at);
  }
  copy_piece(to, from, count - piece_bytes);
}

// Blocks, and the values of most types.
constexpr bool is_short_copy(std::size_t count) noexcept {
  return count == sizeof(std::uint64_t) || count == sizeof(std::uint32_t) || is_block(count);
}
[[gnu::always_inline]] inline void copy_short(char* to, const char* from, std::size_t count) noexcept {
  if (count == sizeof(std::uint64_t)) {
    std::memcpy(to, from, sizeof(std::uint64_t));
  } else if (count == sizeof(std::uint32_t)) {
    std::memcpy(to, from, sizeof(std::uint32_t));
  } else {
    copy_block(to, from, count);
  }
}

inline void copy_bytes(char* to, const char* from, std::size_t count) noexcept {
  is_block(count) ? copy_block(to, from, count) : static_cast<void>(std::memcpy(to, from, count));
}

}  // namespace cachet

#endif
