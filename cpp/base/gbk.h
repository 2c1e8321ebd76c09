// UTF-8 to GBK at compile time, so that texts are readable in the source and GBK in the program, whatever the
// compiler's execution charset and whatever iconv modules the host has.
//
// The table holds exactly the characters that the catalogue uses, ascending by code point. A text with a
// character that is missing here does not compile; its row is what `printf '<character>' | iconv -t gbk |
// xxd` prints.
#ifndef CACHET_CPP_BASE_GBK_H
#define CACHET_CPP_BASE_GBK_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string_view>

namespace cachet::gbk {

struct Character {
  char32_t code_point;
  std::uint16_t gbk;  // lead byte, then trail byte
};

inline constexpr Character characters[] = {
    {0x4E0D, 0xB2BB}, {0x4E3A, 0xCEAA}, {0x4E3B, 0xD6F7}, {0x4E8B, 0xCAC2}, {0x4EAB, 0xCFED},
    {0x4EE4, 0xC1EE}, {0x4EF6, 0xBCFE}, {0x4F4D, 0xCEBB}, {0x4F5C, 0xD7F7}, {0x4FE1, 0xD0C5},
    {0x4FEE, 0xD0DE}, {0x5171, 0xB9B2}, {0x5178, 0xB5E4}, {0x5185, 0xC4DA}, {0x518D, 0xD4D9},
    {0x5199, 0xD0B4}, {0x51B2, 0xB3E5}, {0x51FA, 0xB3F6}, {0x521B, 0xB4B4}, {0x524D, 0xC7B0},
    {0x52A0, 0xBCD3}, {0x52A1, 0xCEF1}, {0x5339, 0xC6A5}, {0x53E5, 0xBEE4}, {0x53EA, 0xD6BB},
    {0x53EF, 0xBFC9}, {0x53F7, 0xBAC5}, {0x540D, 0xC3FB}, {0x547D, 0xC3FC}, {0x5668, 0xC6F7},
    {0x5728, 0xD4DA}, {0x574F, 0xBBB5}, {0x591A, 0xB6E0}, {0x5931, 0xCAA7}, {0x5B57, 0xD7D6},
    {0x5B58, 0xB4E6}, {0x5B9A, 0xB6A8}, {0x5BB9, 0xC8DD}, {0x5C04, 0xC9E4}, {0x5C1A, 0xC9D0},
    {0x5DF2, 0xD2D1}, {0x5E93, 0xBFE2}, {0x5EA6, 0xB6C8}, {0x5EFA, 0xBDA8}, {0x5F00, 0xBFAA},
    {0x5F0F, 0xCABD}, {0x5F15, 0xD2FD}, {0x5F53, 0xB5B1}, {0x5F55, 0xC2BC}, {0x606F, 0xCFA2},
    {0x6216, 0xBBF2}, {0x6253, 0xB4F2}, {0x6301, 0xB3D6}, {0x635F, 0xCBF0}, {0x636E, 0xBEDD},
    {0x63A5, 0xBDD3}, {0x64CD, 0xB2D9}, {0x652F, 0xD6A7}, {0x6539, 0xB8C4}, {0x6548, 0xD0A7},
    {0x6570, 0xCAFD}, {0x6587, 0xCEC4}, {0x65E0, 0xCEDE}, {0x6620, 0xD3B3}, {0x662F, 0xCAC7},
    {0x6709, 0xD3D0}, {0x672A, 0xCEB4}, {0x672C, 0xB1BE}, {0x675F, 0xCAF8}, {0x6761, 0xCCF5},
    {0x67C4, 0xB1FA}, {0x6807, 0xB1EA}, {0x683C, 0xB8F1}, {0x6A21, 0xC4A3}, {0x6BB5, 0xB6CE},
    {0x6BD4, 0xB1C8}, {0x6CA1, 0xC3BB}, {0x6DFB, 0xCCED}, {0x6E38, 0xD3CE}, {0x7248, 0xB0E6},
    {0x7406, 0xC0ED}, {0x767B, 0xB5C7}, {0x7684, 0xB5C4}, {0x79F0, 0xB3C6}, {0x7A7A, 0xBFD5},
    {0x7A81, 0xCDBB}, {0x7BA1, 0xB9DC}, {0x7D22, 0xCBF7}, {0x7ECF, 0xBEAD}, {0x7ED3, 0xBDE1},
    {0x7F13, 0xBBBA}, {0x80FD, 0xC4DC}, {0x8868, 0xB1ED}, {0x8981, 0xD2AA}, {0x8BAF, 0xD1B6},
    {0x8BB0, 0xBCC7}, {0x8BBF, 0xB7C3}, {0x8BEF, 0xCEF3}, {0x8BFB, 0xB6C1}, {0x8D25, 0xB0DC},
    {0x8D85, 0xB3AC}, {0x8F83, 0xBDCF}, {0x8FC7, 0xB9FD}, {0x8FDE, 0xC1AC}, {0x901A, 0xCDA8},
    {0x9053, 0xB5C0}, {0x90E8, 0xB2BF}, {0x914D, 0xC5E4}, {0x91CF, 0xC1BF}, {0x9501, 0xCBF8},
    {0x9519, 0xB4ED}, {0x952E, 0xBCFC}, {0x957F, 0xB3A4}, {0x95EE, 0xCECA}, {0x95F2, 0xCFD0},
    {0x9700, 0xD0E8}, {0x9996, 0xCAD7},
};

static_assert(std::is_sorted(std::begin(characters), std::end(characters),
                             [](Character left, Character right) {
                               return left.code_point < right.code_point;
                             }));

// Never defined, and no constant expressions: a call stops the compilation, which then shows the name.
void malformed_utf8();
void character_is_missing_from_the_gbk_table();
void text_is_too_long();

struct Decoded {
  char32_t code_point;
  std::size_t size_bytes;
};

// How long the sequence is that `lead` opens; 0 when no sequence may start with it.
constexpr std::size_t sequence_bytes(char8_t lead) {
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead < 0xE0) return 2;
  if (lead >= 0xE0 && lead < 0xF0) return 3;
  if (lead >= 0xF0 && lead < 0xF5) return 4;
  return 0;
}

