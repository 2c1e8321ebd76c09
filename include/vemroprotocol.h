// The message record of the remote protocol: what an isolated client and its manager exchange, over TCP
// (tcpchanel.h) and through the mailbox (memchanel.h), its commands, byte order and check.
//
// A frame is the 10-byte head and `length` body bytes, packed:
//
//   0        4     5      6     8         10                     10 + length
//   +--------+-----+------+-----+---------+----------------------+
//   | length | cmd | lorn | crc | version | body ...             |
//   +--------+-----+------+-----+---------+----------------------+
//
// Integers on the wire are little-endian. `lorn` tells whether a message is in host or in wire order; here the two
// are the same bytes, and the flag is kept all the same: the check covers it.
#ifndef CACHET_VEMROPROTOCOL_H
#define CACHET_VEMROPROTOCOL_H

#include <cstddef>
#include <cstdint>

#include "cachet.h"

enum : int { VEMRO_HEAD_BYTES = 10, VEMRO_BODY_BYTES = 8192, VEMRO_FRAME_BYTES = 8202, VEMRO_VERSION = 1 };

// What `lorn` says of the integers.
enum : char { VEMRO_LOCAL = 0, VEMRO_NET = 1 };

// The commands, with the body member each carries; see docs/protocol.md for who asks and who answers.
enum : char {
  CMD_OK = 20,
  CMD_ERROR = 21,  // error
  CMD_BEGINTRANS = 50,
  CMD_COMMITTRANS = 51,
  CMD_ROLLBACKTRANS = 52,
  CMD_INSERT = 53,         // insert
  CMD_INSERT_OK = 54,      // insert_ok
  CMD_UPDATE = 55,         // update
  CMD_ERASE = 56,          // erase
  CMD_CONNECT = 57,        // connect
  CMD_RESTORE = 59,        // restore
  CMD_LOADDIR = 60,        // loaddir
  CMD_SET_VERSION = 61,    // setversion
  CMD_ADD_TABLE = 62,      // addtable
  CMD_ADD_COL = 63,        // addcol
  CMD_ADD_INDEX = 64,      // addindex
  CMD_ADD_INDEX_COL = 65,  // addindexcol
  CMD_BCPIN = 67,          // bcpin
  CMD_CONNECT_OK = 68,     // connectok; as a request, without a body: reset the database
  CMD_LOCK = 69,
  CMD_UNLOCK = 70,
  CMD_QUERYDBRESULT = 73,          // querydbresult
  CMD_QUERYTABLERESULT = 74,       // querytableresult
  CMD_QUERYCOLRESULT = 75,         // querycolresult
  CMD_QUERYINDEXRESULT = 76,       // queryindexresult
  CMD_QUERYINDEXCOLRESULT = 77,    // queryindexcolresult
  CMD_QUERYTABLEDATA = 78,         // querytabledata
  CMD_QUERYTABLEDATARESULT = 79,   // querytabledataresult
  CMD_QUERYTABLESUMMARY = 80,      // querytablesummary
  CMD_REMOTEADD = 81,              // remoteadd
  CMD_REMOTEDELETE = 82,           // remotedelete
  CMD_REMOTEUPDATE = 83,           // remoteupdate
  CMD_REMOTEADDRESULT = 84,        // remoteaddresult
  CMD_REMOTEBACKUPDATABASE = 85,   // remotebackupdatabase
  CMD_REMOTERESTOREDATABASE = 86,  // remoterestoredatabase
  CMD_REMOTEBACKUPTABLE = 87,      // remotebackuptable
  CMD_REMOTERESTORETABLE = 88,     // remoterestoretable
  CMD_QUERYDBTRANSINFO = 89,       // querydbtransinfo
  CMD_CLEARWILDTRANS = 90          // clearwildtrans
};

#pragma pack(push, 1)

struct _HEAD {
  int length;            // 0  body bytes
  char cmd;              // 4
  char lorn;             // 5
  std::uint16_t crc;     // 6
  std::int16_t version;  // 8
};

// Bodies. Texts end with a NUL. A last member `data` is the first of as many bytes as `length` leaves.

