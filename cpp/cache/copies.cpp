#include "cache/copies.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "base/fatal.h"
#include "base/features.h"
#include "cache/error.h"

namespace cachet {

namespace {

bool no_room(ZtDbHandle database) {
  return report(database, ZT_ERR_GENERAL, message::create_copies_failed, database->lock_name.c_str());
}

[[maybe_unused]] void keep_in_set(ZtDbHandle database, int tableid, ZtRecord* record, int length) {
  ZtRecordCopy copy{reinterpret_cast<ZTINT8>(record), length, tableid, nullptr};
  if (database->recordcopy.Find(copy)) return;
  copy.data = static_cast<char*>(std::malloc(static_cast<std::size_t>(length)));
  if (copy.data == nullptr) fatal::out_of_heap(fatal::before_image_line);
  std::memcpy(copy.data, record, static_cast<std::size_t>(length));
  database->recordcopy.Add(copy);
}

void keep_locally(ZtDbHandle database, int tableid, ZtRecord* record, int length) {
  if constexpr (features::flat_undo) {
    database->undo.keep(bytes_of(record), length, tableid);
  } else {
    keep_in_set(database, tableid, record, length);
  }
}

// The records whose images the shared store has.
bool note_as_shared(ZtDbHandle database, ZtRecord* record) {
  if constexpr (features::flat_undo) return database->shared_undo.insert(record);
  return database->shmrcset_index.insert(reinterpret_cast<long long>(record)).second;
}

void forget_as_shared(ZtDbHandle database, ZtRecord* record) {
  if constexpr (features::flat_undo) {
    database->shared_undo.erase_latest(record);
  } else {
    database->shmrcset_index.erase(reinterpret_cast<long long>(record));
  }
}

bool keep_in_shared_store(ZtDbHandle database, int tableid, ZtRecord* record, int length) {
  if (!note_as_shared(database, record)) return true;
  const auto offset = static_cast<long>(value_of(offset_of(&database->base, record)));
  if (database->shm_recordcopyset->PushBack(tableid, record, offset, length)) return true;
  forget_as_shared(database, record);
  return no_room(database);
}

}  // namespace

bool keep_before_image(ZtDbHandle database, int tableid, ZtRecord* record, int length) {
  try {
    if (database->shm_recordcopyset != nullptr) {
      return keep_in_shared_store(database, tableid, record, length);
    }
    keep_locally(database, tableid, record, length);
    return true;
  } catch (const std::bad_alloc&) {
    fatal::out_of_heap(fatal::before_image_line);
  }
}

bool reserve_before_image(ZtDbHandle database, int length) {
  return database->shm_recordcopyset == nullptr || database->shm_recordcopyset->Reserve(length) ||
         no_room(database);
}

}  // namespace cachet

void ZtSaveRecord(ZtDbHandle database, int tableid, ZtRecord* record, int length) {
  cachet::keep_before_image(database, tableid, record, length);
}
