// Byte order of messages. The wire's order is this host's, so that conversions only keep `lorn`; the table of what
// has an order is complete all the same.
#include "vemroprotocol/swap.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdlib>

namespace {

// The integers in the bodies. Of a command that is not here none is turned, CMD_CLEARWILDTRANS with its three among
// them.
struct BodyInteger {
  char command;
  unsigned char offset;
  unsigned char size;
};

#define INTEGER(command, record, field) \
  { command, offsetof(record, field), sizeof(record::field) }

constexpr BodyInteger body_integers[] = {
    INTEGER(CMD_ERROR, _ERRORMSG, errcode),
    INTEGER(CMD_INSERT, _INSERT, tableid),
    INTEGER(CMD_INSERT, _INSERT, recordlen),
    INTEGER(CMD_INSERT_OK, _INSERT_OK, offset),
    INTEGER(CMD_UPDATE, _UPDATE, tableid),
    INTEGER(CMD_UPDATE, _UPDATE, rowid),
    INTEGER(CMD_UPDATE, _UPDATE, colid),
    INTEGER(CMD_UPDATE, _UPDATE, fieldlen),
    INTEGER(CMD_ERASE, _ERASE, tableid),
    INTEGER(CMD_ERASE, _ERASE, rowid),
    INTEGER(CMD_CONNECT, _CONNECT, pid),
    INTEGER(CMD_CONNECT, _CONNECT, mode),
    INTEGER(CMD_ADD_COL, _ADD_COL, tableid),
    INTEGER(CMD_ADD_COL, _ADD_COL, type),
    INTEGER(CMD_ADD_COL, _ADD_COL, length),
    INTEGER(CMD_ADD_COL, _ADD_COL, decimal),
    INTEGER(CMD_ADD_INDEX, _ADD_INDEX, tableid),
    INTEGER(CMD_ADD_INDEX, _ADD_INDEX, indextype),
    INTEGER(CMD_ADD_INDEX_COL, _ADD_INDEX_COL, tableid),
    INTEGER(CMD_ADD_INDEX_COL, _ADD_INDEX_COL, indexid),
    INTEGER(CMD_ADD_INDEX_COL, _ADD_INDEX_COL, colid),
    INTEGER(CMD_BCPIN, _BCPIN, tableid),
    INTEGER(CMD_CONNECT_OK, _CONNECT_OK, keyid),
    INTEGER(CMD_QUERYDBRESULT, _QUERYDBRESULT, size),
    INTEGER(CMD_QUERYDBRESULT, _QUERYDBRESULT, freespace),
    INTEGER(CMD_QUERYTABLERESULT, _QUERYTABLERESULT, datasize),
    INTEGER(CMD_QUERYTABLERESULT, _QUERYTABLERESULT, recordcount),
    INTEGER(CMD_QUERYCOLRESULT, _QUERYCOLRESULT, tableid),
    INTEGER(CMD_QUERYCOLRESULT, _QUERYCOLRESULT, type),
    INTEGER(CMD_QUERYCOLRESULT, _QUERYCOLRESULT, length),
    INTEGER(CMD_QUERYCOLRESULT, _QUERYCOLRESULT, decimal),
    INTEGER(CMD_QUERYINDEXRESULT, _QUERYINDEXRESULT, tableid),
    INTEGER(CMD_QUERYINDEXRESULT, _QUERYINDEXRESULT, type),
    INTEGER(CMD_QUERYINDEXCOLRESULT, _QUERYINDEXCOLRESULT, tableid),
    INTEGER(CMD_QUERYINDEXCOLRESULT, _QUERYINDEXCOLRESULT, indexid),
    INTEGER(CMD_QUERYINDEXCOLRESULT, _QUERYINDEXCOLRESULT, colid),
    INTEGER(CMD_QUERYTABLEDATA, _QUERYTABLEDATA, tableid),
    INTEGER(CMD_QUERYTABLEDATA, _QUERYTABLEDATA, recordid),
    INTEGER(CMD_QUERYTABLEDATA, _QUERYTABLEDATA, fetchcount),
    INTEGER(CMD_QUERYTABLEDATARESULT, _QUERYTABLEDATARESULT, recordid),
    INTEGER(CMD_QUERYTABLESUMMARY, _QUERYTABLESUMMARY, recordcount),
    INTEGER(CMD_REMOTEADD, _REMOTEADD, tableid),
    INTEGER(CMD_REMOTEDELETE, _REMOTEDELETE, tableid),
    INTEGER(CMD_REMOTEDELETE, _REMOTEDELETE, recordid),
    INTEGER(CMD_REMOTEUPDATE, _REMOTEUPDATE, tableid),
    INTEGER(CMD_REMOTEUPDATE, _REMOTEUPDATE, recordid),
    INTEGER(CMD_REMOTEADDRESULT, _REMOTEADDRESULT, recordid),
    INTEGER(CMD_REMOTEBACKUPTABLE, _REMOTEBACKUPTABLE, tableid),
    INTEGER(CMD_REMOTERESTORETABLE, _REMOTERESTORETABLE, tableid),
};

#undef INTEGER

enum ReverseMode : int { unsettled = 0, reverse = 1, leave_alone = 2 };

// Every thread that settles it stores the same.
constinit std::atomic<int> vemro_s_reversemode = unsettled;

// Whether bytes are to be turned. The first call settles that they are not, here where the orders are the same.
bool reverses() {
  const int mode = vemro_s_reversemode.load(std::memory_order_relaxed);
  if (mode == unsettled) vemro_s_reversemode.store(leave_alone, std::memory_order_relaxed);
  return mode == reverse;
}

}  // namespace

void cachet::swap::turn(unsigned char* bytes, int size) {
  std::reverse(bytes, bytes + std::max(size, 0));
}

void cachet::swap::turn_integers(_VEMROMSG* msg) {
  auto* const head = reinterpret_cast<unsigned char*>(&msg->head);
  turn(head + offsetof(_HEAD, length), sizeof msg->head.length);
  turn(head + offsetof(_HEAD, version), sizeof msg->head.version);
  auto* const body = reinterpret_cast<unsigned char*>(msg->body.buffer);
  for (const BodyInteger& integer : body_integers) {
    if (integer.command == msg->head.cmd) turn(body + integer.offset, integer.size);
  }
}

void VemroReverse(unsigned char* buf, int len) {
  if (reverses()) cachet::swap::turn(buf, len);
}

void VemroReverseMsg(_VEMROMSG* msg) {
  if (reverses()) cachet::swap::turn_integers(msg);
}

int VemroGetMsgLen(_VEMROMSG* msg) {
  int length = msg->head.length;
  if (msg->head.lorn == VEMRO_NET) VemroReverse(reinterpret_cast<unsigned char*>(&length), sizeof length);
  return length;
}

void VemroToNet(_VEMROMSG* msg) {
  if (msg->head.lorn == VEMRO_NET) return;
  msg->head.lorn = VEMRO_NET;
  VemroReverseMsg(msg);
}

void VemroToLocal(_VEMROMSG* msg) {
  if (msg->head.lorn == VEMRO_LOCAL) return;
  msg->head.lorn = VEMRO_LOCAL;
  VemroReverseMsg(msg);
}

_VEMROMSG* VemroCreatemsg(int length) {
  if (length < 0) return nullptr;
  const auto size_bytes = static_cast<std::size_t>(std::max<int>(length, VEMRO_HEAD_BYTES));
  auto* const msg = static_cast<_VEMROMSG*>(std::malloc(size_bytes));
  if (msg != nullptr) msg->head.lorn = VEMRO_LOCAL;
  return msg;
}
