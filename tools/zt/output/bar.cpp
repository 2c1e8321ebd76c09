#include "zt/output/bar.h"

#include <algorithm>
#include <cmath>

#include "zt/output/color.h"

namespace zt {
namespace {

constexpr std::string_view blue = "\033[34m", cyan = "\033[36m";

int cells(double share, int width) {
  if (!(share > 0)) return 0;
  return std::clamp(static_cast<int>(std::lround(share * width)), 1, width);
}

std::string run(const char* character, int count) {
  std::string text;
  for (; count > 0; --count) text += character;
  return text;
}

}  // namespace

std::string memory_bar(double left, double right, const BarStyle& style) {
  const int nodes = cells(left, style.width);
  const int records = std::min(cells(right, style.width), style.width - nodes);
  const char* const full = style.boxes ? "█" : "#";
  const char* const half = style.boxes ? "▓" : "=";
  const char* const empty = style.boxes ? "░" : ".";
  return "[" + colored(run(full, nodes), style.color ? blue : "") +
         run(empty, style.width - nodes - records) + colored(run(half, records), style.color ? cyan : "") +
         "]";
}

}  // namespace zt
