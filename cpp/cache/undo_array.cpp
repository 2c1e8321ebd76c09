#include "undo_array.h"

#include <algorithm>
#include <bit>
#include <functional>

#include "base/copy_bytes.h"

namespace cachet {

namespace {

constexpr std::uint64_t golden_ratio = 0x9E37'79B9'7F4A'7C15;  // of 2^64: spreads neighbours over all slots
constexpr std::size_t first_slots = 64;
constexpr std::size_t block_bytes = std::size_t{1} << 18;
constexpr std::size_t large_bytes = block_bytes / 4;
// What at most stays allocated from one transaction to the next, beside one block.
constexpr std::size_t slots_to_keep = std::size_t{1} << 13;
constexpr std::size_t entries_to_keep = slots_to_keep / 2;

bool is_below(const UndoArray::Entry& a, const UndoArray::Entry& b) {
  return std::less<>{}(a.record, b.record);
}

}  // namespace

// Where the address is, or belongs.
inline AddressSet::Slot& AddressSet::slot_of(const void* address) noexcept {
  const std::uint64_t hash = reinterpret_cast<std::uintptr_t>(address) * golden_ratio;
  for (std::size_t number = hash >> hash_shift_;; number = (number + 1) & (slots_.size() - 1)) {
    Slot& slot = slots_[number];
    if (slot.generation != generation_ || slot.address == address) return slot;
  }
}

bool AddressSet::insert(const void* address) {
  if (2 * size_ >= slots_.size()) grow();
  Slot& slot = slot_of(address);
  if (slot.generation == generation_) return false;
  slot = {address, generation_};
  ++size_;
  return true;
}

// Leaves no gap: nothing was put behind the latest one.
void AddressSet::erase_latest(const void* address) noexcept {
  slot_of(address).generation = 0;
  --size_;
}

void AddressSet::clear() noexcept {
  if (slots_.size() > slots_to_keep) slots_ = {};
  ++generation_;
  size_ = 0;
}

void AddressSet::grow() {
  std::vector<Slot> slots(std::max(first_slots, 2 * slots_.size()));
  slots.swap(slots_);
  hash_shift_ = 64 - std::countr_zero(slots_.size());
  for (const Slot& slot : slots) {
    if (slot.generation == generation_) slot_of(slot.address) = slot;
  }
}

inline char* UndoArray::room_for(std::size_t bytes) {
  if (bytes > large_bytes) return large_images_.emplace_back(new char[bytes]).get();
  if (bytes > block_room_) {
    blocks_.emplace_back(new char[block_bytes]);
    block_room_ = block_bytes;
  }
  char* const room = blocks_.back().get() + (block_bytes - block_room_);
  block_room_ -= bytes;
  return room;
}

void UndoArray::keep(char* record, int length, int tableid) {
  if (!kept_.insert(record)) return;
  const auto bytes = static_cast<std::size_t>(length);
  char* const image = room_for(bytes);
  copy_bytes(image, record, bytes);
  order_ = order_behind(record);
  entries_.push_back({record, image, length, tableid});
}

// Inserts take their records from the top of the memory downwards, walks through a table meet them in one order or the
// other: then nothing has to be sorted.
UndoArray::Order UndoArray::order_behind(const char* record) const noexcept {
  if (entries_.empty()) return Order::rising;
  const Order step = std::less<>{}(record, entries_.back().record) ? Order::falling : Order::rising;
  return entries_.size() == 1 || order_ == step ? step : Order::mixed;
}

const std::vector<UndoArray::Entry>& UndoArray::in_order() {
  if (order_ == Order::falling) std::reverse(entries_.begin(), entries_.end());
  if (order_ == Order::mixed) std::sort(entries_.begin(), entries_.end(), is_below);
  order_ = Order::rising;
  return entries_;
}

void UndoArray::clear() noexcept {
  kept_.clear();
  entries_.clear();
  if (entries_.capacity() > entries_to_keep) entries_ = {};
  order_ = Order::rising;
  if (blocks_.size() > 1) blocks_.resize(1);
  block_room_ = blocks_.empty() ? 0 : block_bytes;
  large_images_.clear();
}

}  // namespace cachet
