// The rows that an import refuses, for whoever mends them: CSV of line, column, reason and the row as it was.
#ifndef CACHET_TOOLS_ZT_MOVE_REJECT_FILE_H
#define CACHET_TOOLS_ZT_MOVE_REJECT_FILE_H

#include <optional>
#include <string>

#include "zt/move/output_file.h"
#include "zt/move/text_place.h"
#include "zt/output/encoding.h"

namespace zt {

class RejectFile {
 public:
  // Without a file's name nothing is written. `encoding` outlives it.
  RejectFile(const Encoding& encoding, const std::string& file);

  bool is_wanted() const { return file_.has_value(); }
  void put(TextPlace place, const std::string& reason, const std::string& raw);
  // Gives the file its name, also when nothing was refused: then it is empty but for its head.
  void finish();

 private:
  const Encoding& encoding_;
  std::optional<OutputFile> file_;
};

}  // namespace zt

#endif
