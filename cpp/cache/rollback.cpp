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

const ZtRecord* image_of(const ZtRecordCopy& copy) {
  return reinterpret_cast<const ZtRecord*>(copy.data);
}
ZtRecord* record_of(const ZtRecordCopy& copy) {
  return reinterpret_cast<ZtRecord*>(copy.offset);
}

// Everything but the mark, the counter last.
void restore_all_but_mark(const ZtRecordCopy& copy) {
  ZtRecord* const record = record_of(copy);
  const ZtRecord* const image = image_of(copy);
  std::memcpy(bytes_of(record) + ZT_RECORD_HEADER, bytes_of(image) + ZT_RECORD_HEADER,
              static_cast<std::size_t>(copy.length - ZT_RECORD_HEADER));
  set_id(record, id_of(image));
  set_deleted(record, is_deleted(image));
  set_updateno(record, mark_of(image).updateno);
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

// Readers take a restored counter for an untouched record's, so the epoch tells them: it is raised when every
// record is restored, and only then do the marks clear.
void restore_copies(ZtDbHandle database) {
  Revived revived;
  for (const ZtRecordCopy& copy : database->recordcopy.m_index) {
    const bool was_deleted = is_deleted(record_of(copy));
    restore_all_but_mark(copy);
    if (was_deleted && !is_deleted(record_of(copy))) revived.push_back({copy.tableid, record_of(copy)});
  }
  put_back_into_indexes(database, revived);
  database->lock.RaiseEpoch();
  for (const ZtRecordCopy& copy : database->recordcopy.m_index) {
    set_duty(record_of(copy), mark_of(image_of(copy)).duty);
  }
}

}  // namespace cachet
