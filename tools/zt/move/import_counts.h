// What came of the rows of a file.
#ifndef CACHET_TOOLS_ZT_MOVE_IMPORT_COUNTS_H
#define CACHET_TOOLS_ZT_MOVE_IMPORT_COUNTS_H

#include <cstdint>

namespace zt {

struct ImportCounts {
  std::int64_t rows = 0;  // that were read
  std::int64_t stored = 0;
  std::int64_t refused = 0;
};

}  // namespace zt

#endif
