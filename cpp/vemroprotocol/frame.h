// Sealing a message for its way, and opening one that arrived: version and check, as both channels need them.
//
// There are two variants, which differ on purpose. A *wire* frame (TCP, and the request box) is checked as it lies on
// the wire, with `lorn` 1; a *host* frame (the answer box) as it lies in memory, with `lorn` 0. Since the check covers
// `lorn`, the two give different checks for the same message.
#ifndef CACHET_CPP_VEMROPROTOCOL_FRAME_H
#define CACHET_CPP_VEMROPROTOCOL_FRAME_H

#include "vemroprotocol.h"

namespace cachet::frame {

// Whether a body of that many bytes fits a message.
constexpr bool is_body_length(int length) noexcept {
  return length >= 0 && length <= VEMRO_BODY_BYTES;
}

// The bytes of the whole frame of a message whose length has been checked.
inline int bytes_of(_VEMROMSG* msg) {
  return VEMRO_HEAD_BYTES + VemroGetMsgLen(msg);
}

// Gives the message version, check and wire order. False, with the message in host order, for a length that does not
// fit. All four leave a message whose length is wrong alone otherwise.
bool seal_wire(_VEMROMSG* msg);
bool seal_host(_VEMROMSG* msg);

// Judges a message that arrived, with its whole body, and brings it into host order; its `crc` is 0 then. False when
// its check or its version is wrong; a wire frame with a wrong check stays in wire order.
bool open_wire(_VEMROMSG* msg);
bool open_host(_VEMROMSG* msg);

}  // namespace cachet::frame

#endif
