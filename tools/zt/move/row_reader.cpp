#include "zt/move/row_reader.h"

#include "zt/move/make_readers.h"

namespace zt {

std::unique_ptr<RowReader> make_row_reader(const ReaderOptions& options, const Encoding& encoding,
                                           const Fields& fields, Input& input) {
  if (options.format == FileFormat::json_lines) return make_json_rows(options, fields, input);
  return make_csv_rows(options, encoding, fields, input);
}

std::string names_of(const Fields& fields) {
  std::string names;
  for (int id = 0; id < fields.count(); ++id) names += (id > 0 ? ", " : "") + fields.name(id);
  return names;
}

}  // namespace zt
