// Walking all keys of a tree and all records of a table, in ascending order: exports, dumps and images come
// from here.
//
// No lock is taken. A handle that a writer may overtake checks every link before it follows it and takes no
// more steps than there are nodes; what it sees of a change under way is its caller's business.
#ifndef CACHET_CPP_CACHE_EACH_RECORD_H
#define CACHET_CPP_CACHE_EACH_RECORD_H

#include <limits>

#include "cache/record.h"

namespace cachet {

enum class Links { trusted, checked };

inline Links links_of(const Rb_base* base) {
  return checks_links(base) ? Links::checked : Links::trusted;
}

// Visits the nodes of the tree's keys.
template <class Visit>
void for_each_node(const Rb_base* base, Rb_node head, Links links, const Visit& visit) {
  const bool checked = links == Links::checked;
  std::int64_t steps_left = checked ? load_acquire<ZTINT8>(&base->memory->nodeoffset) / slot_bytes
                                    : std::numeric_limits<std::int64_t>::max();
  for (std::uint32_t link = blink_of(head); steps_left > 0; --steps_left) {
    if (checked && !is_node(base, link)) return;
    const Rb_node node = node_at(base, link);
    if (node == head) return;
    visit(node);
    link = blink_of(node);
  }
}

// Visits the records of a table by the head of its record list, deleted ones too. `record_bytes`: of a stored
// record with its header.
template <class Visit>
void for_each_record(const Rb_base* base, Rb_node listindex, int record_bytes, Links links,
                     const Visit& visit) {
  const bool checked = links == Links::checked;
  for_each_node(base, listindex, links, [&](Rb_node node) {
    const std::int64_t item = key_offset_of(node);
    if (checked && !is_data(base, item, sizeof(ZtListItem))) return;
    const char* const bytes = address_of(base, FlatOffset{item});
    const auto record = load_unaligned<std::int64_t>(bytes + offsetof(ZtListItem, precord));
    if (checked && !is_data(base, record, record_bytes)) return;
    visit(record_at(base, record));
  });
}

// The same for a table of the handle.
template <class Visit>
void for_each_record(const ZtDb* database, const ZtTable& table, const Visit& visit) {
  const Rb_base* const base = &database->base;
  for_each_record(base, table.listindex, stored_bytes(table), links_of(base), visit);
}

}  // namespace cachet

#endif
