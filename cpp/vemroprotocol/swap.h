// Which integers of a message have a byte order, and turning them: what a host does whose order is not the wire's.
#ifndef CACHET_CPP_VEMROPROTOCOL_SWAP_H
#define CACHET_CPP_VEMROPROTOCOL_SWAP_H

#include "vemroprotocol.h"

namespace cachet::swap {

// Reverses `size` bytes.
void turn(unsigned char* bytes, int size);

// Turns `length` and `version` of the head and the fixed integers of the body that the command names. Whatever else
// the body holds, `data` above all, stays as it is.
void turn_integers(_VEMROMSG* msg);

}  // namespace cachet::swap

#endif
