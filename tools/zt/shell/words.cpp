#include "zt/shell/words.h"

#include <utility>

namespace zt {
namespace {

bool is_blank(char character) {
  return character == ' ' || character == '\t' || character == '\n' || character == '\r';
}

class Splitter {
 public:
  explicit Splitter(std::string_view line) : line_(line) {}

  Words run() {
    for (; at_ < line_.size() && !words_.in_comment; ++at_) step(line_[at_]);
    words_.open_quote = quote_ != '\0' || escaped_;
    return std::move(words_);
  }

 private:
  void step(char next) {
    if (escaped_) {
      // Between double quotes a backslash stands for itself but before one of these.
      if (quote_ == '"' && next != '"' && next != '\\') take('\\');
      take(next);
      escaped_ = false;
    } else if (next == '\\' && quote_ != '\'') {
      begin_word();
      escaped_ = true;
    } else if (quote_ != '\0') {
      next == quote_ ? void(quote_ = '\0') : take(next);
    } else if (next == '\'' || next == '"') {
      begin_word();
      quote_ = next;
    } else if (is_blank(next)) {
      words_.in_word = false;
    } else if (next == '#' && !words_.in_word) {
      words_.in_comment = true;
    } else {
      take(next);
    }
  }

  void begin_word() {
    if (!words_.in_word) words_.list.push_back({"", at_});
    words_.in_word = true;
  }

  void take(char character) {
    begin_word();
    words_.list.back().text += character;
  }

  std::string_view line_;
  std::size_t at_ = 0;
  char quote_ = '\0';
  bool escaped_ = false;
  Words words_;
};

}  // namespace

Words words_of(std::string_view line) {
  return Splitter(line).run();
}

std::string as_word(std::string_view text) {
  static constexpr std::string_view special = " \t\n'\"\\#";
  std::string word;
  for (const char character : text) {
    if (special.find(character) != std::string_view::npos) word += '\\';
    word += character;
  }
  return word;
}

}  // namespace zt
