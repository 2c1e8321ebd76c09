// The memory of a database as one bar: nodes grow from the left, records from the right, free memory lies between.
#ifndef CACHET_TOOLS_ZT_OUTPUT_BAR_H
#define CACHET_TOOLS_ZT_OUTPUT_BAR_H

#include <string>

namespace zt {

struct BarStyle {
  int width = 50;  // of the bar without its frame
  bool color = false;
  bool boxes = true;  // whether block characters can be shown
};

// Shares of the whole, from 0 to 1. What is not empty shows as one character at least.
std::string memory_bar(double left, double right, const BarStyle& style);

}  // namespace zt

#endif
