// The words of a line, quoted as other shells have it: 'as it stands', "with \" and \\", \ before one character, and #
// for the rest of the line. Lines are UTF-8.
#ifndef CACHET_TOOLS_ZT_SHELL_WORDS_H
#define CACHET_TOOLS_ZT_SHELL_WORDS_H

#include <string>
#include <string_view>
#include <vector>

namespace zt {

struct Word {
  std::string text;       // without its quotes
  std::size_t begin = 0;  // of the word as it was typed, quotes and all
};

struct Words {
  std::vector<Word> list;
  bool open_quote = false;  // the line ends inside quotes, or behind a lone backslash
  bool in_word = false;     // the line ends inside the last word: what is typed next belongs to it
  bool in_comment = false;
};

Words words_of(std::string_view line);

// The text as one word, or as the beginning of one.
std::string as_word(std::string_view text);

}  // namespace zt

#endif
