// Rows of a table as lines of a text file.
#ifndef CACHET_TOOLS_ZT_MOVE_ROW_WRITER_H
#define CACHET_TOOLS_ZT_MOVE_ROW_WRITER_H

#include <memory>
#include <string>
#include <vector>

#include "zt/move/format.h"
#include "zt/output/rows.h"

namespace zt {

class RowWriter {
 public:
  RowWriter() = default;
  RowWriter(const RowWriter&) = delete;
  RowWriter& operator=(const RowWriter&) = delete;
  virtual ~RowWriter() = default;

  // The line before all rows, and a row's own; each with its end, in the encoding of the file. Throw Failure for a text
  // that the encoding lacks.
  virtual std::string head() = 0;
  virtual std::string line(const Row& cells) = 0;
};

// `encoding` outlives it.
std::unique_ptr<RowWriter> make_row_writer(FileFormat format, const Encoding& encoding,
                                           std::vector<Column> columns);

// One value of CSV: in quotes when it needs them.
std::string csv_value(const std::string& text);

}  // namespace zt

#endif
