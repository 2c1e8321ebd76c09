// Addresses to flat offsets in a database whose segments do not lie side by side in their order.
//
// They may still lie side by side in another one, so the byte behind one segment can be the first byte of
// another: an address strictly inside a segment is resolved first, the inclusive end of a segment only when
// none contains it.
#include "rb.h"

namespace cachet {

namespace {

std::int64_t bytes_in_segment(const Rb_base* base, int index) noexcept {
  const std::int64_t begin = std::int64_t{index} << segment_bits;
  const std::int64_t rest = flat_bytes(base) - begin;
  return rest < segment_bytes ? rest : segment_bytes;
}

}  // namespace

FlatOffset offset_in_segments(const Rb_base* base, const char* address) noexcept {
  const auto byte = reinterpret_cast<std::uintptr_t>(address);
  FlatOffset at_end{0};
  for (int index = 0; index < base->segmentcount; ++index) {
    const auto begin = reinterpret_cast<std::uintptr_t>(base->share_memory_begin[index]);
    if (byte < begin) continue;
    const auto distance = static_cast<std::int64_t>(byte - begin);
    const FlatOffset offset{(std::int64_t{index} << segment_bits) + distance};
    if (distance < bytes_in_segment(base, index)) return offset;
    if (distance == bytes_in_segment(base, index) && value_of(at_end) == 0) at_end = offset;
  }
  return at_end;
}

}  // namespace cachet
