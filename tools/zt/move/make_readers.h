// The makers of the readers, one for each format.
#ifndef CACHET_TOOLS_ZT_MOVE_MAKE_READERS_H
#define CACHET_TOOLS_ZT_MOVE_MAKE_READERS_H

#include "zt/move/row_reader.h"

namespace zt {

std::unique_ptr<RowReader> make_csv_rows(const ReaderOptions& options, const Encoding& encoding,
                                         const Fields& fields, Input& input);
std::unique_ptr<RowReader> make_json_rows(const ReaderOptions& options, const Fields& fields, Input& input);

}  // namespace zt

#endif
