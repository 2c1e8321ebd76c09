#include "cache/copies.h"

#include <cstdlib>
#include <cstring>

#include "base/fatal.h"
#include "cache/error.h"

namespace cachet {

namespace {

bool no_room(ZtDbHandle database) {
  return report(database, ZT_ERR_GENERAL, message::create_copies_failed, database->lock_name.c_str());
}

void keep_locally(ZtDbHandle database, int tableid, ZtRecord* record, int length) {
  ZtRecordCopy copy{reinterpret_cast<ZTINT8>(record), length, tableid, nullptr};
  if (database->recordcopy.Find(copy)) return;
  copy.data = static_cast<char*>(std::malloc(static_cast<std::size_t>(length)));
  if (copy.data == nullptr) fatal::out_of_heap(fatal::before_image_line);
  std::memcpy(copy.data, record, static_cast<std::size_t>(length));
  database->recordcopy.Add(copy);
}

}  // namespace

bool keep_before_image(ZtDbHandle database, int tableid, ZtRecord* record, int length) {
  if (database->shm_recordcopyset == nullptr) {
    keep_locally(database, tableid, record, length);
    return true;
  }
  const auto [place, is_new] = database->shmrcset_index.insert(reinterpret_cast<long long>(record));
  if (!is_new) return true;
  const auto offset = static_cast<long>(value_of(offset_of(&database->base, record)));
  if (database->shm_recordcopyset->PushBack(tableid, record, offset, length)) return true;
  database->shmrcset_index.erase(place);
  return no_room(database);
}

bool reserve_before_image(ZtDbHandle database, int length) {
  return database->shm_recordcopyset == nullptr || database->shm_recordcopyset->Reserve(length) ||
         no_room(database);
}

}  // namespace cachet

void ZtSaveRecord(ZtDbHandle database, int tableid, ZtRecord* record, int length) {
  cachet::keep_before_image(database, tableid, record, length);
}
