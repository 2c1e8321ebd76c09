// The record lists of a key, read straight from the shared memory.
#ifndef CACHET_TESTS_SUPPORT_LISTS_H
#define CACHET_TESTS_SUPPORT_LISTS_H

#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>
#include <vector>

#include "caches.h"

namespace cachet::test {

// The item that a search in index `index` finds for the key in `condition`; null when the key was never
// stored.
inline ZtIndexItem* item_of(ZtDbHandle db, int index, ZtConditionHandle condition) {
  int found = 0;
  Rb_node node = rb_find_gkey_n(&db->base, db->database[0].indexs[static_cast<std::size_t>(index)],
                                &condition->indexitem, ZtComp, &found);
  return found == 1 ? reinterpret_cast<ZtIndexItem*>(rb_key(&db->base, node)) : nullptr;
}

struct Lists {
  std::vector<ZTINT8> origin, current;
  bool both_ways;  // following the links backwards gives the same lists
  bool operator==(const Lists&) const = default;
  friend void PrintTo(const Lists& lists, std::ostream* out) {
    *out << "origin " << testing::PrintToString(lists.origin) << ", current "
         << testing::PrintToString(lists.current) << (lists.both_ways ? "" : ", otherwise backwards");
  }
};

// Follows one list from one end; stops after 10000 entries, so that a ring shows as a wrong list and not as a
// hang.
template <class Step>
std::vector<ZTINT8> follow(ZtDbHandle db, std::uint32_t number, Step step) {
  std::vector<ZTINT8> ids;
  while (number != 0 && ids.size() < 10000) {
    const auto node = load_unaligned<ZtIndexNode>(address_of(&db->base, NodeNumber{number}));
    ids.push_back(load_unaligned<ZTINT8>(address_of(&db->base, FlatOffset{node.precord})));
    number = step(node);
  }
  return ids;
}

inline Lists lists_of(ZtDbHandle db, const ZtIndexItem* item) {
  const auto copy = load_unaligned<ZtIndexItem>(item);
  Lists lists;
  lists.origin = follow(db, copy.originhead, [](const ZtIndexNode& n) { return n.originnext; });
  lists.current = follow(db, copy.curenthead, [](const ZtIndexNode& n) { return n.curentnext; });
  auto origin = follow(db, copy.origintail, [](const ZtIndexNode& n) { return n.originprev; });
  auto current = follow(db, copy.curenttail, [](const ZtIndexNode& n) { return n.curentprev; });
  std::reverse(origin.begin(), origin.end());
  std::reverse(current.begin(), current.end());
  lists.both_ways = origin == lists.origin && current == lists.current;
  return lists;
}

}  // namespace cachet::test

#endif
