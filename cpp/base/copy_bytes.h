// Copies of a few dozen bytes without a call, which would cost as much as they do, and the caller its registers.
#ifndef CACHET_CPP_BASE_COPY_BYTES_H
#define CACHET_CPP_BASE_COPY_BYTES_H

#include <cstdint>
#include <cstring>

namespace cachet {

struct CopyPiece {
  std::uint64_t words[2];
};

constexpr bool is_short_copy(std::size_t count) noexcept {
  return count == sizeof(std::uint64_t) || count == sizeof(std::uint32_t) ||
         (count >= sizeof(CopyPiece) && count <= 8 * sizeof(CopyPiece));
}

// For such a count. The last piece may overlap the one before.
[[gnu::always_inline]] inline void copy_short(char* to, const char* from, std::size_t count) noexcept {
  if (count == sizeof(std::uint64_t)) {
    std::memcpy(to, from, sizeof(std::uint64_t));
    return;
  }
  if (count == sizeof(std::uint32_t)) {
    std::memcpy(to, from, sizeof(std::uint32_t));
    return;
  }
  const std::size_t last = count - sizeof(CopyPiece);
  for (std::size_t at = 0; at < last; at += sizeof(CopyPiece))
    std::memcpy(to + at, from + at, sizeof(CopyPiece));
  std::memcpy(to + last, from + last, sizeof(CopyPiece));
}

inline void copy_bytes(char* to, const char* from, std::size_t count) noexcept {
  is_short_copy(count) ? copy_short(to, from, count) : static_cast<void>(std::memcpy(to, from, count));
}

}  // namespace cachet

#endif
