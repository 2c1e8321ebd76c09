// ShmRecordcopySet: the before-images of one process's transaction, in shared memory, so that a survivor can
// roll back for a process that died.
//
// A chain of segments "<name>_rcsetshm_<pid>_<number>" of 128 MiB each forms one space of positions: position
// p lies in segment p / 0x8000000. Segment 0 begins with the header, entries follow from position 16:
//
//   CopySetHeader                  entry, a multiple of 8 bytes, never across two segments
//    0  8  seg_cnt                  0  8  offset    flat offset of the live record
//    8  8  write_pos                8  4  length    of the record bytes
//                                  12  4  tableid
//                                  16  8  data      position of the record bytes: the entry's + 32
//                                  24  8  next      position of the next entry; of the last one, write_pos
//                                  32     the record as it was before the change
//
// What must stay true: everything in front of write_pos is complete, whenever the owner dies. Only the
// process that created the store appends. A reader trusts no byte of it: whatever does not fit ends the walk.
#ifndef CACHET_SHMRECORDCOPYSET_H
#define CACHET_SHMRECORDCOPYSET_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "cachet.h"
#include "ztmem.h"

struct ZtRecord;

#pragma pack(push, 1)
struct CopySetHeader {
  std::int64_t seg_cnt;    // segments created; a Clear leaves it
  std::int64_t write_pos;  // where the next entry goes; 16 when empty
};

// The head of an entry; `length` record bytes follow.
struct CopySetEntry {
  std::int64_t offset;
  std::int32_t length;
  std::int32_t tableid;
  std::int64_t data;
  std::int64_t next;
};
#pragma pack(pop)

static_assert(sizeof(CopySetHeader) == 16 && offsetof(CopySetHeader, write_pos) == 8);
static_assert(sizeof(CopySetEntry) == 32 && offsetof(CopySetEntry, length) == 8);
static_assert(offsetof(CopySetEntry, tableid) == 12 && offsetof(CopySetEntry, data) == 16);
static_assert(offsetof(CopySetEntry, next) == 24);

class CACHET_API ShmRecordcopySet {
 public:
  ShmRecordcopySet();
  // Detaches what is still attached; the segments stay in the system.
  ~ShmRecordcopySet();
  ShmRecordcopySet(const ShmRecordcopySet&) = delete;
  ShmRecordcopySet& operator=(const ShmRecordcopySet&) = delete;

  // Makes this process's empty store. `name`: the database's base path, at most 127 bytes. False, after one
  // line on standard output, when it is longer or the segment cannot be made; false on a set in use.
  bool Create(const char* name);
  // Attaches the store of process `pid`, to walk and to remove it. Later segments may be missing: they keep
  // their place in `shm_segs`, without an address. False, after one line on standard output, without segment
  // 0; false on a set in use.
  bool Open(const char* name, unsigned long pid);

  // Appends `length` bytes of the record. False, with nothing changed, when a segment is needed and cannot be
  // made, when the entry is larger than a segment, and on a set that this process did not create.
  bool PushBack(int tableid, ZtRecord* pRecord, long record_offset, int length);
  // Makes the segment that an entry of this length needs. False where PushBack would be.
  bool Reserve(int length);

  // Walk in push order. An entry is followed by the next one directly or at the next segment's start;
  // anything else, and whatever lies outside the written part of the attached segments, ends the walk. A walk
  // that ends with read_pos_off_ < write_pos has not seen everything.
  void Begin();
  CopySetEntry* GetCurRecordCP();  // null at the end
  ZtRecord* GetCurRecord();        // its record bytes; null at the end
  void MoveNext();

  // Empties the store and removes all segments but the first. In a forked child, which inherited the set,
  // this and Delete only detach everything.
  void Clear();
  // Removes every segment; the set may be created or opened again.
  void Delete();

  // Adds the next segment, AppendSeg its room too. False after one line on standard output.
  bool CreateSeg();
  bool AppendSeg();
  // The address of a position; null outside the attached segments.
  char* GetRaw(long offset);
  unsigned long GetCurPid();
  // Prints positions and addresses on standard output.
  void PrintSetInfo();

  char db_shm_name_[128];
  long read_pos_off_;
  long free_size_;  // bytes from write_pos to the end of the last segment
  long tail_off_;   // position of the last entry, 0 when empty
  CopySetHeader* copyset_header;
  std::vector<Cztshamem> shm_segs;  // in segment order

 private:
  unsigned long creator_pid_;  // 0 in a set that was opened
};

#endif
