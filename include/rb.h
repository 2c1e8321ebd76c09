// The shared-memory view of one database: its segments, the records at the start of the flat space, the
// allocator, and the leaf-oriented red-black trees.
//
// The flat space is one run of bytes, cut into segments of 1 GiB that lie at other addresses in every process:
//
//   0        192               memoryheadsize                                                        size
//   +--------+-----------------+----------------------+ - - - - - - - +----------------------------------+
//   | header | catalog         | tree nodes       --> |     free      | <--  records, items, key blocks  |
//   +--------+-----------------+----------------------+ - - - - - - - +----------------------------------+
//                                                     nodeoffset      dataoffset
//
// Positions are flat offsets or node numbers (flat offset / 32; 0 = no link), never addresses. This header is
// the only place that turns one into the other, and the only one that casts addresses to the records below.
#ifndef CACHET_RB_H
#define CACHET_RB_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "cachet.h"
#include "memchanel.h"
#include "shared_word.h"
#include "tcpchanel.h"

#pragma pack(push, 1)

// Flat offset 0.
struct Rb_memory {
  char name[80];            //   0  base path of the key files, as composed by the creator
  char version[32];         //  80  22 bytes of the creator's text, then zeros
  ZTINT8 transactioncount;  // 112  reserved
  ZTINT8 size;              // 120  bytes of the flat space
  ZTINT8 nodeoffset;        // 128  first free byte of the node area
  ZTINT8 dataoffset;        // 136  lowest used byte of the data area
  ZTINT8 rb_count;          // 144  tree heads made
  ZTINT8 tablecount;        // 152
  ZTINT8 fieldcount;        // 160
  ZTINT8 indexcount;        // 168
  ZTINT8 indexfieldcount;   // 176
  ZTINT8 memoryheadsize;    // 184  bytes of header and catalog
};

// Catalog, behind the header and without gaps: tables, index names, fields, index fields.
struct Rb_tablename {
  char name[79];    //  0
  char duty;        // 79  1 = changed since the last commit
  int updateno;     // 80  raised each time duty goes from 0 to 1
  int tableid;      // 84
  int recordcount;  // 88  records ever inserted, and the next record id
  int reverse;      // 92
};

struct Rb_indexname {
  char name[80];  //  0
  int type;       // 80
  int indexid;    // 84
  int tableid;    // 88
  int reverse;    // 92
};

struct Rb_tablefield {
  int tableid;         //   0
  int fieldid;         //   4
  char fieldname[80];  //   8
  int type;            //  88
  int length;          //  92
  int decimal;         //  96
  int reverse;         // 100
};

struct Rb_indexfield {
  int tableid;  //  0
  int indexid;  //  4
  int fieldid;  //  8
  int reverse;  // 12
};

// A tree node, in a 32-byte slot. External nodes carry keys and are threaded into a list in tree order with
// the head as sentinel; internal nodes only route.
//
//   byte       0            4            8         12   13              21
//             +------------+------------+---------+----+---------------+---------------+
//   external  | list.flink | list.blink | parent  | s  | key (8)       | val (8)       |
//   internal  | child.left | child.right| parent  | s  | lext (4) 0 (4)| rext (4) 0 (4)|
//   head      | first node | last node  | root    | s  | 0             | 0             |
//             +------------+------------+---------+----+---------------+---------------+
struct srb_node {
  union {
    struct {
      std::uint32_t flink;
      std::uint32_t blink;
    } list;
    struct {
      std::uint32_t left;
      std::uint32_t right;
    } child;
  } c;
  union {
    std::uint32_t parent;
    std::uint32_t root;
  } p;
  std::uint8_t s;  // Rb_status bits
  union {
    std::int64_t key;    // flat offset of the key block
    std::uint32_t lext;  // greatest external node of the left subtree
    std::int32_t ikey;   // the key itself, in integer trees
  } k;
  union {
    std::int64_t val;    // flat offset of the value block
    std::uint32_t rext;  // least external node of the right subtree
  } v;
};

