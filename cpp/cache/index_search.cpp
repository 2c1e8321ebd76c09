#include "cache/index_search.h"

#include "accelerate/levelled_descent.h"
#include "base/features.h"
#include "cache/entry.h"
#include "cache/hinted_key.h"
#include "cache/key.h"
#include "cache/stored_keys.h"

namespace cachet {

namespace {

// The keys of a record-id tree.
template <bool checked>
class StoredIds {
 public:
  StoredIds(Rb_base* base, ZtListItem* searched) : base_(base), searched_(searched) {}

  Comparison compare(Rb_node external) const {
    const std::int64_t offset = key_offset_of(external);
    if (checked && !is_data(base_, offset, sizeof(ZtListItem))) return {-1, 0};
    return {ZtComp2(base_, searched_, address_of(base_, FlatOffset{offset})), 0};
  }
  // No separator of this tree skips a byte.
  static bool bytes_of(Rb_node, KeyBytes&) { return false; }

 private:
  Rb_base* base_;
  ZtListItem* searched_;
};

template <bool checked>
using IndexDescent = Descent<checked, StoredKeys<checked>>;
template <bool checked>
using LevelledIndexDescent = LevelledDescent<checked, StoredKeys<checked>>;

[[maybe_unused]] IndexPlace search_plainly(Rb_base* base, Rb_node head, void* key, Rb_compare compare) {
  int found = 0;
  const Rb_node node = rb_find_gkey_n(base, head, key, compare, &found);
  return {node, found != 0, {}};
}

// The levels that may serve for this key; null when none may: the shape of the tree decides which one of several equal
// keys is found.
PackedLevels* levels_for(const Rb_base* base, const ZtTable& table, std::size_t indexid,
                         const SearchKey& key) {
  if (!features::packed_levels || !key.is_exact()) return nullptr;
  PackedLevels& levels = table.levels[indexid];
  return levels.begin(Era::of(base, table.indexs[indexid])) ? &levels : nullptr;
}

template <class Descent>
void go_down(Descent& descent) {
  if (!descent.begin()) return;
  while (descent.step()) {
  }
}

template <class Descent>
IndexPlace place_at_end(const Descent& descent) {
  return {descent.node(), descent.found(), {}};
}

template <class Descent>
IndexPlace place_for_entry(Descent& descent) {
  IndexPlace place = place_at_end(descent);
  if (features::separators && !place.found) place.separator = descent.separator_for_entry();
  return place;
}

template <bool checked>
IndexPlace search(Rb_base* base, const ZtTable& table, std::size_t indexid, const SearchKey& key) {
  LevelledIndexDescent<checked> descent(base, table.indexs[indexid], key.bytes(),
                                        StoredKeys<checked>(base, key),
                                        levels_for(base, table, indexid, key));
  go_down(descent);
  if (descent.stands()) return place_at_end(descent);
  LevelledIndexDescent<checked> again = descent.from_root();
  go_down(again);
  return place_at_end(again);
}

template <bool checked>
IndexPlace search_for_entry(Rb_base* base, Rb_node head, const SearchKey& key) {
  IndexDescent<checked> descent(base, head, key.bytes(), StoredKeys<checked>(base, key));
  go_down(descent);
  return place_for_entry(descent);
}

// The searches of one round. From the root: where searches hide each other's misses,
// packed levels save none, and cost what they are kept up with.
template <bool checked, std::size_t width>
class Round {
 public:
  explicit Round(Rb_base* base) : base_(base) {}

  // `key` outlives the round.
  void add(Rb_node head, const SearchKey& key) {
    descents_[count_++].make(base_, head, key.bytes(), StoredKeys<checked>(base_, key));
  }
  void run() { go_down_together(descents_, count_); }
  // Asks for what else an insertion at these places looks at: the leaf to whose other side the new one goes, and, for
  // the balance, the other children of the two nodes above.
  void fetch_neighbours() const {
    for (std::size_t index = 0; index < count_; ++index) {
      const Rb_node leaf = at(index).node();
      if (at(index).found()) {
        prefetch(address_of(base_, FlatOffset{key_offset_of(leaf)}));
        continue;
      }
      fetch(blink_of(leaf));
      Rb_node node = leaf;
      for (int level = 0; level < 2 && !is(node, RB_ROOT | RB_HEAD); ++level) {
        const std::uint32_t parent = parent_of(node);
        if (!may_follow(parent)) break;
        const bool is_left = is(node, RB_LEFT);
        node = node_at(base_, parent);
        fetch(child_of(node, !is_left));
      }
    }
  }
  // And, where the key is there already, the last entry of its list, for which the item has been asked.
  void fetch_tails() const {
    for (std::size_t index = 0; index < count_; ++index) {
      if (!at(index).found()) continue;
      if (const ZtIndexItem* const item = stored_item(base_, at(index).node())) fetch(OriginList::tail(item));
    }
  }
  const IndexDescent<checked>& at(std::size_t index) const { return descents_[index].value; }
  IndexDescent<checked>& at(std::size_t index) { return descents_[index].value; }

 private:
  bool may_follow(std::uint32_t link) const { return !checked || is_node(base_, link); }
  void fetch(std::uint32_t link) const {
    if (may_follow(link)) prefetch(node_at(base_, link));
  }

