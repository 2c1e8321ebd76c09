// How many columns of a terminal a text takes: two for a Chinese character, none for a combining one.
#ifndef CACHET_TOOLS_ZT_OUTPUT_WIDTH_H
#define CACHET_TOOLS_ZT_OUTPUT_WIDTH_H

#include <string>
#include <string_view>

namespace zt {

std::size_t width_of(std::string_view utf8);
// At most `width` columns of it; a text that was cut ends with `mark`, which takes one column.
std::string cut_to(std::string_view utf8, std::size_t width, std::string_view mark);
// Control characters made visible ("\n", "\x1b"), so that no stored text moves the cursor.
std::string visible(std::string_view utf8);

}  // namespace zt

#endif
