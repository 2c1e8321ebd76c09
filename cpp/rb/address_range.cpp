#include "rb/address_range.h"

#include <sys/mman.h>
#include <sys/shm.h>

#include <algorithm>
#include <cerrno>

#include "base/features.h"
#include "rb/key_file.h"

namespace cachet {

namespace {

char* map_nothing(std::int64_t bytes) {
  void* const address = mmap(nullptr, static_cast<std::size_t>(bytes), PROT_NONE,
                             MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  return address == MAP_FAILED ? nullptr : static_cast<char*>(address);
}

void unmap(char* begin, std::int64_t bytes) {
  if (bytes > 0) munmap(begin, static_cast<std::size_t>(bytes));
}

// Bytes of the range that segment `index` may fill.
std::int64_t room_for_segment(const AddressRange& range, int index) {
  return std::min(range.bytes - (std::int64_t{index} << segment_bits), segment_bytes);
}

}  // namespace

AddressRange reserve_addresses(std::int64_t bytes) noexcept {
  if (!features::reserved_range) return {};
  const std::int64_t wanted = round_up(bytes, huge_page_bytes);
  char* const all = map_nothing(wanted + huge_page_bytes);
  if (all == nullptr) return {};
  const auto address = static_cast<std::int64_t>(reinterpret_cast<std::intptr_t>(all));
  const std::int64_t in_front = round_up(address, huge_page_bytes) - address;
  unmap(all, in_front);
  unmap(all + in_front + wanted, huge_page_bytes - in_front);
  return {all + in_front, wanted};
}

char* attach_in_range(AddressRange& range, int index, int id, int flags) noexcept {
  const std::int64_t room = room_for_segment(range, index);
  const auto status = segment_status(id);
  if (room <= 0 || !status || round_up(status->bytes, page_bytes) > room) return nullptr;
  const std::int64_t place = std::int64_t{index} << segment_bits;
  void* const address = shmat(id, range.begin + place, flags | SHM_REMAP);
  if (address != reinterpret_cast<void*>(-1)) return static_cast<char*>(address);
  // Out of memory half-way, the system may have given the place away already: it is left alone from now on.
  if (errno == ENOMEM) range.bytes = place;
  return nullptr;
}

bool give_back(AddressRange& range) noexcept {
  if (range.bytes > 0 && munmap(range.begin, static_cast<std::size_t>(range.bytes)) != 0) return false;
  range = {};
  return true;
}

bool contains(const AddressRange& range, const char* address) noexcept {
  return address >= range.begin && address - range.begin < range.bytes;
}

}  // namespace cachet
