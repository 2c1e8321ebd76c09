// Row and Place: owners of the library's record and condition handles, and finding a record by its id.
#ifndef CACHET_TOOLS_ZTMANAGER_REQUESTS_ROWS_H
#define CACHET_TOOLS_ZTMANAGER_REQUESTS_ROWS_H

#include <cstdlib>

#include "caches.h"

namespace manager {

class Row {
 public:
  explicit Row(ZtDbHandle handle) : handle_(handle) { ZtCreateRecord(&row_); }
  // A new row that was not stored is the caller's to free.
  ~Row() {
    if (row_->newrow) std::free(row_->record);
    ZtCloseRecord(handle_, row_);
  }
  Row(const Row&) = delete;
  Row& operator=(const Row&) = delete;

  operator ZtRecordHandle() const { return row_; }
  ZtRecordRow* operator->() const { return row_; }

 private:
  ZtDbHandle handle_;
  ZtRecordHandle row_ = nullptr;
};

class Place {
 public:
  Place() { ZtCreateCondition(1, &condition_); }
  ~Place() { ZtCloseCondition(condition_); }
  Place(const Place&) = delete;
  Place& operator=(const Place&) = delete;

  operator ZtConditionHandle() const { return condition_; }

 private:
  ZtConditionHandle condition_ = nullptr;
};

// Puts the live record with this id into the row, to be changed. Otherwise, and on a handle that may not write, the row
// names the table and no record, which the library refuses to change in its own words.
inline void find_to_change(ZtDbHandle handle, int tableid, int recordid, const Row& row) {
  const Place place;
  const bool found = handle->base.mode == ZT_MODE_READ_WRITE &&
                     ZtGotoRecord(handle, tableid, recordid, place) && ZtGetRecord(handle, place, row) &&
                     ZtGetRecordId(handle, row) == recordid;
  if (!found) row->record = nullptr;
  row->tableid = tableid;
}

}  // namespace manager

#endif
