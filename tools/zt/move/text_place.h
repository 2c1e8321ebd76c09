// Where in a text file something is, and what is wrong there.
#ifndef CACHET_TOOLS_ZT_MOVE_TEXT_PLACE_H
#define CACHET_TOOLS_ZT_MOVE_TEXT_PLACE_H

#include <cstdint>
#include <stdexcept>
#include <string>

namespace zt {

// From 1; a column is a byte of its line.
struct TextPlace {
  std::int64_t line = 1;
  std::int64_t column = 1;
};

// A row that is refused; those behind it can still be read.
struct BadRow : std::runtime_error {
  BadRow(TextPlace at, const std::string& why) : std::runtime_error(why), place(at) {}
  TextPlace place;
};

// A text in which nothing can be read from here on.
struct BrokenText : BadRow {
  using BadRow::BadRow;
};

}  // namespace zt

#endif
