#include "ztmanager/log.h"

#include <iconv.h>

namespace manager {

namespace {

class Converter {
 public:
  Converter() : converter_(iconv_open("UTF-8", "GBK")) {}
  ~Converter() {
    if (is_there()) iconv_close(converter_);
  }
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;

  bool is_there() const { return converter_ != reinterpret_cast<iconv_t>(-1); }

  // Appends what the first character of `rest` is in UTF-8, and returns its length; 0 for none.
  std::size_t append_character(std::string& text, std::string_view rest) const {
    for (std::size_t length = 1; is_there() && length <= 2 && length <= rest.size(); ++length) {
      char in[2] = {rest[0], rest[length - 1]};
      char out[4];
      char* from = in;
      char* to = out;
      std::size_t in_left = length;
      std::size_t out_left = sizeof out;
      if (iconv(converter_, &from, &in_left, &to, &out_left) != static_cast<std::size_t>(-1)) {
        text.append(out, sizeof out - out_left);
        return length;
      }
    }
    return 0;
  }

 private:
  iconv_t converter_;
};

bool is_printable_ascii(char c) {
  return c >= ' ' && c <= '~';
}

}  // namespace

std::string for_log(std::string_view gbk) {
  const Converter converter;
  std::string text;
  while (!gbk.empty()) {
    const bool is_ascii = static_cast<unsigned char>(gbk[0]) < 0x80;
    std::size_t length = is_ascii ? 0 : converter.append_character(text, gbk);
    if (length == 0) {
      text += is_printable_ascii(gbk[0]) ? gbk[0] : '?';
      length = 1;
    }
    gbk.remove_prefix(length);
  }
  return text;
}

}  // namespace manager
