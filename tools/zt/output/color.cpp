#include "zt/output/color.h"

#include <array>
#include <utility>

namespace zt {

std::string_view color_of_state(std::string_view state) {
  constexpr std::string_view red = "\033[31m", green = "\033[32m", yellow = "\033[33m";
  static constexpr std::array<std::pair<std::string_view, std::string_view>, 17> colors{{
      {"ok", green},
      {"alive", green},
      {"in use", green},
      {"writes", green},
      {"reads", green},
      {"dead", red},
      {"damage", red},
      {"damaged", red},
      {"fault", red},
      {"gone", red},
      {"orphan", yellow},
      {"warning", yellow},
      {"zombie", yellow},
      {"leftover", yellow},
      {"unseen", yellow},
      {"waits to read", yellow},
      {"waits to write", yellow},
  }};
  for (const auto& [word, color] : colors) {
    if (word == state) return color;
  }
  return {};
}

}  // namespace zt
