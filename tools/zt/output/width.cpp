#include "zt/output/width.h"

#include <fmt/format.h>
#include <utf8proc.h>

#include <algorithm>

namespace zt {
namespace {

// The first character's bytes and columns; a byte that is no character takes one of each.
struct Character {
  std::size_t bytes = 1;
  std::size_t columns = 1;
  utf8proc_int32_t code_point = -1;
};

Character first_of(std::string_view utf8) {
  utf8proc_int32_t code_point = -1;
  const auto bytes = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(utf8.data()),
                                      static_cast<utf8proc_ssize_t>(utf8.size()), &code_point);
  if (bytes <= 0) return {};
  return {static_cast<std::size_t>(bytes),
          static_cast<std::size_t>(std::max(0, utf8proc_charwidth(code_point))), code_point};
}

}  // namespace

std::size_t width_of(std::string_view utf8) {
  std::size_t width = 0;
  while (!utf8.empty()) {
    const Character next = first_of(utf8);
    width += next.columns;
    utf8.remove_prefix(next.bytes);
  }
  return width;
}

std::string cut_to(std::string_view utf8, std::size_t width, std::string_view mark) {
  if (width_of(utf8) <= width) return std::string(utf8);
  std::string kept;
  for (std::size_t used = 0; !utf8.empty();) {
    const Character next = first_of(utf8);
    if (used + next.columns + 1 > width) break;
    kept += utf8.substr(0, next.bytes);
    used += next.columns;
    utf8.remove_prefix(next.bytes);
  }
  return width > 0 ? kept.append(mark) : kept;
}

std::string visible(std::string_view utf8) {
  std::string shown;
  while (!utf8.empty()) {
    const Character next = first_of(utf8);
    const std::string_view bytes = utf8.substr(0, next.bytes);
    if (bytes == "\n") {
      shown += "\\n";
    } else if (bytes == "\t") {
      shown += "\\t";
    } else if (next.code_point < 0) {
      shown += fmt::format("\\x{:02x}", static_cast<unsigned char>(bytes.front()));
    } else if (next.code_point < 0x20 || (next.code_point >= 0x7f && next.code_point < 0xa0)) {
      shown += fmt::format("\\x{:02x}", next.code_point);
    } else {
      shown += bytes;
    }
    utf8.remove_prefix(next.bytes);
  }
  return shown;
}

}  // namespace zt
