// Positions in the flat space and their addresses in this process: two strong types and the four functions
// between them, plus the bounds that a reader without a lock checks before it follows a link. The segment
// size, the slot size and the edges between segments are known here alone. Included by rb.h.
#ifndef CACHET_RB_ADDRESS_H
#define CACHET_RB_ADDRESS_H

#include <algorithm>

namespace cachet {

enum class FlatOffset : std::int64_t {};
enum class NodeNumber : std::uint32_t { none = 0 };

inline constexpr int segment_bits = 30;
inline constexpr std::int64_t segment_bytes = std::int64_t{1} << segment_bits;
inline constexpr int slot_bits = 5;
inline constexpr std::int64_t slot_bytes = std::int64_t{1} << slot_bits;
inline constexpr std::int64_t page_bytes = 4096;
inline constexpr std::int64_t huge_page_bytes = std::int64_t{1} << 21;

constexpr std::int64_t value_of(FlatOffset offset) noexcept {
  return static_cast<std::int64_t>(offset);
}
constexpr std::uint32_t value_of(NodeNumber number) noexcept {
  return static_cast<std::uint32_t>(number);
}
constexpr std::int64_t segment_of(std::int64_t offset) noexcept {
  return offset >> segment_bits;
}
constexpr std::int64_t round_up(std::int64_t value, std::int64_t step) noexcept {
  return (value + step - 1) / step * step;
}

inline char* address_of(const Rb_base* base, FlatOffset offset) noexcept {
  const std::int64_t position = value_of(offset);
  if (base->flat_begin != nullptr) [[likely]] {
    return base->flat_begin + position;
  }
  return base->share_memory_begin[segment_of(position)] + (position & (segment_bytes - 1));
}

inline char* address_of(const Rb_base* base, NodeNumber number) noexcept {
  return address_of(base, FlatOffset{std::int64_t{value_of(number)} << slot_bits});
}

inline Rb_node node_at(const Rb_base* base, std::uint32_t number) noexcept {
  return reinterpret_cast<Rb_node>(address_of(base, NodeNumber{number}));
}

// The offset of an address in segments that lie anywhere; 0 when it lies in none of them.
CACHET_API FlatOffset offset_in_segments(const Rb_base* base, const char* address) noexcept;

inline FlatOffset offset_of(const Rb_base* base, const void* address) noexcept {
  const char* const byte = static_cast<const char*>(address);
  if (base->flat_begin != nullptr) [[likely]] {
    return FlatOffset{byte - base->flat_begin};
  }
  return offset_in_segments(base, byte);
}

inline NodeNumber node_number_of(const Rb_base* base, const void* address) noexcept {
  return NodeNumber{static_cast<std::uint32_t>(value_of(offset_of(base, address)) >> slot_bits)};
}

// Bytes of the flat space. What was attached is known without looking; a view that was filled by hand has the header.
inline std::int64_t flat_bytes(const Rb_base* base) noexcept {
  return base->attached_bytes != 0 ? base->attached_bytes : base->memory->size;
}

// Whether `number` names a slot that has been allocated.
inline bool is_node(const Rb_base* base, std::uint32_t number) noexcept {
  const std::int64_t begin = std::int64_t{number} << slot_bits;
  const std::int64_t front = load_acquire<ZTINT8>(&base->memory->nodeoffset);
  return begin >= static_cast<std::int64_t>(sizeof(Rb_memory)) &&
         begin >= load_relaxed<ZTINT8>(&base->memory->memoryheadsize) && begin + slot_bytes <= front &&
         front <= flat_bytes(base);
}

// Whether two positions lie in the same segment.
constexpr bool in_one_segment(std::int64_t first, std::int64_t last) noexcept {
  return segment_of(first ^ last) == 0;
}

// Whether the `length` bytes at `offset` lie in the data area, and in one segment.
inline bool is_data(const Rb_base* base, std::int64_t offset, std::int64_t length) noexcept {
  const std::int64_t end = flat_bytes(base);
  return offset > 0 && offset >= load_acquire<ZTINT8>(&base->memory->dataoffset) && length >= 0 &&
         length <= end && offset <= end - length &&
         (length == 0 || in_one_segment(offset, offset + length - 1));
}

// The flat space of a handle whose segments lie side by side, for one call: what most handles have, and where an
// address is one addition away. Says false, and serves for nothing, on any other handle.
class FlatSpace {
 public:
  explicit FlatSpace(const Rb_base* base) noexcept : begin_(base->flat_begin), bytes_(base->attached_bytes) {}
  explicit operator bool() const noexcept { return begin_ != nullptr; }

  std::int64_t bytes() const noexcept { return bytes_; }
  char* at(std::int64_t offset) const noexcept { return begin_ + offset; }
  Rb_node node(std::uint32_t number) const noexcept {
    return reinterpret_cast<Rb_node>(at(std::int64_t{number} << slot_bits));
  }
  // The same as is_node and is_readable_data.
  [[gnu::always_inline]] bool has_node(std::uint32_t number) const noexcept {
    const std::int64_t begin = std::int64_t{number} << slot_bits;
    const std::int64_t front = load_acquire<ZTINT8>(at(offsetof(Rb_memory, nodeoffset)));
    return begin >= static_cast<std::int64_t>(sizeof(Rb_memory)) &&
           begin >= load_relaxed<ZTINT8>(at(offsetof(Rb_memory, memoryheadsize))) &&
           begin + slot_bytes <= front && front <= bytes_;
  }
  [[gnu::always_inline]] bool has_data(std::int64_t offset, std::int64_t length) const noexcept {
    const std::int64_t front = load_relaxed<ZTINT8>(at(offsetof(Rb_memory, dataoffset)));
    return offset > 0 && offset >= front && offset <= bytes_ - length;
  }

