#include "base/messages.h"

#include <cstdarg>
#include <cstdio>

#include "base/gbk_text.h"

namespace cachet::message {

namespace {

// A text at its longest, before it is cut to the room that its taker has.
using Line = std::array<char, 1000>;

// What does not fit is cut at a whole character: the byte after the room tells whether the last one is half.
void print_into(Line& line, const char* format, std::va_list arguments) {
  std::array<char, std::tuple_size_v<Line> + 1> text{};
  std::vsnprintf(text.data(), text.size(), format, arguments);
  copy_bounded(line.data(), line.size(), text.data());
}

}  // namespace

void format_bounded(char* buffer, std::size_t size, const char* format, ...) {
  Line line;
  std::va_list arguments;
  va_start(arguments, format);
  print_into(line, format, arguments);
  va_end(arguments);
  copy_bounded(buffer, size, line.data());
}

void print_line_bounded(const char* format, ...) {
  Line line;
  std::va_list arguments;
  va_start(arguments, format);
  print_into(line, format, arguments);
  va_end(arguments);
  std::printf("%s\n", line.data());
}

}  // namespace cachet::message
