// What hints may cost.
#include <algorithm>

#include "accelerate_hints.h"
#include "cachetx.h"

void ZtxSetHintLimit(ZTINT8 bytes) {
  cachet::set_hint_limit(static_cast<std::size_t>(std::max<ZTINT8>(bytes, 0)));
}
