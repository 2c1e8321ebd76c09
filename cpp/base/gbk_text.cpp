#include "base/gbk_text.h"

#include <cstring>

namespace cachet {

namespace {

// Reads the second byte only behind a lead byte, thus never past the terminator.
bool starts_double_byte(const char* text) {
  const auto lead = static_cast<unsigned char>(text[0]);
  if (lead < 0x81 || lead == 0xFF) return false;
  const auto trail = static_cast<unsigned char>(text[1]);
  return trail >= 0x40 && trail != 0x7F && trail != 0xFF;
}

}  // namespace

std::size_t bounded_length(const char* text, std::size_t limit) {
  std::size_t length = 0;
  while (length < limit && text[length] != 0) {
    const std::size_t character_bytes = starts_double_byte(text + length) ? 2 : 1;
    if (length + character_bytes > limit) break;
    length += character_bytes;
  }
  return length;
}

void copy_bounded(char* destination, std::size_t size, const char* text) {
  if (size == 0) return;
  const std::size_t length = bounded_length(text, size - 1);
  std::memcpy(destination, text, length);
  destination[length] = 0;
}

}  // namespace cachet
