// Asking for what one key leads to, in the order in which it is found. Each step asks for its own and reads only what
// those before have asked for. On a handle without a FlatSpace it does nothing.
#ifndef CACHET_CPP_CACHE_FETCH_ROW_H
#define CACHET_CPP_CACHE_FETCH_ROW_H

#include "accelerate/prefetch.h"
#include "cache/entry.h"

namespace cachet {

class RowFetcher {
 public:
  explicit RowFetcher(const FlatSpace& space) noexcept : space_(space) {}

  // The item of a leaf, and the entry that an insert puts in front of the leaf.
  [[gnu::always_inline]] void item(Rb_node leaf) const noexcept {
    prefetch(reinterpret_cast<const char*>(leaf) - slot_bytes);
    if (const char* const item = item_of<ZtIndexItem>(leaf)) prefetch(item);
  }

  // The first record of a key in an index's tree.
  [[gnu::always_inline]] void first_record(Rb_node leaf) const noexcept {
    const auto* const item = reinterpret_cast<const ZtIndexItem*>(item_of<ZtIndexItem>(leaf));
    if (item == nullptr) return;
    const std::uint32_t first = CurrentList::head(item);
    if (!space_.has_node(first)) return;
    record(record_offset_of(reinterpret_cast<const ZtIndexNode*>(space_.node(first))));
  }

  // The record of a leaf in a record-id tree.
  [[gnu::always_inline]] void listed_record(Rb_node leaf) const noexcept {
    if (const char* const item = item_of<ZtListItem>(leaf))
      record(load_unaligned<std::int64_t>(item + offsetof(ZtListItem, precord)));
  }

 private:
  template <class Item>
  const char* item_of(Rb_node leaf) const noexcept {
    const std::int64_t offset = space_ ? key_offset_of(leaf) : 0;
    return space_ && space_.has_data(offset, sizeof(Item)) ? space_.at(offset) : nullptr;
  }

  // It may begin in one line and end in the next.
  void record(std::int64_t offset) const noexcept {
    constexpr std::int64_t line_bytes = 64;
    if (!space_.has_data(offset, ZT_RECORD_HEADER)) return;
    const char* const record = space_.at(offset);
    prefetch(record);
    prefetch(record + line_bytes - 1);
  }

  FlatSpace space_;
};

}  // namespace cachet

#endif
