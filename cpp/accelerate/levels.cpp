// The memory of packed levels. Its pages come as positions are filled: a small tree takes few.
#include <sys/mman.h>

#include "accelerate_levels.h"

namespace cachet {

namespace {

// A process that looks up a few keys and ends does better without.
constexpr int searches_before_the_first = 1000;

constexpr std::size_t bytes = PackedLevels::end * sizeof(PackedLevels::Entry);

}  // namespace

PackedLevels::~PackedLevels() {
  if (entries_ != nullptr) munmap(entries_, bytes);
}

bool PackedLevels::begin_anew(const Era& era) noexcept {
  if (era.nonce == Nonce::none) return false;
  if (entries_ == nullptr) {
    if (++searches_ <= searches_before_the_first) return false;
    void* const mapping = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapping == MAP_FAILED) return false;
    entries_ = static_cast<Entry*>(mapping);
  }
  entries_[root].node_number = 0;  // and what hangs below it goes when it is filled
  era_ = era;
  return true;
}

}  // namespace cachet