  Rb_base* base_;
  std::size_t count_ = 0;
  std::array<Later<IndexDescent<checked>>, width> descents_;
};

// Tries the hints of all keys together, then goes down for those that no hint has led to.
template <bool checked>
void search_all(Rb_base* base, const ZtTable& table, const ZtConditionHandle* conditions, std::size_t count,
                std::array<IndexPlace, lockstep_width>& places, std::vector<LearntHint>& learnt) {
  std::array<Later<SearchKey>, lockstep_width> keys;
  std::array<Later<HintedKey>, lockstep_width> hinted;
  for (std::size_t index = 0; index < count; ++index) {
    const auto indexid = static_cast<std::size_t>(conditions[index]->indexid);
    hinted[index].make(base, table, indexid, &conditions[index]->indexitem);
  }
  for (std::size_t index = 0; index < count; ++index) hinted[index].value.take_hint();

  Round<checked, lockstep_width> round(base);
  std::array<std::size_t, lockstep_width> searched;
  std::size_t left = 0;
  for (std::size_t index = 0; index < count; ++index) {
    const HintedKey& key = hinted[index].value;
    places[index] = {key.prove<checked>(), true, {}};
    if (places[index].node != nullptr) continue;
    const auto indexid = static_cast<std::size_t>(conditions[index]->indexid);
    round.add(table.indexs[indexid], keys[left].make(table, indexid, &conditions[index]->indexitem));
    searched[left++] = index;
  }
  round.run();
  for (std::size_t index = 0; index < left; ++index) {
    IndexPlace& place = places[searched[index]];
    place = place_at_end(round.at(index));
    if (place.found) learnt.push_back(hinted[searched[index]].value.learn(place.node));
  }
}

// The places of a row's keys in some of its table's indexes, from `first` to before `end`.
template <bool checked, std::size_t width>
void find_some_places(Rb_base* base, const ZtTable& table, ZtRecord* row, std::size_t first, std::size_t end,
                      std::vector<IndexPlace>& places) {
  std::array<Later<RowKey>, width> fields;
  std::array<Later<SearchKey>, width> keys;
  Round<checked, width> round(base);
  for (std::size_t id = first; id < end; ++id) {
    ZtIndexItem* const item = fields[id - first].make(table, table.indexdescrible[id], row).item();
    const SearchKey& key = keys[id - first].make(table, id, item);
    if constexpr (features::interleaving) {
      round.add(table.indexs[id], key);
    } else {
      places[id] = find_place_in_index(base, table, id, key);
    }
  }
  if constexpr (!features::interleaving) return;
  round.run();
  round.fetch_neighbours();
  for (std::size_t id = first; id < end; ++id) places[id] = place_for_entry(round.at(id - first));
  round.fetch_tails();
}

template <bool checked>
IndexPlace search_id(Rb_base* base, Rb_node head, ZtListItem* wanted) {
  const KeyBytes bytes = bytes_of_id(wanted->recordid);
  Descent<checked, StoredIds<checked>> descent(base, head, bytes, StoredIds<checked>(base, wanted));
  go_down(descent);
  return place_at_end(descent);
}

}  // namespace

IndexPlace find_in_index(Rb_base* base, const ZtTable& table, std::size_t indexid, ZtIndexItem* item) {
  const SearchKey key(table, indexid, item);
  if constexpr (!features::separators) return search_plainly(base, table.indexs[indexid], key.item(), ZtComp);
  return checks_links(base) ? search<true>(base, table, indexid, key)
                            : search<false>(base, table, indexid, key);
}

IndexPlace find_place_in_index(Rb_base* base, const ZtTable& table, std::size_t indexid,
                               const SearchKey& key) {
  if constexpr (!features::separators) return search_plainly(base, table.indexs[indexid], key.item(), ZtComp);
  return checks_links(base) ? search_for_entry<true>(base, table.indexs[indexid], key)
                            : search_for_entry<false>(base, table.indexs[indexid], key);
}

void find_in_indexes(ZtDb* database, const ZtTable& table, const ZtConditionHandle* conditions,
                     std::size_t count, std::array<IndexPlace, lockstep_width>& places,
                     std::vector<LearntHint>& learnt) {
  Rb_base* const base = &database->base;
  if constexpr (features::interleaving) {
    checks_links(base) ? search_all<true>(base, table, conditions, count, places, learnt)
                       : search_all<false>(base, table, conditions, count, places, learnt);
  } else {
    for (std::size_t index = 0; index < count; ++index) {
      const auto indexid = static_cast<std::size_t>(conditions[index]->indexid);
      places[index] = find_in_index(base, table, indexid, &conditions[index]->indexitem);
    }
  }
}

void find_places_in_indexes(ZtDb* database, const ZtTable& table, ZtRecord* row,
                            std::vector<IndexPlace>& places) {
  Rb_base* const base = &database->base;
  places.resize(table.indexs.size());
  constexpr std::size_t width = features::interleaving ? 4 : 1;
  for (std::size_t first = 0; first < places.size(); first += width) {
    const std::size_t end = std::min(places.size(), first + width);
    checks_links(base) ? find_some_places<true, width>(base, table, row, first, end, places)
                       : find_some_places<false, width>(base, table, row, first, end, places);
  }
}

IndexPlace find_record_id(ZtDb* database, const ZtTable& table, ZTINT8 recordid) {
  Rb_base* const base = &database->base;
  ZtListItem wanted{recordid, 0};
  if constexpr (!features::separators) return search_plainly(base, table.listindex, &wanted, ZtComp2);
  return checks_links(base) ? search_id<true>(base, table.listindex, &wanted)
                            : search_id<false>(base, table.listindex, &wanted);
}

KeyBytes bytes_of_id(ZTINT8 recordid) {
  KeyBytes bytes;
  bytes.finish(bytes.append(FIELD_INT8, reinterpret_cast<const char*>(&recordid), sizeof recordid));
  return bytes;
}

bool bytes_of_stored_key(const Rb_base* base, Rb_node external, KeyBytes& bytes) {
  return read_stored_key<true>(base, external, bytes);
}

Separator separator_of(ZTINT8 recordid) {
  return bytes_of_id(recordid).separator(0);
}

}  // namespace cachet
