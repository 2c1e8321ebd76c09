// Huge pages serve every process whose mapping is aligned as this one: they are the segment's, not the mapping's. Only
// calls that leave a mapping in one piece are made here: it counts as one attachment (rb/address_range.h).
#include <sys/mman.h>

#include <algorithm>
#include <cstdint>

#include "rb_warm_up.h"

namespace cachet {

namespace {

// As the kernel numbers them; the C library may be older.
constexpr int populate_read = 22;
constexpr int populate_write = 23;
constexpr int collapse = 25;

// The whole huge pages in a piece of memory.
struct Aligned {
  char* begin;
  std::int64_t bytes;
};

Aligned huge_pages_in(char* begin, std::int64_t bytes) {
  const auto address = static_cast<std::int64_t>(reinterpret_cast<std::intptr_t>(begin));
  const std::int64_t in_front = round_up(address, huge_page_bytes) - address;
  const std::int64_t behind = (address + bytes) % huge_page_bytes;
  return {begin + in_front, std::max<std::int64_t>(bytes - in_front - behind, 0)};
}

void advise(char* begin, std::int64_t bytes, int advice) {
  if (bytes > 0) madvise(begin, static_cast<std::size_t>(bytes), advice);
}

// A huge page is only made where a page is already. One is enough, the rest is made of zeros: that takes a fraction of
// what copying all of them takes.
void make_huge(const Aligned& memory, int populate) {
  for (std::int64_t offset = 0; offset < memory.bytes; offset += huge_page_bytes) {
    advise(memory.begin + offset, page_bytes, populate);
  }
  advise(memory.begin, memory.bytes, collapse);
}

}  // namespace

void make_resident(const Rb_base* base) noexcept {
  const int populate = base->mode == 2 && !base->isolate ? populate_write : populate_read;
  for (int index = 0; index < base->segmentcount; ++index) {
    char* const begin = base->share_memory_begin[index];
    const std::int64_t left = flat_bytes(base) - (std::int64_t{index} << segment_bits);
    const std::int64_t bytes = round_up(std::min(left, segment_bytes), page_bytes);
    make_huge(huge_pages_in(begin, bytes), populate);
    advise(begin, bytes, populate);
  }
}

}  // namespace cachet