// The first character of a text that is not empty.
constexpr Decoded decode(std::u8string_view text) {
  const std::size_t size_bytes = sequence_bytes(text[0]);
  if (size_bytes == 0 || size_bytes > text.size()) malformed_utf8();
  if (size_bytes == 1) return {text[0], 1};
  char32_t code_point = text[0] & (0x7Fu >> size_bytes);
  for (std::size_t i = 1; i < size_bytes; ++i) {
    if ((text[i] & 0xC0) != 0x80) malformed_utf8();
    code_point = code_point << 6 | (text[i] & 0x3Fu);
  }
  return {code_point, size_bytes};
}

constexpr std::uint16_t gbk_of(char32_t code_point) {
  const auto* const row =
      std::lower_bound(std::begin(characters), std::end(characters), code_point,
                       [](Character character, char32_t wanted) { return character.code_point < wanted; });
  if (row == std::end(characters) || row->code_point != code_point) character_is_missing_from_the_gbk_table();
  return row->gbk;
}

// The text in GBK, filled up with NULs; at least one.
template <std::size_t Capacity>
consteval std::array<char, Capacity> encode(std::u8string_view utf8) {
  std::array<char, Capacity> gbk{};
  std::size_t length = 0;
  while (!utf8.empty()) {
    const Decoded next = decode(utf8);
    if (length + 2 >= Capacity) text_is_too_long();
    if (next.size_bytes == 1) {
      gbk[length++] = static_cast<char>(next.code_point);
    } else {
      const std::uint16_t bytes = gbk_of(next.code_point);
      gbk[length++] = static_cast<char>(bytes >> 8);
      gbk[length++] = static_cast<char>(bytes & 0xFF);
    }
    utf8.remove_prefix(next.size_bytes);
  }
  return gbk;
}

}  // namespace cachet::gbk

#endif
