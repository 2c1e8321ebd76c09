// Rows of a text file as values for the fields of one table, whatever the file's format.
//
// What must stay true: every field of a row that is handed out has one value, unless the reader is lenient.
#ifndef CACHET_TOOLS_ZT_MOVE_ROW_READER_H
#define CACHET_TOOLS_ZT_MOVE_ROW_READER_H

#include <memory>
#include <string>
#include <vector>

#include "zt/fields.h"
#include "zt/move/format.h"
#include "zt/move/input.h"

namespace zt {

struct InputValue {
  int field = 0;
  std::string utf8;
  TextPlace place;
};

class RowReader {
 public:
  RowReader() = default;
  RowReader(const RowReader&) = delete;
  RowReader& operator=(const RowReader&) = delete;
  virtual ~RowReader() = default;

  // Goes on to the next row; false at the end. Throws BadRow when it is none, and can go on then; BrokenText when there
  // is no going on.
  virtual bool next() = 0;
  // The present row, also one that was refused: its values, where it begins, and its bytes in the file.
  virtual const std::vector<InputValue>& values() const = 0;
  virtual TextPlace place() const = 0;
  virtual const std::string& raw() const = 0;
};

struct ReaderOptions {
  FileFormat format = FileFormat::csv;
  // Fields that the file does not have, and empty values and nulls of numbers, become 0 or empty; what the table does
  // not have is skipped.
  bool lenient = false;
};

// All of them outlive the reader. Throws BrokenText when the file's head does not fit the table, UsageError for an
// encoding that cannot be read.
std::unique_ptr<RowReader> make_row_reader(const ReaderOptions& options, const Encoding& encoding,
                                           const Fields& fields, Input& input);

// "a, b and c", for messages.
std::string names_of(const Fields& fields);

}  // namespace zt

#endif