#pragma pack(pop)

static_assert(sizeof(Rb_memory) == 192 && offsetof(Rb_memory, version) == 80 &&
              offsetof(Rb_memory, size) == 120);
static_assert(offsetof(Rb_memory, nodeoffset) == 128 && offsetof(Rb_memory, memoryheadsize) == 184);
static_assert(sizeof(Rb_tablename) == 96 && offsetof(Rb_tablename, duty) == 79);
static_assert(offsetof(Rb_tablename, updateno) == 80 && offsetof(Rb_tablename, recordcount) == 88);
static_assert(sizeof(Rb_indexname) == 96 && offsetof(Rb_indexname, type) == 80);
static_assert(sizeof(Rb_tablefield) == 104 && offsetof(Rb_tablefield, type) == 88);
static_assert(sizeof(Rb_indexfield) == 16);
static_assert(sizeof(srb_node) == 29 && offsetof(srb_node, p) == 8 && offsetof(srb_node, s) == 12);
static_assert(offsetof(srb_node, k) == 13 && offsetof(srb_node, v) == 21);

typedef srb_node* Rb_node;

// Bits of srb_node::s. A node without `internal` is external, one without `red` is black.
enum Rb_status : std::uint8_t {
  RB_RED = 1,
  RB_INTERNAL = 2,
  RB_LEFT = 4,  // its parent's left child
  RB_ROOT = 8,
  RB_HEAD = 16
};

enum : int { RB_MAX_SEGMENTS = 100, RB_ERRMSG_SIZE = 300 };

// Which file a key was made from; a path may come to name another one.
struct Rb_keyfile {
  dev_t device = 0;
  ino_t inode = 0;
  bool operator==(const Rb_keyfile&) const = default;
};

namespace cachet {
struct StageLog;

// Addresses of this process that are kept for one database.
struct AddressRange {
  char* begin = nullptr;
  std::int64_t bytes = 0;
};
}  // namespace cachet

// One process's view of one database. Tree and allocator calls need nothing else of a handle.
struct CACHET_API Rb_base {
  char* share_memory_begin[RB_MAX_SEGMENTS] = {};  // attach address of each segment
  int segmentcount = 0;                            // how many of them are valid
  bool exist = false;           // attached to an existing database: heads are located, not made
  Rb_memory* memory = nullptr;  // the header
  ZTINT8 rb_count = 0;          // heads located so far
  ZTINT8 nodeoffset = 0;        // where the next head is looked for
  int mode = 0;                 // 1 read-only, 2 read-write
  int port = 0;                 // the manager's, with isolate
  int pid = 0;                  // of the process that opened the handle
  bool isolate = false;         // changes go to a manager; the memory is mapped read-only
  bool owner = false;           // the creator's handle
  bool intransaction = false;
  VemroTcpChanel chanel;
  Cztmemchanel memchanel;
  Rb_tablename* table = nullptr;  // the first table of the catalog
  std::vector<int> mshid;         // System V id of each segment

  // This process's own knowledge, behind the documented fields.
  ZTINT8 attached_bytes = 0;           // size of the flat space when it was attached
  char* flat_begin = nullptr;          // of all segments, when they lie side by side
  cachet::AddressRange range;          // where they lie, as far as there was room
  std::string absolute_path;           // base path of the key files, for their removal
  std::vector<Rb_keyfile> key_files;   // the file that each segment was attached through
  cachet::StageLog* stages = nullptr;  // while this handle's work is to survive its death (rb_stage.h)
  std::uint16_t stage_step = 0;
};

// Every segment this process attached, in order, up to 100; closing removes no entry.
struct CACHET_API DB_storage {
  DB_storage();
  ~DB_storage();
  char* share_memory_begin[RB_MAX_SEGMENTS];
  int segmentcount;
  std::vector<int> mshid;
};
CACHET_API extern DB_storage g_proccess_dbstorage;

/* ---- segments ----
 * `name` is the base path; `errmsg` (RB_ERRMSG_SIZE bytes) takes the text of a failure, in GBK. */

