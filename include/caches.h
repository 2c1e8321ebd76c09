// The record behind a database handle, the per-process descriptors, the stored records and keys, and the
// calls that the parts of the library (and programs built on its internals) share.
#ifndef CACHET_CACHES_H
#define CACHET_CACHES_H

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "accelerate_hints.h"
#include "accelerate_levels.h"
#include "cachet.h"
#include "rb.h"
#include "rb_insert.h"
#include "rwlock.h"
#include "rwspinlock.h"
#include "shmrecordcopyset.h"
#include "undo_array.h"

/* ---- descriptors: process-local, index = id ---- */

struct ZtDataField {
  signed char type = 0;
  signed char decimal = 0;
  unsigned char indexed = 0;  // belongs to an index: cannot be changed in a stored record
  unsigned char reverse = 0;
  short offset = 0;  // in the data part of the record
  unsigned short length = 0;
  char name[128] = {};
};

struct ZtIndexDescrible {
  std::vector<int> indexdescrible;  // field ids, most significant first
  int indextype = 0;                // 1 = unique
  char name[128] = {};
};

struct ZtTable {
  char name[128] = {};
  int recordlength = 0;
  int maxindexfield = 0;
  std::vector<ZtDataField> fielddescrible;
  std::vector<ZtIndexDescrible> indexdescrible;
  std::vector<Rb_node> indexs;  // head of each index tree
  Rb_node listindex = nullptr;  // head of the record-id tree

  // What this process keeps of each index tree, for speed; searches fill it.
  mutable std::vector<cachet::HintTable> hints;
  mutable std::vector<cachet::PackedLevels> levels;
};

/* ---- records in the shared memory: packed, at any alignment ---- */

#pragma pack(push, 1)

struct ZtRecord {
  ZTINT8 recordid;  //  0  -1 in a row that was never stored
  int updateno;     //  8  raised once per change cycle
  char duty;        // 12  1 = changed in place, not committed
  char deleted;     // 13
  char data[1];     // 14  `recordlength` bytes
};

// One field of a key. In the shared memory `data` is a flat offset, in a condition an address.
struct ZtIndexField {
  char* data;             //  0
  signed char type;       //  8
  unsigned char reverse;  //  9
  short length;           // 10  bytes, up to 65535 as the unsigned value
};

// A key. A stored one (sharememory = 1) heads the two lists of the records that carry it:
//
//   ZtIndexItem            ZtIndexNode      ZtIndexNode      ZtIndexNode
//   originhead ----------> originnext ----> originnext ----> 0
//   curenthead ----------> curentnext --------------------> 0
//
// Likewise back from the tails by originprev and curentprev. The second record is deleted, and a cursor has
// unlinked it from the current list.
struct ZtIndexItem {
  ZtIndexField* index;        //  0  address, or flat offset in the shared memory
  signed char point;          //  8  fields filled in; only these are compared
  signed char count;          //  9  capacity
  unsigned char sharememory;  // 10
  unsigned char reverse;      // 11
  std::uint32_t originhead;   // 12  node numbers, 0 = none
  std::uint32_t origintail;   // 16
  std::uint32_t curenthead;   // 20
  std::uint32_t curenttail;   // 24
};

// One record under a key, in a 32-byte slot of the node area.
struct ZtIndexNode {
  std::int64_t precord;      //  0  flat offset of the record
  std::uint32_t originnext;  //  8
  std::uint32_t originprev;  // 12
  std::uint32_t curentnext;  // 16
  std::uint32_t curentprev;  // 20
};

// Key (and value) of the record-id tree.
struct ZtListItem {
  ZTINT8 recordid;       // 0
  std::int64_t precord;  // 8  flat offset of the record
};

#pragma pack(pop)

enum : int { ZT_RECORD_HEADER = 14 };

static_assert(offsetof(ZtRecord, updateno) == 8 && offsetof(ZtRecord, duty) == 12);
static_assert(offsetof(ZtRecord, deleted) == 13 && offsetof(ZtRecord, data) == ZT_RECORD_HEADER);
static_assert(sizeof(ZtIndexField) == 12 && offsetof(ZtIndexField, length) == 10);
static_assert(sizeof(ZtIndexItem) == 28 && offsetof(ZtIndexItem, point) == 8);
static_assert(offsetof(ZtIndexItem, sharememory) == 10 && offsetof(ZtIndexItem, curenttail) == 24);
static_assert(sizeof(ZtIndexNode) == 24 && offsetof(ZtIndexNode, curentprev) == 20);
static_assert(sizeof(ZtListItem) == 16);

/* ---- process-local handles ---- */

namespace cachet {
// What a row that was read keeps of its table, so that the next reads look up neither table nor field. It counts on the
// handle that has the same number (ZtDb::schema). There, the row's `record` is what the handle's mode makes of a stored
// record: a private copy with room for `record_bytes`, or the stored record itself.
struct RowShape {
  std::uint64_t schema = 0;             // 0: nothing is kept
  const ZtDataField* fields = nullptr;  // of the table
  std::size_t field_count = 0;
  int record_bytes = 0;  // header and fields
};
}  // namespace cachet

