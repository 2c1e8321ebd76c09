// The two lists under a key: their entries, and the ends in the key's item. Items and entries are shared; an
// item lies at any alignment, an entry in an aligned slot. Walking and changing a list is written once for
// both directions.
#ifndef CACHET_CPP_CACHE_ENTRY_H
#define CACHET_CPP_CACHE_ENTRY_H

#include "caches.h"
#include "rb_stage.h"

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

  // Adds to the stage what puts an entry between two neighbours, of which either may be missing: the forward link
  // first. The entry's own links are set at once, since nothing leads to them yet.
  static void insert(Stage& stage, const Rb_base* base, ZtIndexItem* item, ZtIndexNode* before,
                     ZtIndexNode* entry, ZtIndexNode* behind) noexcept {
    const std::uint32_t number = number_of(base, entry);
    set_next(entry, behind != nullptr ? number_of(base, behind) : 0);
    set_prev(entry, before != nullptr ? number_of(base, before) : 0);
    stage.link(before != nullptr ? next_link(before) : head_link(item), number);
    stage.link(behind != nullptr ? prev_link(behind) : tail_link(item), number);
  }

  // Adds what takes an entry out from between its neighbours (0: none).
  static void remove(Stage& stage, const Rb_base* base, ZtIndexItem* item, std::uint32_t before,
                     std::uint32_t behind) noexcept {
    stage.link(before != 0 ? next_link(entry_at(base, before)) : head_link(item), behind);
    stage.link(behind != 0 ? prev_link(entry_at(base, behind)) : tail_link(item), before);
  }

  static const char* next_link(const ZtIndexNode* entry) noexcept {
    return reinterpret_cast<const char*>(entry) + next_at;
  }
  static const char* prev_link(const ZtIndexNode* entry) noexcept { return Reversed::next_link(entry); }
  static const char* head_link(const ZtIndexItem* item) noexcept {
    return reinterpret_cast<const char*>(item) + head_at;
  }
  static const char* tail_link(const ZtIndexItem* item) noexcept { return Reversed::head_link(item); }
};

// Every record ever stored under the key, and the ones that cursors have not unlinked.
using OriginList = List<offsetof(ZtIndexNode, originnext), offsetof(ZtIndexNode, originprev),
                        offsetof(ZtIndexItem, originhead), offsetof(ZtIndexItem, origintail)>;
using CurrentList = List<offsetof(ZtIndexNode, curentnext), offsetof(ZtIndexNode, curentprev),
                         offsetof(ZtIndexItem, curenthead), offsetof(ZtIndexItem, curenttail)>;

}  // namespace cachet

#endif