struct _CONNECT {
  int pid;
  int mode;
};
struct _INSERT {
  int tableid;
  int recordlen;
  char data[1];
};
struct _INSERT_OK {
  std::uint64_t offset;
};
struct _UPDATE {
  int tableid;
  int rowid;
  int colid;
  int fieldlen;
  char data[1];
};
struct _ERASE {
  int tableid;
  int rowid;
};
struct _SET_VERSION {
  char version[22];
};
struct _ADD_TABLE {
  char name[81];
};
struct _ADD_COL {
  int tableid;
  char colname[80];
  int type;
  int length;
  int decimal;
};
struct _ADD_INDEX {
  int tableid;
  char indexname[80];
  int indextype;
};
struct _ADD_INDEX_COL {
  int tableid;
  int indexid;
  int colid;
};
struct _ERRORMSG {
  int errcode;
  char errmsg[300];
};
struct _RESTORE {
  char filename[256];
};
struct _LOADDIR {
  char path[256];
};
struct _BCPIN {
  int tableid;
  char filename[256];
};
struct _CONNECT_OK {
  char name[200];  // of the mailbox
  int keyid;
};
struct _QUERYDBRESULT {
  char name[80];
  char codeversion[80];
  char dbversion[80];
  std::int64_t size;
  std::int64_t freespace;
};
struct _QUERYTABLERESULT {
  char name[80];
  std::int64_t datasize;
  int recordcount;
};
struct _QUERYCOLRESULT {
  int tableid;
  char name[80];
  int type;
  int length;
  int decimal;
};
struct _QUERYINDEXRESULT {
  int tableid;
  char name[80];
  int type;
};
struct _QUERYINDEXCOLRESULT {
  int tableid;
  int indexid;
  int colid;
};
struct _QUERYTABLEDATA {
  int tableid;
  int recordid;
  int fetchcount;
};
struct _QUERYTABLEDATARESULT {
  int recordid;
  char data[1];
};
struct _QUERYTABLESUMMARY {
  int recordcount;
};
struct _REMOTEADD {
  int tableid;
  char data[1];
};
struct _REMOTEDELETE {
  int tableid;
  int recordid;
};
struct _REMOTEUPDATE {
  int tableid;
  int recordid;
  char data[1];
};
struct _REMOTEADDRESULT {
  int recordid;
};
struct _REMOTEBACKUPDATABASE {
  char filename[256];
};
struct _REMOTERESTOREDATABASE {
  char filename[256];
};
struct _REMOTEBACKUPTABLE {
  int tableid;
  char filename[256];
};
struct _REMOTERESTORETABLE {
  int tableid;
  char filename[256];
};
struct _QUERYDBTRANSINFO {
  char sid[48];
  char info[16];  // a session's TransInfo (dbsessions.h)
};
struct _CLEARWILDTRANS {
  std::uint64_t stype;
  std::uint64_t pid;
  std::uint64_t tid;
};

struct _VEMROMSG {
  _HEAD head;
  union {
    char buffer[VEMRO_BODY_BYTES];
    _CONNECT connect;
    _INSERT insert;
    _INSERT_OK insert_ok;
    _UPDATE update;
    _ERASE erase;
    _SET_VERSION setversion;
    _ADD_TABLE addtable;
    _ADD_COL addcol;
    _ADD_INDEX addindex;
    _ADD_INDEX_COL addindexcol;
    _ERRORMSG error;
    _RESTORE restore;
    _LOADDIR loaddir;
    _BCPIN bcpin;
    _CONNECT_OK connectok;
    _QUERYDBRESULT querydbresult;
    _QUERYTABLERESULT querytableresult;
    _QUERYCOLRESULT querycolresult;
    _QUERYINDEXRESULT queryindexresult;
    _QUERYINDEXCOLRESULT queryindexcolresult;
    _QUERYTABLEDATA querytabledata;
    _QUERYTABLEDATARESULT querytabledataresult;
    _QUERYTABLESUMMARY querytablesummary;
    _REMOTEADD remoteadd;
    _REMOTEDELETE remotedelete;
    _REMOTEUPDATE remoteupdate;
    _REMOTEADDRESULT remoteaddresult;
    _REMOTEBACKUPDATABASE remotebackupdatabase;
    _REMOTERESTOREDATABASE remoterestoredatabase;
    _REMOTEBACKUPTABLE remotebackuptable;
    _REMOTERESTORETABLE remoterestoretable;
    _QUERYDBTRANSINFO querydbtransinfo;
    _CLEARWILDTRANS clearwildtrans;
  } body;
};