struct ZtRecordRow {
  ZtRecord* record = nullptr;  // private buffer (newrow, or a read-only copy), or the stored record
  int tableid = 0;
  bool newrow = false;
  int copied_bytes = 0;  // room of `record` when it is a private copy of a stored record, owned by this row
  cachet::RowShape shape;
};

namespace cachet {
// Heap memory for one value of a condition's key.
struct ValueBlock {
  char* data = nullptr;
  std::size_t bytes = 0;
};
}  // namespace cachet

struct ZtCondition {
  int op = 0;
  ZtIndexItem indexitem = {};
  Rb_node begin = nullptr;  // smallest key of the walk
  Rb_node point = nullptr;  // where the cursor stands
  Rb_node end = nullptr;    // largest key, inclusive
  ZtIndexNode* nodepoint = nullptr;
  std::int64_t precord = 0;
  int tableid = 0;
  int indexid = 0;
  bool overfull = false;                 // key fields were dropped; the next find refuses
  cachet::ValueBlock* blocks = nullptr;  // one for each field that the key has room for
  cachet::ExpectedHint expected;
};

/* ---- rollback copies ---- */

struct ZtRecordCopy {
  ZTINT8 offset;  // address of the live record (process-local store)
  int length;
  int tableid;
  char* data;
};

struct ZtRecordCopyComp {
  bool operator()(const ZtRecordCopy& a, const ZtRecordCopy& b) const { return a.offset < b.offset; }
};
typedef std::set<ZtRecordCopy, ZtRecordCopyComp> ZtRecordCopySet;

// The process-local store, one copy per record. Never frees the copies' bytes: commit and rollback do.
class CACHET_API CZtRecordCopySet {
 public:
  CZtRecordCopySet();
  virtual ~CZtRecordCopySet();
  // Looks an entry up by `offset` and completes the argument from it.
  bool Find(ZtRecordCopy& copy);
  // Replaces the entry with the same offset.
  void Add(ZtRecordCopy& copy);
  void Erase(ZtRecordCopy& copy);
  void Clear();

  ZtRecordCopySet m_index;
};

/* ---- the handle ---- */

namespace cachet {
// Where a key belongs in one index's tree; scratch of an insert.
struct IndexPlace {
  Rb_node node = nullptr;
  bool found = false;
  Separator separator;  // for the internal node that is made when the key enters there
};

class RowsAhead;
}  // namespace cachet

struct ZtDb {
  Rb_base base;  // first: a handle serves wherever an Rb_base is expected
  std::vector<ZtTable> database;
  ZtErrorHandle errhandle = nullptr;
  Crwspinlock lock;
  RWLock* flock = nullptr;
  std::set<long long> locks;  // positions this handle holds
  CZtRecordCopySet recordcopy;
  int lasterrno = 0;
  char lasterrmsg[ZT_ERRMSG_SIZE] = {};
  bool opened = false;
  ShmRecordcopySet* shm_recordcopyset = nullptr;
  int shmrcset_mode = 0;
  std::set<long long> shmrcset_index;
  int reuse_shmmap = 0;

  // The handle's own state, behind the documented fields.
  std::string lock_name;                          // base path of the lock's and the store's key files
  int creator_pid = 0;                            // who made the handle; a forked child is somebody else
  std::uint64_t schema = 0;                       // new, and nobody else's, with the handle and every field
  cachet::UndoArray undo;                         // in place of `recordcopy`
  cachet::AddressSet shared_undo;                 // in place of `shmrcset_index`
  std::set<long long>::node_type spare_lock;      // of `locks`, for the next position
  std::vector<int> tables_to_unmark;              // marked tables whose copies a reset dropped
  std::vector<cachet::IndexPlace> index_places;   // scratch of an insert
  bool has_provided_nonces = false;               // once, in its first transaction
  std::vector<signed char> standings;             // scratch of a search for many keys
  std::vector<cachet::LearntHint> learnt_hints;   // likewise
  std::shared_ptr<cachet::RowsAhead> rows_ahead;  // of the last walk, once there was one
};

/* ---- internal calls ---- */

CACHET_API extern const char VEMRO_BULID_VERSION[];

// Formats by the printf rules and reports: keeps code and text, then calls the callback or prints one line.
CACHET_API void ZtSetError(ZtDbHandle database, int errcode, const char* format, ...);

// Attaches a database known to be complete, and loads catalog and heads; no file lock, no version check.
CACHET_API bool ZtConnectDb(ZtDbHandle* database, const char* path, const char* name, int mode);

// Compare keys (ZtIndexItem) and record ids (ZtListItem). POSITIVE when key1 orders before key2: the trees
// run from the largest key to the smallest. Only key1's types count, and only the fields that both keys have.
CACHET_API int ZtComp(Rb_base* base, void* key1, void* key2);
CACHET_API int ZtComp2(Rb_base* base, void* key1, void* key2);

