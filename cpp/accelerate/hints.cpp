// The memory of hint tables: what the process may use for all of them, and how one grows.
//
// A table's address space is reserved when it begins, aligned for huge pages, and made usable from the front; so
// doubling moves no line, and each line gives the hints whose hash has the next bit to the line that is as far
// behind it as the table was long.
#include <sys/mman.h>

#include <algorithm>
#include <bit>

#include "accelerate_hints.h"

namespace cachet {

namespace {

constexpr std::size_t first_bytes = std::size_t{16} << 10;
constexpr std::size_t largest_table_bytes = std::size_t{1} << 36;

std::atomic<std::size_t> bytes_in_use{0};

// Takes part of what the process may use; false when that is not left.
bool take_bytes(std::size_t count) noexcept {
  std::size_t now = bytes_in_use.load(std::memory_order_relaxed);
  do {
    if (now + count > hint_limit()) return false;
  } while (!bytes_in_use.compare_exchange_weak(now, now + count, std::memory_order_relaxed));
  return true;
}

void give_bytes_back(std::size_t count) noexcept {
  bytes_in_use.fetch_sub(count, std::memory_order_relaxed);
}

char* first_huge_page(char* address) noexcept {
  const auto position = reinterpret_cast<std::uintptr_t>(address);
  return address + (huge_page_bytes - position % huge_page_bytes) % huge_page_bytes;
}

}  // namespace

std::atomic<std::size_t> hint_limit_bytes{default_hint_limit_bytes};

std::size_t hint_bytes() noexcept {
  return bytes_in_use.load(std::memory_order_relaxed);
}

void HintTable::swap(HintTable& other) noexcept {
  std::swap(keys, other.keys);
  std::swap(lines_, other.lines_);
  std::swap(line_count_, other.line_count_);
  std::swap(used_slots_, other.used_slots_);
  std::swap(era_, other.era_);
  std::swap(reserved_, other.reserved_);
  std::swap(reserved_bytes_, other.reserved_bytes_);
}

void HintTable::forget() noexcept {
  if (lines_ == nullptr) return;
  give_bytes_back(bytes());
  munmap(reserved_, reserved_bytes_);
  lines_ = nullptr;
  line_count_ = used_slots_ = reserved_bytes_ = 0;
  reserved_ = nullptr;
  era_ = {};
}

bool HintTable::reserve() noexcept {
  const std::size_t most_bytes = std::bit_floor(std::min(hint_limit(), largest_table_bytes));
  // Asked first: a mapping that is given up again costs more than a search.
  const bool has_room = hint_bytes() + first_bytes <= hint_limit();
  if (most_bytes < first_bytes || !has_room) return false;
  void* const mapping = mmap(nullptr, most_bytes + huge_page_bytes, PROT_NONE,
                             MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (mapping == MAP_FAILED) return false;
  reserved_ = static_cast<char*>(mapping);
  reserved_bytes_ = most_bytes + huge_page_bytes;
  lines_ = reinterpret_cast<Line*>(first_huge_page(reserved_));
  if (extend(first_bytes / sizeof(Line))) return true;
  forget();
  return false;
}

// Makes the table this long; what comes to it is empty.
bool HintTable::extend(std::size_t line_count) noexcept {
  const std::size_t more_bytes = line_count * sizeof(Line) - bytes();
  const bool has_room = reinterpret_cast<char*>(lines_ + line_count) <= reserved_ + reserved_bytes_;
  if (!has_room || !take_bytes(more_bytes)) return false;
  if (mprotect(lines_, line_count * sizeof(Line), PROT_READ | PROT_WRITE) != 0) {
    give_bytes_back(more_bytes);
    return false;
  }
  if (line_count * sizeof(Line) >= huge_page_bytes) {
    madvise(lines_, line_count * sizeof(Line), MADV_HUGEPAGE);  // a wish
  }
  line_count_ = line_count;
  return true;
}

void HintTable::grow() noexcept {
  const std::size_t half = line_count_;
  if (!extend(2 * half)) return;
  for (std::size_t line = 0; line < half; ++line) {
    for (std::size_t slot = 0; slot < Line::slot_count; ++slot) {
      Hint& hint = lines_[line].slots[slot];
      if ((hint.hash & half) == 0) continue;
      lines_[line + half].slots[slot] = hint;
      hint = {};
    }
  }
}

void HintTable::remember(const Era& era, const Hint& hint) noexcept {
  if (era.nonce == Nonce::none) return;
  if (!era_.goes_on_as(era) || hint_bytes() > hint_limit()) forget();
  if (lines_ == nullptr && !reserve()) return;
  era_ = era;
  if (used_slots_ * 8 > line_count_ * Line::slot_count * 5) grow();
  Line& own = line_of(hint.hash);
  Hint* slot = own.slot_for(hint.hash);
  if (slot == nullptr) slot = neighbour_of(own).slot_for(hint.hash);
  // Both lines are full: any hint makes room, by bits that do not choose the line.
  if (slot == nullptr) slot = &own.slots[std::rotl(hint.hash, 2) % Line::slot_count];
  if (slot->node_number == 0) ++used_slots_;
  *slot = hint;
}

}  // namespace cachet
