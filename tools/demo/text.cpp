// Conversion goes through iconv, one character at a time where a text may hold what the terminal's encoding
// lacks; widths come from wcwidth, so that a two-column or a combining character keeps the columns in line.
#include "text.h"

#include <iconv.h>
#include <langinfo.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cwchar>

namespace demo {
namespace {

class Converter {
 public:
  Converter(const char* to, const char* from) : state_(iconv_open(to, from)) {}
  ~Converter() {
    if (usable()) iconv_close(state_);
  }
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;
  bool usable() const { return state_ != reinterpret_cast<iconv_t>(-1); }

  // Empty when the text cannot be converted as a whole.
  std::string convert(std::string_view text) {
    std::string result(text.size() * 4 + 16, '\0');
    std::string source(text);
    char* in = source.data();
    char* out = result.data();
    size_t in_bytes = source.size();
    size_t out_bytes = result.size();
    if (!usable() || iconv(state_, &in, &in_bytes, &out, &out_bytes) == static_cast<size_t>(-1)) return {};
    iconv(state_, nullptr, nullptr, &out, &out_bytes);
    result.resize(result.size() - out_bytes);
    return result;
  }

 private:
  iconv_t state_;
};

size_t character_bytes(std::string_view utf8) {
  size_t length = 1;
  while (length < utf8.size() && (static_cast<unsigned char>(utf8[length]) & 0xC0) == 0x80) ++length;
  return length;
}

std::string terminal_character(std::string_view utf8) {
  if (utf8.size() == 1 && static_cast<unsigned char>(utf8[0]) < 0x80) return std::string(utf8);
  static Converter converter(nl_langinfo(CODESET), "UTF-8");
  const std::string converted = converter.convert(utf8);
  return converted.empty() ? "?" : converted;
}

size_t columns_of(const std::string& terminal_character) {
  wchar_t wide = 0;
  std::mbstate_t state{};
  const size_t length = std::mbrtowc(&wide, terminal_character.data(), terminal_character.size(), &state);
  if (length == 0 || length > terminal_character.size()) return 1;
  return static_cast<size_t>(std::max(0, wcwidth(wide)));
}

// The text in the terminal's encoding, cut or filled to `column.width`.
std::string cell(std::string_view utf8, const Column& column) {
  std::string shown;
  size_t used = 0;
  while (!utf8.empty()) {
    const size_t bytes = character_bytes(utf8);
    const std::string next = terminal_character(utf8.substr(0, bytes));
    if (used + columns_of(next) > column.width) break;
    shown += next;
    used += columns_of(next);
    utf8.remove_prefix(bytes);
  }
  const std::string fill(column.width - used, ' ');
  return column.right ? fill + shown : shown + fill;
}

}  // namespace

std::string utf8_from_gbk(const std::string& gbk) {
  static Converter converter("UTF-8", "GBK");
  const std::string converted = converter.convert(gbk);
  return converted.empty() && !gbk.empty() ? "(a message in GBK that this host cannot convert)" : converted;
}

void print(const std::string& utf8) {
  std::string shown;
  for (std::string_view rest = utf8; !rest.empty(); rest.remove_prefix(character_bytes(rest))) {
    shown += terminal_character(rest.substr(0, character_bytes(rest)));
  }
  std::fputs(shown.c_str(), stdout);
  std::fflush(stdout);
}

void print_progress(const std::string& utf8, bool final) {
  static const bool on_terminal = isatty(STDOUT_FILENO) != 0;
  if (on_terminal) {
    print("\r\033[K" + utf8 + (final ? "\n" : ""));
  } else if (final) {
    print(utf8 + "\n");
  }
}

std::string with_thousands(int64_t value) {
  std::string digits = std::to_string(value);
  const size_t first = value < 0 ? 2 : 1;
  for (size_t i = digits.size(); i > first + 2; i -= 3) digits.insert(i - 3, ",");
  return digits;
}

void print_table(const std::vector<Column>& columns, const std::vector<std::vector<std::string>>& rows) {
  const auto print_line = [&](const auto& text_of) {
    std::string line;
    for (size_t i = 0; i < columns.size(); ++i) line += "  " + cell(text_of(i), columns[i]);
    line.erase(line.find_last_not_of(' ') + 1);
    std::puts(line.c_str());
  };
  print_line([&](size_t i) { return columns[i].title; });
  print_line([&](size_t i) { return std::string(columns[i].width, '-'); });
  for (const auto& row : rows) print_line([&](size_t i) { return row[i]; });
  std::fflush(stdout);
}

}  // namespace demo
