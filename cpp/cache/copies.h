// The before-images of a handle, in whichever store it keeps them, and those of a dead process.
#ifndef CACHET_CPP_CACHE_COPIES_H
#define CACHET_CPP_CACHE_COPIES_H

#include "cache/record.h"
#include "shmrecordcopyset.h"

namespace cachet {

struct Copy {
  ZtRecord* record;  // the live record
  const ZtRecord* image;
  int length;
  int tableid;
};

// Keeps the record's bytes, the first time only. False, reported, when the store has no room for them.
bool keep_before_image(ZtDbHandle database, int tableid, ZtRecord* record, int length);

// Whether the handle keeps any.
inline bool has_copies(const ZtDb* database) {
  const ShmRecordcopySet* const store = database->shm_recordcopyset;
  return !database->undo.empty() || !database->recordcopy.m_index.empty() ||
         (store != nullptr && store->tail_off_ != 0);
}

// Makes sure that the next before-image of this length can be kept. False, reported, when not.
bool reserve_before_image(ZtDbHandle database, int length);

// Calls `each(Copy)` for every copy that the handle has in this process, by address.
template <class Each>
void for_each_local_copy(ZtDbHandle database, const Each& each) {
  for (const UndoArray::Entry& entry : database->undo.in_order()) {
    each(Copy{reinterpret_cast<ZtRecord*>(entry.record), reinterpret_cast<const ZtRecord*>(entry.image),
              entry.length, entry.tableid});
  }
  for (const ZtRecordCopy& copy : database->recordcopy.m_index) {
    each(Copy{reinterpret_cast<ZtRecord*>(copy.offset), reinterpret_cast<const ZtRecord*>(copy.data),
              copy.length, copy.tableid});
  }
}

// Calls `each(Copy)` for every copy in a shared store, in push order. False when the store is damaged; entries that do
// not fit this database are left out.
template <class Each>
bool for_each_shared_copy(ZtDbHandle database, ShmRecordcopySet& store, const Each& each) {
  const Rb_base* const base = &database->base;
  for (store.Begin(); const CopySetEntry* const entry = store.GetCurRecordCP(); store.MoveNext()) {
    const auto tableid = static_cast<std::size_t>(entry->tableid);
    if (entry->tableid < 0 || tableid >= database->database.size()) continue;
    if (entry->length != stored_bytes(database->database[tableid])) continue;
    if (!is_data(base, entry->offset, entry->length)) continue;
    each(Copy{record_at(base, entry->offset), store.GetCurRecord(), entry->length, entry->tableid});
  }
  return store.copyset_header == nullptr || store.read_pos_off_ >= store.copyset_header->write_pos;
}

// Every copy that the handle keeps, wherever.
template <class Each>
void for_each_copy(ZtDbHandle database, const Each& each) {
  if (database->shm_recordcopyset != nullptr)
    for_each_shared_copy(database, *database->shm_recordcopyset, each);
  for_each_local_copy(database, each);
}

}  // namespace cachet

#endif
