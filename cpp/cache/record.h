// The shared words of stored records and of a table's catalog record. A record may lie at any alignment.
#ifndef CACHET_CPP_CACHE_RECORD_H
#define CACHET_CPP_CACHE_RECORD_H

#include "caches.h"

namespace cachet {

// What readers compare: the flag of a change under way, and the counter of changes.
struct ChangeMark {
  int updateno;
  bool duty;
  bool operator==(const ChangeMark&) const = default;
};

// `updateno` before `duty`: a writer sets the flag first and then counts, so that this order never pairs a
// clear flag with the count of a change that is still under way.
[[gnu::always_inline]] inline ChangeMark mark_of(const Rb_tablename* table) noexcept {
  const int updateno = load_acquire<int>(&table->updateno);
  return {updateno, load_acquire<char>(&table->duty) != 0};
}

inline char* bytes_of(ZtRecord* record) noexcept {
  return reinterpret_cast<char*>(record);
}
inline const char* bytes_of(const ZtRecord* record) noexcept {
  return reinterpret_cast<const char*>(record);
}

inline ChangeMark mark_of(const ZtRecord* record) noexcept {
  const int updateno = load_acquire_unaligned<int>(bytes_of(record) + offsetof(ZtRecord, updateno));
  return {updateno, load_acquire<char>(&record->duty) != 0};
}

inline void set_duty(ZtRecord* record, bool on) noexcept {
  store_release<char>(&record->duty, on ? 1 : 0);
}
inline void set_updateno(ZtRecord* record, int updateno) noexcept {
  store_release_unaligned<int>(bytes_of(record) + offsetof(ZtRecord, updateno), updateno);
}

inline bool is_deleted(const ZtRecord* record) noexcept {
  return load_acquire<char>(&record->deleted) == 1;
}
inline void set_deleted(ZtRecord* record, bool on) noexcept {
  store_release<char>(&record->deleted, on ? 1 : 0);
}

inline ZTINT8 id_of(const ZtRecord* record) noexcept {
  return load_unaligned<ZTINT8>(record);
}
inline void set_id(ZtRecord* record, ZTINT8 id) noexcept {
  store_unaligned<ZTINT8>(record, id);
}

inline char* field_bytes(ZtRecord* record, const ZtDataField& field) noexcept {
  return bytes_of(record) + ZT_RECORD_HEADER + field.offset;
}

inline int stored_bytes(const ZtTable& table) noexcept {
  return table.recordlength + ZT_RECORD_HEADER;
}

inline ZtRecord* record_at(const Rb_base* base, std::int64_t offset) noexcept {
  return reinterpret_cast<ZtRecord*>(address_of(base, FlatOffset{offset}));
}

inline Rb_tablename* catalog_of(const ZtDb* database, int tableid) noexcept {
  return database->base.table + tableid;
}

// Marks the table changed, once between two commits: read-only readers keep out until the mark is gone.
inline void mark_table(Rb_tablename* table) noexcept {
  if (load_relaxed<char>(&table->duty) != 0) return;
  store_release<char>(&table->duty, 1);
  store_release<int>(&table->updateno, load_relaxed<int>(&table->updateno) + 1);
}

inline void unmark_table(Rb_tablename* table) noexcept {
  if (load_relaxed<char>(&table->duty) == 1) store_release<char>(&table->duty, 0);
}

}  // namespace cachet

#endif
