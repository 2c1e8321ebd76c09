// Hints: a process's memory of which node it found under which key, one table for each unique index of a handle.
//
// A hint saves the descent, nothing else. It names a node that has been a leaf of the tree; the caller compares
// the searched key with the node's, and a hint that does not hold is as good as none. The table belongs to one
// era of the tree (accelerate_nonce.h): another one empties it.
//
//   slot, 16 bytes   0            4             8                    16
//                    +------------+-------------+--------------------+
//                    | key's hash | node number | key's flat offset  |     node number 0: free
//                    +------------+-------------+--------------------+
//
// Four slots share a cache line. A key goes into its own line, or, when that is full, into the line's neighbour.
// The table doubles in place, in address space reserved at the beginning, until the process's limit; then new
// hints replace old ones.
#ifndef CACHET_ACCELERATE_HINTS_H
#define CACHET_ACCELERATE_HINTS_H

#include <emmintrin.h>

#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "accelerate_nonce.h"

namespace cachet {

// The limit of all tables of the process together, in bytes; 0 switches hints off. Tables that are too large for
// a lowered limit begin anew when they are used next. Any thread.
inline constexpr std::size_t default_hint_limit_bytes = std::size_t{64} << 20;
extern std::atomic<std::size_t> hint_limit_bytes;
inline void set_hint_limit(std::size_t limit_bytes) noexcept {
  hint_limit_bytes.store(limit_bytes, std::memory_order_relaxed);
}
inline std::size_t hint_limit() noexcept {
  return hint_limit_bytes.load(std::memory_order_relaxed);
}
// What the tables of the process take now.
std::size_t hint_bytes() noexcept;

// What a search key has to show for a hint.
struct ExactKey {
  bool is_exact = false;      // it can be equal to one node's key only
  std::uint32_t hash = 0;     // if so
  std::uint64_t content = 0;  // of a lone key (key_hash.h): its number, or the length of its text
};

inline constexpr std::size_t cache_line_bytes = 64;

struct Hint {
  std::uint32_t hash;
  std::uint32_t node_number;
  std::int64_t key_offset;  // of the node's key block, so that it can be fetched along with the node
};
static_assert(sizeof(Hint) == 16);

// In a condition: a copy of where hints were when it found by one, so that the cache line of the next hint can be asked
// for as soon as the next key is there; and that key. The copy may be out of date: it is for asking only.
struct ExpectedHint {
  signed char lone_type = 0;  // 0: nothing is expected
  const char* lines = nullptr;
  std::size_t last_line = 0;
  ExactKey key;  // if it was asked for
  bool has_key = false;

  const char* line_of(std::uint32_t hash) const noexcept {
    return lines + (hash & last_line) * cache_line_bytes;
  }
};

// Used by one thread at a time, as the handle it belongs to.
class HintTable {
 public:
  // What all keys of the index have in common.
  struct Keys {
    signed char lone_type = 0;   // of the only field, if they are hashed in the short way; 0 otherwise
    std::int32_t to_record = 0;  // how far behind a key block its record lies, as far as one was looked at
  };
  Keys keys;

  HintTable() = default;
  ~HintTable() { forget(); }
  HintTable(HintTable&& other) noexcept { swap(other); }
  HintTable& operator=(HintTable&& other) noexcept {
    swap(other);
    return *this;
  }

  // The cache line where `find` looks first, to be asked for early; null while the table is empty.
  const void* place_of(std::uint32_t hash) const noexcept {
    return lines_ != nullptr ? &line_of(hash) : nullptr;
  }

  // The hint for the hash of a key, if the tree is still in the era of the table; null when there is none.
  [[gnu::always_inline]] const Hint* find(const Era& era, std::uint32_t hash) noexcept {
    if (lines_ == nullptr || !era_.goes_on_as(era)) return nullptr;
    const Line* line = &line_of(hash);
    const Hint* hint = line->find(hash);
    if (hint == nullptr && line->full()) hint = neighbour_of(*line).find(hash);
    return hint;
  }
  // Where the next hint may be asked for.
  ExpectedHint expect() const noexcept {
    return {keys.lone_type, reinterpret_cast<const char*>(lines_), line_count_ - 1, {}, false};
  }
  bool empty() const noexcept { return lines_ == nullptr; }

  // Keeps a hint for later, or replaces another one. Nothing is kept in an era without a nonce.
  void remember(const Era& era, const Hint& hint) noexcept;

  // Gives the memory back.
  void forget() noexcept;

  std::size_t bytes() const noexcept { return lines_ == nullptr ? 0 : line_count_ * sizeof(Line); }

 private:
  struct alignas(cache_line_bytes) Line {
    static constexpr std::size_t slot_count = 4;
    Hint slots[slot_count];

    // All slots at once: which one it is nobody can foretell, so that a branch for each would often be mistaken. A
    // free slot has the hash 0, and hides a hint of that hash.
    [[gnu::always_inline]] const Hint* find(std::uint32_t hash) const noexcept {
      const auto load = [this](std::size_t slot) {
        return _mm_load_si128(reinterpret_cast<const __m128i*>(&slots[slot]));
      };
      static_assert(slot_count == 4 && offsetof(Hint, hash) == 0);
      const __m128i hashes =
          _mm_unpacklo_epi64(_mm_unpacklo_epi32(load(0), load(1)), _mm_unpacklo_epi32(load(2), load(3)));
      const __m128i equal = _mm_cmpeq_epi32(hashes, _mm_set1_epi32(static_cast<int>(hash)));
      const int which = _mm_movemask_ps(_mm_castsi128_ps(equal));
      if (which == 0) return nullptr;
      const Hint& slot = slots[std::countr_zero(static_cast<unsigned>(which))];
      return slot.node_number != 0 ? &slot : nullptr;
    }
    Hint* slot_for(std::uint32_t hash) noexcept {
      for (Hint& slot : slots) {
        if (slot.hash == hash || slot.node_number == 0) return &slot;
      }
      return nullptr;
    }
    bool full() const noexcept { return slots[slot_count - 1].node_number != 0; }
  };
  static_assert(sizeof(Line) == cache_line_bytes);

  Line& line_of(std::uint32_t hash) const noexcept { return lines_[hash & (line_count_ - 1)]; }
  Line& neighbour_of(const Line& line) const noexcept {
    return lines_[static_cast<std::size_t>(&line - lines_) ^ 1];
  }
  bool reserve() noexcept;
  bool extend(std::size_t line_count) noexcept;
  void grow() noexcept;
  void swap(HintTable& other) noexcept;

  Line* lines_ = nullptr;
  std::size_t line_count_ = 0;  // a power of two
  std::size_t used_slots_ = 0;
  Era era_;
  char* reserved_ = nullptr;  // the address space that the lines may grow into
  std::size_t reserved_bytes_ = 0;
};

// What a search has found out, until the read that it belongs to has been validated.
struct LearntHint {
  HintTable* table = nullptr;  // null: nothing
  Era era;
  Hint hint{};
  std::int32_t to_record = 0;

  void keep() const noexcept {
    if (table == nullptr) return;
    table->keys.to_record = to_record;
    table->remember(era, hint);
  }
};

}  // namespace cachet

#endif
