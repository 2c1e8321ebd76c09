// The library's own files of one table: it opens, reads and writes them by itself.
#ifndef CACHET_TOOLS_ZT_MOVE_LIBRARY_FILES_H
#define CACHET_TOOLS_ZT_MOVE_LIBRARY_FILES_H

#include <string>

#include "zt/move/format.h"
#include "zt/move/import_counts.h"
#include "zt/table.h"

namespace zt {

// Throws Failure with the library's text.
void export_library_file(const Database& database, const Table& table, FileFormat format,
                         const std::string& file);

// In one transaction. What the library would end an import at in silence is refused beforehand: a line that is too long,
// a length that is wrong, an image of another version or with half a record. A refused row takes all of it back, unless
// it is to keep going; an image, whose keys nobody checks, goes only into an empty table.
ImportCounts import_library_file(const Context& context, const Database& database, const Table& table,
                                 FileFormat format, const std::string& file, bool keep_going);

}  // namespace zt

#endif
