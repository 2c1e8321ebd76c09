// The allocation rules as pure functions of the two fronts: nodes grow upward from the catalog, data blocks
// grow downward from the end of the flat space. The allocator, the location of tree heads and the dry run of
// an insert all use these, so that none of them can disagree.
#ifndef CACHET_RB_FRONTS_H
#define CACHET_RB_FRONTS_H

#include "rb.h"

namespace cachet {

// Where the next node slot lies. The test looks at the byte BEHIND the slot, so the last slot of every page
// is left unused: 127 nodes a page.
constexpr std::int64_t next_node_slot(std::int64_t node_front) noexcept {
  const bool same_page = node_front / page_bytes == (node_front + slot_bytes) / page_bytes;
  return same_page ? node_front : round_up(node_front + 1, page_bytes);
}

// Where the next data block lies, below `data_front`; may be negative. `size_bytes` is already a multiple
// of 8.
constexpr std::int64_t next_data_block(std::int64_t data_front, std::int64_t size_bytes,
                                       std::int64_t align_bytes, bool align) noexcept {
  std::int64_t block = data_front - size_bytes;
  if (segment_of(block) != segment_of(data_front)) {
    block = round_up(data_front - segment_bytes + 1, segment_bytes) - size_bytes;
  }
  if (align && block / page_bytes != (block + align_bytes) / page_bytes) {
    block = (block + align_bytes) / page_bytes * page_bytes - align_bytes;
  }
  return block;
}

// Both fronts, as plain copies to calculate with.
struct Fronts {
  std::int64_t node;
  std::int64_t data;

  static Fronts of(const Rb_base* base) noexcept {
    return {load_relaxed<ZTINT8>(&base->memory->nodeoffset), load_relaxed<ZTINT8>(&base->memory->dataoffset)};
  }

  // The slot taken, or -1 when it does not fit.
  constexpr std::int64_t take_node() noexcept {
    const std::int64_t slot = next_node_slot(node);
    if (data < slot + slot_bytes) return -1;
    node = slot + slot_bytes;
    return slot;
  }

  // The block taken, or -1 when it does not fit. No block is larger than a segment.
  constexpr std::int64_t take_data(std::int64_t size_bytes, std::int64_t align_bytes, bool align) noexcept {
    if (size_bytes < 0 || size_bytes > segment_bytes) return -1;
    const std::int64_t block = next_data_block(data, round_up(size_bytes, 8), align_bytes, align);
    if (block < node) return -1;
    data = block;
    return block;
  }
};

static_assert(next_node_slot(4032) == 4032 && next_node_slot(4064) == 4096 && next_node_slot(4096) == 4096);
static_assert(next_data_block(8200, 48, 8, true) == 8152 && next_data_block(8240, 48, 8, true) == 8192);
static_assert(next_data_block(8236, 48, 8, true) == 8184, "the first 8 bytes end exactly at the page");
static_assert(next_data_block(segment_bytes + 16, 48, 8, false) == segment_bytes - 48);

}  // namespace cachet

#endif
