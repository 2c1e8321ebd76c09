// Before-images in process memory: one per record, taken when a change first touches it, written back by a
// rollback.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "base/fatal.h"
#include "cache/record.h"
#include "cache/relink.h"
#include "cache/transaction.h"

CZtRecordCopySet::CZtRecordCopySet() = default;
CZtRecordCopySet::~CZtRecordCopySet() = default;

bool CZtRecordCopySet::Find(ZtRecordCopy& copy) {
  const auto entry = m_index.find(copy);
  if (entry == m_index.end()) return false;
  copy = *entry;
  return true;
}

void CZtRecordCopySet::Add(ZtRecordCopy& copy) {
  Erase(copy);
  m_index.insert(copy);
}

void CZtRecordCopySet::Erase(ZtRecordCopy& copy) {
  m_index.erase(copy);
}

void CZtRecordCopySet::Clear() {
  m_index.clear();
}

void ZtSaveRecord(ZtDbHandle database, int tableid, ZtRecord* record, int length) {
  ZtRecordCopy copy{reinterpret_cast<ZTINT8>(record), length, tableid, nullptr};
  if (database->recordcopy.Find(copy)) return;
  copy.data = static_cast<char*>(std::malloc(static_cast<std::size_t>(length)));
  if (copy.data == nullptr) cachet::fatal::out_of_heap(cachet::fatal::before_image_line);
  std::memcpy(copy.data, record, static_cast<std::size_t>(length));
  database->recordcopy.Add(copy);
}

namespace cachet {

namespace {

// Data first, then the header's `deleted` and `updateno`, the mark last: whoever sees a clear mark sees all
// of it.
void write_back(const ZtRecordCopy& copy) {
  auto* const record = reinterpret_cast<ZtRecord*>(copy.offset);
  const auto* const image = reinterpret_cast<const ZtRecord*>(copy.data);
  std::memcpy(bytes_of(record) + ZT_RECORD_HEADER, bytes_of(image) + ZT_RECORD_HEADER,
              static_cast<std::size_t>(copy.length - ZT_RECORD_HEADER));
  set_id(record, id_of(image));
  set_deleted(record, is_deleted(image));
  set_updateno(record, mark_of(image).updateno);
  set_duty(record, mark_of(image).duty);
}

}  // namespace

void forget_copies(ZtDbHandle database) {
  for (const ZtRecordCopy& copy : database->recordcopy.m_index) std::free(copy.data);
  database->recordcopy.Clear();
}

void drop_copies_of_abandoned_records(ZtDbHandle database) {
  for (const ZtRecordCopy& copy : database->recordcopy.m_index) {
    std::vector<int>& tables = database->tables_to_unmark;
    if (tables.empty() || tables.back() != copy.tableid) tables.push_back(copy.tableid);
  }
  forget_copies(database);
}

void restore_copies(ZtDbHandle database) {
  Revived revived;
  for (const ZtRecordCopy& copy : database->recordcopy.m_index) {
    auto* const record = reinterpret_cast<ZtRecord*>(copy.offset);
    const bool was_deleted = is_deleted(record);
    write_back(copy);
    if (was_deleted && !is_deleted(record)) revived.push_back({copy.tableid, record});
  }
  put_back_into_indexes(database, revived);
}

}  // namespace cachet