#pragma pack(pop)

static_assert(sizeof(_HEAD) == VEMRO_HEAD_BYTES && offsetof(_HEAD, cmd) == 4 && offsetof(_HEAD, lorn) == 5);
static_assert(offsetof(_HEAD, crc) == 6 && offsetof(_HEAD, version) == 8);
static_assert(sizeof(_VEMROMSG) == VEMRO_FRAME_BYTES && offsetof(_VEMROMSG, body) == VEMRO_HEAD_BYTES);
static_assert(sizeof(_CONNECT) == 8 && sizeof(_INSERT) == 9 && sizeof(_INSERT_OK) == 8 &&
              sizeof(_UPDATE) == 17);
static_assert(sizeof(_ERASE) == 8 && sizeof(_SET_VERSION) == 22 && sizeof(_ADD_TABLE) == 81);
static_assert(sizeof(_ADD_COL) == 96 && offsetof(_ADD_COL, type) == 84 && sizeof(_ADD_INDEX) == 88);
static_assert(sizeof(_ADD_INDEX_COL) == 12 && sizeof(_ERRORMSG) == 304 && offsetof(_ERRORMSG, errmsg) == 4);
static_assert(sizeof(_RESTORE) == 256 && sizeof(_LOADDIR) == 256 && sizeof(_BCPIN) == 260);
static_assert(sizeof(_CONNECT_OK) == 204 && offsetof(_CONNECT_OK, keyid) == 200);
static_assert(sizeof(_QUERYDBRESULT) == 256 && offsetof(_QUERYDBRESULT, size) == 240);
static_assert(sizeof(_QUERYTABLERESULT) == 92 && sizeof(_QUERYCOLRESULT) == 96 &&
              sizeof(_QUERYINDEXRESULT) == 88);
static_assert(sizeof(_QUERYINDEXCOLRESULT) == 12 && sizeof(_QUERYTABLEDATA) == 12);
static_assert(sizeof(_QUERYTABLEDATARESULT) == 5 && sizeof(_QUERYTABLESUMMARY) == 4 &&
              sizeof(_REMOTEADD) == 5);
static_assert(sizeof(_REMOTEDELETE) == 8 && sizeof(_REMOTEUPDATE) == 9 && sizeof(_REMOTEADDRESULT) == 4);
static_assert(sizeof(_REMOTEBACKUPDATABASE) == 256 && sizeof(_REMOTERESTOREDATABASE) == 256);
static_assert(sizeof(_REMOTEBACKUPTABLE) == 260 && sizeof(_REMOTERESTORETABLE) == 260);
static_assert(sizeof(_QUERYDBTRANSINFO) == 64 && sizeof(_CLEARWILDTRANS) == 24);

// CRC-16, most significant bit first, polynomial 0x1021; entry 1 is 0x1021.
CACHET_API extern const std::uint16_t vemro_crc_tab[256];

// The frame check of `DataLen` bytes: CRC-16/XMODEM with its two bytes exchanged; 0 for none.
CACHET_API unsigned short VEMROCRC(void* pData, int DataLen);
// Reverses `len` bytes where the host's order is not the wire's. The first call in a process only settles whether it
// is, and touches nothing.
CACHET_API void VemroReverse(unsigned char* buf, int len);
// Turns the integers of the head (not the check) and those of the body of the message's command.
CACHET_API void VemroReverseMsg(_VEMROMSG* msg);
// The body's length in host order, whatever `lorn` says; as the sender gave it, which may be anything.
CACHET_API int VemroGetMsgLen(_VEMROMSG* msg);
// To wire order, to host order. A message that is there already stays as it is.
CACHET_API void VemroToNet(_VEMROMSG* msg);
CACHET_API void VemroToLocal(_VEMROMSG* msg);
// `length` bytes from malloc, at least a head, marked as being in host order and otherwise unset; null when there is
// no memory, and for a negative length. The caller frees it.
CACHET_API _VEMROMSG* VemroCreatemsg(int length);

#endif
