#include "zt/move/reject_file.h"

#include <fmt/format.h>

#include "zt/move/row_writer.h"

namespace zt {

RejectFile::RejectFile(const Encoding& encoding, const std::string& file) : encoding_(encoding) {
  if (file.empty()) return;
  file_.emplace(file);
  file_->put("line,column,reason,row\r\n");
}

void RejectFile::put(TextPlace place, const std::string& reason, const std::string& raw) {
  if (!file_) return;
  file_->put(fmt::format("{},{},{},{}\r\n", place.line, place.column, csv_value(encoding_.to_outside(reason)),
                         csv_value(raw)));
}

void RejectFile::finish() {
  if (file_) file_->finish();
}

}  // namespace zt
