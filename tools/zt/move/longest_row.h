// How long a row of a text file may be: longer than any record, and short enough to be kept in memory.
#ifndef CACHET_TOOLS_ZT_MOVE_LONGEST_ROW_H
#define CACHET_TOOLS_ZT_MOVE_LONGEST_ROW_H

#include <cstddef>

namespace zt {

inline constexpr std::size_t longest_row_bytes = 16 << 20;

}  // namespace zt

#endif
