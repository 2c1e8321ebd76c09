// A row to be built and stored.
#ifndef CACHET_TOOLS_ZT_NEW_ROW_H
#define CACHET_TOOLS_ZT_NEW_ROW_H

#include "zt/database.h"

namespace zt {

class NewRow {
 public:
  explicit NewRow(const Database& database) : database_(database) { ZtCreateRecord(&record_); }
  ~NewRow() { ZtCloseRecord(database_, record_); }
  NewRow(const NewRow&) = delete;
  NewRow& operator=(const NewRow&) = delete;
  operator ZtRecordHandle() const { return record_; }

 private:
  const Database& database_;
  ZtRecordHandle record_ = nullptr;
};

}  // namespace zt

#endif