// Rounds half away from zero to `dec` places, with a bias of a ten-thousandth of the last place.
CACHET_API void Fjust(double& value, int dec);

// Stores a row whose buffer already lies in the data area (recordlength + 14 bytes); no unique check.
CACHET_API bool ZtPutRecord2(ZtDbHandle database, ZtRecordHandle recordrow);
// Registers a row that a loader placed in the data area; not transactional, leaves the row as it was.
CACHET_API bool ZtLoadRecord(ZtDbHandle database, ZtRecordHandle recordrow);
// Keeps the record's bytes for rollback, the first time only.
CACHET_API void ZtSaveRecord(ZtDbHandle database, int tableid, ZtRecord* record, int length);

// Read one line of a table file, of at most `buffersize` bytes, into `buffer` (one byte more, for the NUL)
// and leave the descriptor right behind it. False at the end of the file, and for a line that is too long. A
// text line loses the white space before it, and blank lines do not count; of a binary line the length prefix
// and the NUL do.
CACHET_API bool ReadTableTxtFileLine(int fhandle, char* buffer, int buffersize);
CACHET_API bool ReadTableBinaryFileLine(int fhandle, char* buffer, int buffersize);
// Copies the value of the first `tag=value` pair in the line, which begins at its start or behind a blank, a
// tab or a ";" and ends before the next ";", to `value`, as long as the line at most. False, and nothing
// copied, when there is none.
CACHET_API bool ReadTableTxtFileLineValue(char* buffer, char* tag, char* value);

// Positions 0 and 1 of the lock page, at most once per handle: read level for mode 1, write level for mode 2.
CACHET_API bool ZtLockPosition(ZtDbHandle database, int p);
CACHET_API void ZtUnLockPosition(ZtDbHandle database, int p);
CACHET_API void ZtUnLock(ZtDbHandle database);

// Cursor steps return a code (1 stands, 2 exhausted, 3 and 4 unlink and go on, 5 and 6 step again); loops run
// the steps until 1 or 2. The Move forms begin by unlinking the deleted record the cursor stands on.
CACHET_API int ZtInNextRecord(ZtDbHandle database, ZtConditionHandle condition);
CACHET_API int ZtInPrevRecord(ZtDbHandle database, ZtConditionHandle condition);
CACHET_API int ZtInMoveNextRecord(ZtDbHandle database, ZtConditionHandle condition);
CACHET_API int ZtInMovePrevRecord(ZtDbHandle database, ZtConditionHandle condition);
CACHET_API bool ZtNextLoop(ZtDbHandle database, ZtConditionHandle condition);
CACHET_API bool ZtPrevLoop(ZtDbHandle database, ZtConditionHandle condition);
CACHET_API bool ZtMoveNextLoop(ZtDbHandle database, ZtConditionHandle condition);
CACHET_API bool ZtMovePrevLoop(ZtDbHandle database, ZtConditionHandle condition);
CACHET_API bool ZtMoveNextRecord(ZtDbHandle database, ZtConditionHandle condition);
CACHET_API bool ZtMovePrevRecord(ZtDbHandle database, ZtConditionHandle condition);

/* ---- what an isolated handle asks its manager for ----
 * One exchange each, without a lock: one thread at a time on a handle. False, reported, when it failed or was refused;
 * the insert, the update and the loads report the manager's code and text, the others that the command does not match.
 * ZT_ERR_GENERAL, and nothing sent, for a file name of 256 bytes or more and a row or value that does not fit a frame. */

// Over the connected TCP channel; opens the mailbox that the answer names.
CACHET_API bool ZtLoginRemote(ZtDbHandle database);
CACHET_API bool ZtRemoteBeginTransaction(ZtDbHandle database);
CACHET_API bool ZtRemoteCommitTransaction(ZtDbHandle database);
CACHET_API bool ZtRemoteRollbackTransaction(ZtDbHandle database);
// `data`: the record's `recordlen` bytes behind its header. `offset`: where it was stored, as the manager says.
CACHET_API bool ZtRemoteInsert(ZtDbHandle database, int tableid, int recordlen, char* data,
                               unsigned long* offset);
CACHET_API bool ZtRemoteUpdate(ZtDbHandle database, int tableid, int rowid, int colid, int collength,
                               char* data);
CACHET_API bool ZtRemoteDelete(ZtDbHandle database, int tableid, int rowid);
CACHET_API bool ZtRemoteResetDb(ZtDbHandle database);
// Files of the manager's file system, as it sees it.
CACHET_API bool ZtRemoteReadDbDir(ZtDbHandle database, char* path);
CACHET_API bool ZtRemoteReadDbTable(ZtDbHandle database, int tableid, char* tablefile);
CACHET_API bool ZtRemoteReadDbFile(ZtDbHandle database, char* filename);
CACHET_API bool ZtRemoteLock(ZtDbHandle database);
CACHET_API bool ZtRemoteUnLock(ZtDbHandle database);

#endif
