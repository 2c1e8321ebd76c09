// The two ways to seal and open a frame. The order of their steps is the protocol: it decides over which bytes the
// check is taken.
#include "vemroprotocol/frame.h"

namespace cachet::frame {

namespace {

std::uint16_t turned(std::uint16_t crc) {
  VemroReverse(reinterpret_cast<unsigned char*>(&crc), sizeof crc);
  return crc;
}

// Over the frame as it is now, with no check in it.
std::uint16_t check_of(_VEMROMSG* msg) {
  msg->head.crc = 0;
  return VEMROCRC(msg, bytes_of(msg));
}

bool to_sendable(_VEMROMSG* msg) {
  VemroToLocal(msg);
  if (!is_body_length(msg->head.length)) return false;
  msg->head.version = VEMRO_VERSION;
  return true;
}

}  // namespace

bool seal_wire(_VEMROMSG* msg) {
  if (!to_sendable(msg)) return false;
  VemroToNet(msg);
  msg->head.crc = turned(check_of(msg));
  return true;
}

bool seal_host(_VEMROMSG* msg) {
  if (!to_sendable(msg)) return false;
  msg->head.crc = check_of(msg);
  VemroToNet(msg);
  return true;
}

bool open_wire(_VEMROMSG* msg) {
  if (!is_body_length(VemroGetMsgLen(msg))) return false;
  const std::uint16_t crc = turned(msg->head.crc);
  if (check_of(msg) != crc) return false;
  VemroToLocal(msg);
  return msg->head.version == VEMRO_VERSION;
}

bool open_host(_VEMROMSG* msg) {
  VemroToLocal(msg);
  if (!is_body_length(msg->head.length)) return false;
  const std::uint16_t crc = msg->head.crc;
  return check_of(msg) == crc && msg->head.version == VEMRO_VERSION;
}

}  // namespace cachet::frame
