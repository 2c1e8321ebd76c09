// Insertion of a key together with the separator of the internal node that the insertion makes.
#ifndef CACHET_RB_INSERT_H
#define CACHET_RB_INSERT_H

#include "rb.h"

namespace cachet {

// The bytes that an internal node keeps of the key it compares with (cpp/accelerate/separator.h).
struct Separator {
  static constexpr int window_bytes = 8;

  std::uint64_t window = 0;  // most significant byte first
  std::uint8_t skip = 0;     // bytes of the key in front of the window
  std::uint8_t count = 0;    // bytes of the window that are the key's; 0: there is no separator
  std::uint8_t type = 0;     // of the key's first field
};

// rb_insert_b for the record trees. The internal node is made over the new leaf and `node`, or, when `node` is the
// head, over the last leaf and the new one; `separator` is of the first of the two.
Rb_node insert_before(Rb_base* base, Rb_node node, void* key, void* value, const Separator& separator);

}  // namespace cachet

#endif
