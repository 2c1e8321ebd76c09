// The frame check, eight bytes a step: table k holds what a byte does to the check when k more bytes follow it, so
// the lookups of one step do not wait for each other. Table 0 is the classic one of this polynomial, which the
// interface shows.
#include <array>
#include <cstdint>
#include <utility>

#include "shared_word.h"
#include "vemroprotocol.h"

namespace {

constexpr unsigned polynomial = 0x1021;
constexpr int slice_bytes = 8;

constexpr std::uint16_t check_of_byte(unsigned byte) {
  unsigned crc = byte << 8;
  for (int bit = 0; bit < 8; ++bit) crc = (crc << 1) ^ ((crc & 0x8000U) != 0 ? polynomial : 0U);
  return static_cast<std::uint16_t>(crc);
}

}  // namespace

#define CHECKS_OF_4(n) \
  check_of_byte(n), check_of_byte((n) + 1), check_of_byte((n) + 2), check_of_byte((n) + 3)
#define CHECKS_OF_16(n) CHECKS_OF_4(n), CHECKS_OF_4((n) + 4), CHECKS_OF_4((n) + 8), CHECKS_OF_4((n) + 12)
#define CHECKS_OF_64(n) \
  CHECKS_OF_16(n), CHECKS_OF_16((n) + 16), CHECKS_OF_16((n) + 32), CHECKS_OF_16((n) + 48)

constexpr std::uint16_t vemro_crc_tab[256] = {CHECKS_OF_64(0U), CHECKS_OF_64(64U), CHECKS_OF_64(128U),
                                              CHECKS_OF_64(192U)};

#undef CHECKS_OF_64
#undef CHECKS_OF_16
#undef CHECKS_OF_4

static_assert(vemro_crc_tab[1] == 0x1021 && vemro_crc_tab[128] == 0x9188 && vemro_crc_tab[255] == 0x1ef0);

namespace {

constexpr std::uint16_t next_check(std::uint16_t crc, unsigned byte) {
  return static_cast<std::uint16_t>((crc << 8) ^ vemro_crc_tab[((crc >> 8) ^ byte) & 0xff]);
}

constexpr std::uint16_t exchanged(std::uint16_t crc) {
  return static_cast<std::uint16_t>((crc << 8) | (crc >> 8));
}

using Tables = std::array<std::array<std::uint16_t, 256>, slice_bytes>;

constexpr Tables tables = [] {
  Tables made{};
  for (unsigned byte = 0; byte < 256; ++byte) {
    made[0][byte] = vemro_crc_tab[byte];
    for (std::size_t k = 1; k < slice_bytes; ++k) made[k][byte] = next_check(made[k - 1][byte], 0);
  }
  return made;
}();

// Only the first two bytes of a step wait for the check so far. What the others add is summed up by itself, so that it
// is there when the check is.
template <std::size_t... I>
std::uint16_t next_slice(std::uint16_t crc, const unsigned char* bytes, std::index_sequence<I...>) {
  const auto slice = cachet::load_unaligned<std::uint64_t>(bytes);
  const unsigned behind = (... ^ tables[slice_bytes - 3 - I][(slice >> (8 * (I + 2))) & 0xff]);
  const auto front = static_cast<std::uint16_t>(slice ^ exchanged(crc));
  return static_cast<std::uint16_t>(
      behind ^ (tables[slice_bytes - 1][front & 0xff] ^ tables[slice_bytes - 2][front >> 8]));
}

}  // namespace

unsigned short VEMROCRC(void* pData, int DataLen) {
  const auto* bytes = static_cast<const unsigned char*>(pData);
  std::uint16_t crc = 0;
  for (; DataLen >= slice_bytes; DataLen -= slice_bytes, bytes += slice_bytes) {
    crc = next_slice(crc, bytes, std::make_index_sequence<slice_bytes - 2>());
  }
  for (; DataLen > 0; --DataLen) crc = next_check(crc, *bytes++);
  return exchanged(crc);
}
