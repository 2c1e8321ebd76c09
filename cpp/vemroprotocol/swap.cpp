// Byte order of messages. The wire's order is this host's, so that conversions only keep `lorn`; the table of what
// has an order is complete all the same.
#include "vemroprotocol/swap.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>

namespace {

// The integers in the bodies. Of a command that is not here none is turned, CMD_CLEARWILDTRANS with its three among
// them.
struct BodyInteger {
  char command;
  unsigned char offset;
  unsigned char size;
};

constexpr BodyInteger body_integers[] = {
    {CMD_ERROR, 0, 4},
    {CMD_INSERT, 0, 4},
    {CMD_INSERT, 4, 4},
    {CMD_INSERT_OK, 0, 8},
    {CMD_UPDATE, 0, 4},
    {CMD_UPDATE, 4, 4},
    {CMD_UPDATE, 8, 4},
    {CMD_UPDATE, 12, 4},
    {CMD_ERASE, 0, 4},
    {CMD_ERASE, 4, 4},
    {CMD_CONNECT, 0, 4},
    {CMD_CONNECT, 4, 4},
    {CMD_ADD_COL, 0, 4},
    {CMD_ADD_COL, 84, 4},
    {CMD_ADD_COL, 88, 4},
    {CMD_ADD_COL, 92, 4},
    {CMD_ADD_INDEX, 0, 4},
    {CMD_ADD_INDEX, 84, 4},
    {CMD_ADD_INDEX_COL, 0, 4},
    {CMD_ADD_INDEX_COL, 4, 4},
    {CMD_ADD_INDEX_COL, 8, 4},
    {CMD_BCPIN, 0, 4},
    {CMD_CONNECT_OK, 200, 4},
    {CMD_QUERYDBRESULT, 240, 8},
    {CMD_QUERYDBRESULT, 248, 8},
    {CMD_QUERYTABLERESULT, 80, 8},
    {CMD_QUERYTABLERESULT, 88, 4},
    {CMD_QUERYCOLRESULT, 0, 4},
    {CMD_QUERYCOLRESULT, 84, 4},
    {CMD_QUERYCOLRESULT, 88, 4},
    {CMD_QUERYCOLRESULT, 92, 4},
    {CMD_QUERYINDEXRESULT, 0, 4},
    {CMD_QUERYINDEXRESULT, 84, 4},
    {CMD_QUERYINDEXCOLRESULT, 0, 4},
    {CMD_QUERYINDEXCOLRESULT, 4, 4},
    {CMD_QUERYINDEXCOLRESULT, 8, 4},
    {CMD_QUERYTABLEDATA, 0, 4},
    {CMD_QUERYTABLEDATA, 4, 4},
    {CMD_QUERYTABLEDATA, 8, 4},
    {CMD_QUERYTABLEDATARESULT, 0, 4},
    {CMD_QUERYTABLESUMMARY, 0, 4},
    {CMD_REMOTEADD, 0, 4},
    {CMD_REMOTEDELETE, 0, 4},
    {CMD_REMOTEDELETE, 4, 4},
    {CMD_REMOTEUPDATE, 0, 4},
    {CMD_REMOTEUPDATE, 4, 4},
    {CMD_REMOTEADDRESULT, 0, 4},
    {CMD_REMOTEBACKUPTABLE, 0, 4},
    {CMD_REMOTERESTORETABLE, 0, 4},
};

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
