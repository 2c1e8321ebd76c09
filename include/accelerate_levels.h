// Packed levels: a process's copy of the upper levels of one index tree, 16 bytes a node instead of a cache line
// anywhere in the node area, one copy for each index of a handle.
//
//   position     1                    entry, 16 bytes   0                8        12            16
//             2     3                                   +----------------+--------+-------------+
//            4 5   6 7   ...                            | key's window   | header | node number |
//                                                       +----------------+--------+-------------+
//
// Window and header are those of the node's separator (separator.h). Node number 0: empty.
//
// An entry holds a node that a search met: at position 1 the root, at 2p the left child and at 2p + 1 the right child
// of the node at p, as they were then. Rotations make positions stale, not entries: key and separator of an internal
// node stay as they are for as long as the tree keeps its nonce (accelerate_nonce.h). So whoever goes down here takes
// right decisions, may end beside the place that he looks for, and proves the place (levelled_descent.h).
//
// What must stay true: an entry was a child of the entry above it. Therefore a position that gets another node
// loses both children.
#ifndef CACHET_ACCELERATE_LEVELS_H
#define CACHET_ACCELERATE_LEVELS_H

#include <cstddef>
#include <cstdint>
#include <utility>

#include "accelerate_nonce.h"

namespace cachet {

// Used by one thread at a time, as the handle it belongs to.
class PackedLevels {
 public:
  static constexpr int level_count = 16;
  static constexpr std::uint32_t root = 1;
  static constexpr std::uint32_t end = std::uint32_t{1} << level_count;  // of positions

  struct Entry {
    std::uint64_t window;  // of the node's separator
    std::uint32_t header;
    std::uint32_t node_number;
  };
  static_assert(sizeof(Entry) == 16);

  PackedLevels() = default;
  ~PackedLevels();
  PackedLevels(PackedLevels&& other) noexcept { swap(other); }
  PackedLevels& operator=(PackedLevels&& other) noexcept {
    swap(other);
    return *this;
  }

  // To be asked before each search. False when the tree has no nonce, when it has not been searched often yet, and
  // when there is no memory. Another era empties the levels.
  bool begin(const Era& era) noexcept {
    if (entries_ != nullptr && era_.goes_on_as(era)) [[likely]]
      return true;
    return begin_anew(era);
  }

  const Entry& at(std::uint32_t position) const noexcept { return entries_[position]; }

  void put(std::uint32_t position, const Entry& entry) noexcept {
    const bool is_another = entries_[position].node_number != entry.node_number;
    entries_[position] = entry;
    const std::size_t left_child = std::size_t{position} * 2;
    if (!is_another || left_child >= end) return;
    entries_[left_child].node_number = 0;
    entries_[left_child + 1].node_number = 0;
  }

 private:
  bool begin_anew(const Era& era) noexcept;
  void swap(PackedLevels& other) noexcept {
    std::swap(entries_, other.entries_);
    std::swap(era_, other.era_);
    std::swap(searches_, other.searches_);
  }

  Entry* entries_ = nullptr;
  Era era_;
  int searches_ = 0;  // made without entries
};

}  // namespace cachet

#endif
