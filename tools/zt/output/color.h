// The few colours: a state's word decides.
#ifndef CACHET_TOOLS_ZT_OUTPUT_COLOR_H
#define CACHET_TOOLS_ZT_OUTPUT_COLOR_H

#include <string>
#include <string_view>

namespace zt {

inline constexpr std::string_view bold = "\033[1m";
inline constexpr std::string_view plain_again = "\033[0m";

// Empty for a word without a colour.
std::string_view color_of_state(std::string_view state);

// The text in this colour; the text alone when the colour is empty.
inline std::string colored(std::string_view text, std::string_view color) {
  if (color.empty()) return std::string(text);
  return std::string(color).append(text).append(plain_again);
}

}  // namespace zt

#endif