// Makes the key files and segments of a database of `size` bytes, attaches them and writes the header.
CACHET_API bool Rb_createsharememory(Rb_base* base, const char* name, const char* version, ZTINT8 size,
                                     int mode, char* errmsg);
// Attaches an existing database, writable in mode 2; with `reuse_shmmap` it takes the process's first
// attachment.
CACHET_API bool Rb_opensharememory(Rb_base* base, const char* name, int mode, int reuse_shmmap, char* errmsg);
// Detaches; removes the segments that nobody is attached to any more, and their key files. Nothing with
// reuse.
CACHET_API void Rb_closesharememory(Rb_base* base, int reuse_shmmap);

/* ---- allocator ----
 * Called by the one writer only. Exhausted memory prints a line and ends the process with status 0. */

// A zeroed 32-byte slot.
CACHET_API char* Rb_node_malloc(Rb_base* base);
// A zeroed block of at least `size` bytes; with `alig` its first `aligsize` bytes lie in one 4096-byte page.
CACHET_API char* Rb_data_malloc(Rb_base* base, int size, int aligsize, bool alig);
// The next tree head: a new one, or, on a handle whose `exist` is set, the next one that the creator made.
CACHET_API Rb_node make_rb(Rb_base* base);
// Always a new head.
CACHET_API Rb_node make_rb_ext(Rb_base* base);

/* ---- trees ----
 * Keys in `find` calls are addresses. A result is the node of an equal key, else the first node behind the key,
 * else the head. `head` must be a head, or the process ends with status 1. */

// Negative, zero, positive: `key` comes before, equals, comes after `stored`.
typedef int (*Rb_compare)(Rb_base* base, void* key, void* stored);

CACHET_API Rb_node rb_find_gkey_n(Rb_base* base, Rb_node head, void* key, Rb_compare compare, int* found);
CACHET_API Rb_node rb_find_gkey(Rb_base* base, Rb_node head, void* key, Rb_compare compare);
CACHET_API Rb_node rb_find_key_n(Rb_base* base, Rb_node head, char* key, int* found);
CACHET_API Rb_node rb_find_key(Rb_base* base, Rb_node head, char* key);
CACHET_API Rb_node rb_find_ikey_n(Rb_base* base, Rb_node head, int key, int* found);
CACHET_API Rb_node rb_find_ikey(Rb_base* base, Rb_node head, int key);

// Insert at the place the matching find returns; `key` and `value` are blocks in the flat space.
CACHET_API Rb_node rb_insertg(Rb_base* base, Rb_node head, void* key, void* value, Rb_compare compare);
CACHET_API Rb_node rb_insert(Rb_base* base, Rb_node head, char* key, void* value);
CACHET_API Rb_node rb_inserti(Rb_base* base, Rb_node head, int key, void* value);
// Insert directly before (behind) `node`; before the head is at the end.
CACHET_API Rb_node rb_insert_b(Rb_base* base, Rb_node node, void* key, void* value);
CACHET_API Rb_node rb_insert_a(Rb_base* base, Rb_node node, void* key, void* value);

// Walking: the head stands behind the last and before the first node.
CACHET_API Rb_node rb_first(Rb_base* base, Rb_node head);
CACHET_API Rb_node rb_last(Rb_base* base, Rb_node head);
CACHET_API Rb_node rb_next(Rb_base* base, Rb_node node);
CACHET_API Rb_node rb_prev(Rb_base* base, Rb_node node);
CACHET_API bool rb_empty(Rb_base* base, Rb_node head);
CACHET_API char* rb_key(Rb_base* base, Rb_node node);
CACHET_API char* rb_val(Rb_base* base, Rb_node node);
// Black nodes, all nodes, on the way up to the head; of an external node, or the process ends with status 1.
CACHET_API int rb_nblack(Rb_base* base, Rb_node node);
CACHET_API int rb_plength(Rb_base* base, Rb_node node);

#include "rb_address.h"

#endif
