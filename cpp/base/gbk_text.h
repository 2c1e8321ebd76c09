// Cutting GBK texts to the room there is, never through a double byte.
#ifndef CACHET_CPP_BASE_GBK_TEXT_H
#define CACHET_CPP_BASE_GBK_TEXT_H

#include <cstddef>

namespace cachet {

// The length of the longest prefix of the NUL-terminated text, of at most `limit` bytes, that does not end in
// the middle of a double byte. A stray byte counts as a character, so a text that fits is never shortened.
std::size_t bounded_length(const char* text, std::size_t limit);

// Copies as much of the text as bounded_length allows into `size` bytes and terminates it; nothing when size
// is 0.
void copy_bounded(char* destination, std::size_t size, const char* text);

}  // namespace cachet

#endif