 private:
  char* begin_;
  std::int64_t bytes_;
};

// Where what has a length may begin, as the fronts are now: for several questions in a row, each of them one comparison.
// A front that damage or a reset has put anywhere leaves no place at all, or places inside the memory.
class Places {
 public:
  // Of allocated node slots.
  [[gnu::always_inline]] static Places of_nodes(const FlatSpace& space) noexcept {
    const auto head = load_relaxed<ZTINT8>(space.at(offsetof(Rb_memory, memoryheadsize)));
    const auto front = load_acquire<ZTINT8>(space.at(offsetof(Rb_memory, nodeoffset)));
    const std::int64_t first = std::max<std::int64_t>(sizeof(Rb_memory), head);
    return {first, front > 0 && front <= space.bytes() ? front - slot_bytes : 0};
  }
  // Of `length` bytes in the data area.
  [[gnu::always_inline]] static Places of_data(const FlatSpace& space, std::int64_t length) noexcept {
    const auto front = load_relaxed<ZTINT8>(space.at(offsetof(Rb_memory, dataoffset)));
    return {std::max<std::int64_t>(front, 1), space.bytes() - length};
  }

  [[gnu::always_inline]] bool have(std::int64_t offset) const noexcept {
    return static_cast<std::uint64_t>(offset) - first_ < count_;
  }
  [[gnu::always_inline]] bool have_node(std::uint32_t number) const noexcept {
    return have(std::int64_t{number} << slot_bits);
  }

 private:
  Places(std::int64_t first, std::int64_t last) noexcept
      : first_(static_cast<std::uint64_t>(first)),
        count_(last >= first ? static_cast<std::uint64_t>(last - first) + 1 : 0) {}

  std::uint64_t first_;  // at least 1
  std::uint64_t count_;
};

// Whether the `length` bytes at `offset` lie in the data area, and can be read from its address on. Less to ask than
// is_data where the segments lie side by side: there, bytes that cross from one to the next can be read too.
inline bool is_readable_data(const Rb_base* base, std::int64_t offset, std::int64_t length) noexcept {
  const FlatSpace space(base);
  return space ? space.has_data(offset, length) : is_data(base, offset, length);
}

// is_node, many times in a row: the front is kept, and looked at again only for what lies beyond it. A front that a
// reset has taken back meanwhile is noticed late: what lies behind it is memory all the same.
class Reach {
 public:
  explicit Reach(const Rb_base* base) noexcept : base_(base) {
    least_node_ =
        std::max<std::int64_t>(sizeof(Rb_memory), load_relaxed<ZTINT8>(&base->memory->memoryheadsize));
    look();
  }

  bool node(std::uint32_t number) noexcept {
    return is_behind_front(number) || (look(), is_behind_front(number));
  }

 private:
  void look() noexcept {
    const std::int64_t front = load_acquire<ZTINT8>(&base_->memory->nodeoffset);
    node_front_ = front <= flat_bytes(base_) ? front : 0;
  }
  bool is_behind_front(std::uint32_t number) const noexcept {
    const std::int64_t begin = std::int64_t{number} << slot_bits;
    return begin >= least_node_ && begin + slot_bytes <= node_front_;
  }

  const Rb_base* base_;
  std::int64_t least_node_;
  std::int64_t node_front_ = 0;
};

// Whether an address lies in the flat space.
inline bool is_shared(const Rb_base* base, const void* address) noexcept {
  const std::int64_t offset = value_of(offset_of(base, address));
  return offset > 0 && offset < base->attached_bytes;
}

// Whether `length` bytes from an address inside the flat space would run out of its segment.
inline bool runs_out(const Rb_base* base, const void* address, std::int64_t length) noexcept {
  const std::int64_t begin = value_of(offset_of(base, address));
  const std::int64_t end = begin + length;
  if (begin <= 0 || begin >= flat_bytes(base)) return false;
  return end > flat_bytes(base) || segment_of(begin) != segment_of(end - 1);
}

// A handle that may be overtaken by a writer: it checks links before it follows them.
inline bool checks_links(const Rb_base* base) noexcept {
  return base != nullptr && (base->mode == 1 || base->isolate);
}

// The status byte and the links of a node, for walking without a call.
inline std::uint8_t status_of(const srb_node* node) noexcept {
  return load_acquire<std::uint8_t>(reinterpret_cast<const char*>(node) + offsetof(srb_node, s));
}
inline std::uint32_t flink_of(const srb_node* node) noexcept {
  return load_acquire<std::uint32_t>(node);
}
inline std::uint32_t blink_of(const srb_node* node) noexcept {
  return load_acquire<std::uint32_t>(reinterpret_cast<const char*>(node) + 4);
}
inline std::int64_t key_offset_of(const srb_node* node) noexcept {
  return load_unaligned<std::int64_t>(reinterpret_cast<const char*>(node) + offsetof(srb_node, k));
}
inline std::int64_t value_offset_of(const srb_node* node) noexcept {
  return load_unaligned<std::int64_t>(reinterpret_cast<const char*>(node) + offsetof(srb_node, v));
}

}  // namespace cachet

#endif
