// Asking for what one key leads to, in the order in which it is found. Each step asks for its own and reads only what
// those before have asked for. For one moment: the fronts of the memory are looked at once.
#ifndef CACHET_CPP_CACHE_FETCH_ROW_H
#define CACHET_CPP_CACHE_FETCH_ROW_H

#include "accelerate/prefetch.h"
#include "cache/entry.h"
#include "cache/key.h"

namespace cachet {

class RowFetcher {
 public:
  explicit RowFetcher(const Rb_base* base) noexcept : base_(base), reach_(base) {}

  // The item of a leaf, and the entry that an insert puts in front of the leaf.
  void item(Rb_node leaf) noexcept {
    prefetch(reinterpret_cast<const char*>(leaf) - slot_bytes);
    if (const char* const item = item_of<ZtIndexItem>(leaf)) prefetch(item);
  }

  // The first record of a key in an index's tree.
  void first_record(Rb_node leaf) noexcept {
    const auto* const item = reinterpret_cast<const ZtIndexItem*>(item_of<ZtIndexItem>(leaf));
    if (item == nullptr) return;
    const std::uint32_t first = CurrentList::head(item);
    if (reach_.node(first)) record(record_offset_of(entry_at(base_, first)));
  }

  // The record of a leaf in a record-id tree.
  void listed_record(Rb_node leaf) noexcept {
    if (const char* const item = item_of<ZtListItem>(leaf))
      record(load_unaligned<std::int64_t>(item + offsetof(ZtListItem, precord)));
  }

 private:
  template <class Item>
  const char* item_of(Rb_node leaf) noexcept {
    const std::int64_t offset = key_offset_of(leaf);
    return reach_.data(offset, sizeof(Item)) ? address_of(base_, FlatOffset{offset}) : nullptr;
  }

  // It may begin in one line and end in the next.
  void record(std::int64_t offset) noexcept {
    constexpr std::int64_t line_bytes = 64;
    if (!reach_.data(offset, ZT_RECORD_HEADER)) return;
    const char* const record = address_of(base_, FlatOffset{offset});
    prefetch(record);
    prefetch(record + line_bytes - 1);
  }

  const Rb_base* base_;
  Reach reach_;
};

}  // namespace cachet

#endif
