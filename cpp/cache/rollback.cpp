#include "cache/rollback.h"

#include <cstdlib>
#include <cstring>
#include <vector>

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

namespace cachet {

void restore_all_but_mark(const Copy& copy) {
  std::memcpy(bytes_of(copy.record) + ZT_RECORD_HEADER, bytes_of(copy.image) + ZT_RECORD_HEADER,
              static_cast<std::size_t>(copy.length - ZT_RECORD_HEADER));
  set_id(copy.record, id_of(copy.image));
  set_deleted(copy.record, is_deleted(copy.image));
  set_updateno(copy.record, mark_of(copy.image).updateno);
}

void clear_mark(ZtDbHandle database, const Copy& copy, bool duty) {
  set_duty(copy.record, duty);
  unmark_table(catalog_of(database, copy.tableid));
}

void forget_copies(ZtDbHandle database) {
  for (const ZtRecordCopy& copy : database->recordcopy.m_index) std::free(copy.data);
  database->recordcopy.Clear();
  database->undo.clear();
  if (database->shm_recordcopyset == nullptr) return;
  database->shm_recordcopyset->Clear();
  database->shmrcset_index.clear();
  database->shared_undo.clear();
}

void drop_copies_of_abandoned_records(ZtDbHandle database) {
  for_each_copy(database, [&](const Copy& copy) {
    std::vector<int>& tables = database->tables_to_unmark;
    if (tables.empty() || tables.back() != copy.tableid) tables.push_back(copy.tableid);
  });
  forget_copies(database);
}

}  // namespace cachet
