// The two lists under a key: their entries, and the ends in the key's item. Items and entries are shared; an
// item lies at any alignment, an entry in an aligned slot. Walking and changing a list is written once for
// both directions.
#ifndef CACHET_CPP_CACHE_ENTRY_H
#define CACHET_CPP_CACHE_ENTRY_H

#include "caches.h"

namespace cachet {

inline ZtIndexNode* entry_at(const Rb_base* base, std::uint32_t number) noexcept {
  return reinterpret_cast<ZtIndexNode*>(address_of(base, NodeNumber{number}));
}

inline std::uint32_t number_of(const Rb_base* base, const ZtIndexNode* entry) noexcept {
  return value_of(node_number_of(base, entry));
}

inline std::int64_t record_offset_of(const ZtIndexNode* entry) noexcept {
  return load_acquire<std::int64_t>(entry);
}

// A list, by where its links lie in an entry and its ends in an item.
template <std::size_t next_at, std::size_t prev_at, std::size_t head_at, std::size_t tail_at>
struct List {
  using Reversed = List<prev_at, next_at, tail_at, head_at>;

  static std::uint32_t next(const ZtIndexNode* entry) noexcept {
    return load_acquire<std::uint32_t>(reinterpret_cast<const char*>(entry) + next_at);
  }
  static std::uint32_t prev(const ZtIndexNode* entry) noexcept { return Reversed::next(entry); }
  static std::uint32_t head(const ZtIndexItem* item) noexcept {
    return load_acquire_unaligned<std::uint32_t>(reinterpret_cast<const char*>(item) + head_at);
  }
  static std::uint32_t tail(const ZtIndexItem* item) noexcept { return Reversed::head(item); }

  static void set_next(ZtIndexNode* entry, std::uint32_t to) noexcept {
    store_release<std::uint32_t>(reinterpret_cast<char*>(entry) + next_at, to);
  }
  static void set_prev(ZtIndexNode* entry, std::uint32_t to) noexcept { Reversed::set_next(entry, to); }
  static void set_head(ZtIndexItem* item, std::uint32_t to) noexcept {
    store_release_unaligned<std::uint32_t>(reinterpret_cast<char*>(item) + head_at, to);
  }
  static void set_tail(ZtIndexItem* item, std::uint32_t to) noexcept { Reversed::set_head(item, to); }

  // Puts a complete entry between two neighbours of which either may be missing. The links that make it
  // reachable come last, the forward one first.
  static void insert(const Rb_base* base, ZtIndexItem* item, ZtIndexNode* before, ZtIndexNode* entry,
                     ZtIndexNode* behind) noexcept {
    const std::uint32_t number = number_of(base, entry);
    set_next(entry, behind != nullptr ? number_of(base, behind) : 0);
    set_prev(entry, before != nullptr ? number_of(base, before) : 0);
    before != nullptr ? set_next(before, number) : set_head(item, number);
    behind != nullptr ? set_prev(behind, number) : set_tail(item, number);
  }
};

// Every record ever stored under the key, and the ones that cursors have not unlinked.
using OriginList = List<offsetof(ZtIndexNode, originnext), offsetof(ZtIndexNode, originprev),
                        offsetof(ZtIndexItem, originhead), offsetof(ZtIndexItem, origintail)>;
using CurrentList = List<offsetof(ZtIndexNode, curentnext), offsetof(ZtIndexNode, curentprev),
                         offsetof(ZtIndexItem, curenthead), offsetof(ZtIndexItem, curenttail)>;

}  // namespace cachet

#endif
