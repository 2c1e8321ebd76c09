#include "cache/index_search.h"

#include "accelerate/levelled_descent.h"
#include "cache/key.h"
#include "cache/key_fields.h"

namespace cachet {

namespace {

// False when a writer has overtaken this handle there.
template <bool checked>
bool read_stored_key(const Rb_base* base, Rb_node external, KeyBytes& bytes) {
  const std::int64_t offset = key_offset_of(external);
  if (checked && !is_data(base, offset, 1)) return false;
  const KeyFields fields(base, address_of(base, FlatOffset{offset}), checked);
  if (!fields.readable()) return false;
  bool whole = true;
  for (int index = 0; whole && index < fields.count(); ++index) {
    const Value value = fields.value(index);
    if (value.data == nullptr) return false;
    whole = bytes.append(fields.type(index), value.data, value.length);
  }
  bytes.finish(whole);
  return true;
}

// The keys of an index's tree, compared with one searched key.
template <bool checked>
class StoredKeys {
 public:
  StoredKeys(Rb_base* base, const SearchKey& key) : base_(base), key_(&key) {}

  Comparison compare(Rb_node external) const {
    const KeyBytes& searched = key_->bytes();
    KeyBytes stored;
    if (searched.size() == 0 || !bytes_of(external, stored)) return {compare_fields(external), 0};
    const unsigned shared = searched.mismatch(stored);
    if (shared < searched.size() && shared < stored.size()) {
      return {searched[shared] < stored[shared] ? 1 : -1, shared};
    }
    const bool is_equal = shared == searched.size() && searched.is_whole();
    return {is_equal ? 0 : compare_fields(external), shared};
  }

  bool bytes_of(Rb_node external, KeyBytes& bytes) const {
    return read_stored_key<checked>(base_, external, bytes);
  }

 private:
  int compare_fields(Rb_node external) const {
    const std::int64_t offset = key_offset_of(external);
    if (checked && !is_data(base_, offset, 1)) return -1;
    return ZtComp(base_, key_->item(), address_of(base_, FlatOffset{offset}));
  }

  Rb_base* base_;
  const SearchKey* key_;
};

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
using IndexDescent = LevelledDescent<checked, StoredKeys<checked>>;

// The levels that may serve for this key; null when none may: the shape of the tree decides which one of several equal
// keys is found.
PackedLevels* levels_for(const Rb_base* base, const ZtTable& table, std::size_t indexid,
                         const SearchKey& key) {
  if (!features::packed_levels || !key.is_exact()) return nullptr;
  PackedLevels& levels = table.levels[indexid];
  return levels.begin(Era::of(base, table.indexs[indexid])) ? &levels : nullptr;
}

template <class Descent>
IndexPlace go_down(Descent& descent) {
  if (descent.begin()) {
    while (descent.step()) {
    }
  }
  return {descent.node(), descent.found(), {}};
}

template <class Descent>
IndexPlace place_at_end(Descent& descent, bool for_entry) {
  if (!descent.stands()) {
    Descent again = descent.from_root();
    go_down(again);
    return place_at_end(again, for_entry);
  }
  IndexPlace place{descent.node(), descent.found(), {}};
  if (for_entry && !place.found) place.separator = descent.separator_for_entry();
  return place;
}

template <bool checked>
IndexPlace search(Rb_base* base, const ZtTable& table, std::size_t indexid, const SearchKey& key,
                  bool for_entry) {
  IndexDescent<checked> descent(base, table.indexs[indexid], key.bytes(), StoredKeys<checked>(base, key),
                                levels_for(base, table, indexid, key));
  go_down(descent);
  return place_at_end(descent, for_entry);
}

// The search keys of one round, and the searches for them.
template <bool checked, std::size_t width>
class Round {
 public:
  explicit Round(Rb_base* base) : base_(base) {}

  void add(const ZtTable& table, std::size_t indexid, ZtIndexItem* item) {
    const SearchKey& key = keys_[count_].make(table, indexid, item);
    descents_[count_++].make(base_, table.indexs[indexid], key.bytes(), StoredKeys<checked>(base_, key),
                             levels_for(base_, table, indexid, key));
  }
  void run() { go_down_together(descents_, count_); }
  IndexPlace place(std::size_t index) {
    constexpr bool for_entry = false;
    return place_at_end(descents_[index].value, for_entry);
  }
  IndexPlace place_for_entry(std::size_t index) {
    return place_at_end(descents_[index].value, features::separators);
  }

 private:
  Rb_base* base_;
  std::size_t count_ = 0;
  std::array<Later<SearchKey>, width> keys_;
  std::array<Later<IndexDescent<checked>>, width> descents_;
};

template <bool checked>
void search_all(Rb_base* base, const ZtTable& table, const ZtConditionHandle* conditions, std::size_t count,
                std::array<IndexPlace, lockstep_width>& places) {
  Round<checked, lockstep_width> round(base);
  for (std::size_t index = 0; index < count; ++index) {
    round.add(table, static_cast<std::size_t>(conditions[index]->indexid), &conditions[index]->indexitem);
  }
  round.run();
  for (std::size_t index = 0; index < count; ++index) places[index] = round.place(index);
}

template <bool checked>
IndexPlace search_id(Rb_base* base, Rb_node head, ZtListItem* wanted) {
  const KeyBytes bytes = bytes_of_id(wanted->recordid);
  Descent<checked, StoredIds<checked>> descent(base, head, bytes, StoredIds<checked>(base, wanted));
  return go_down(descent);
}

[[maybe_unused]] IndexPlace search_plainly(Rb_base* base, Rb_node head, void* key, Rb_compare compare) {
  int found = 0;
  const Rb_node node = rb_find_gkey_n(base, head, key, compare, &found);
  return {node, found != 0, {}};
}

}  // namespace

SearchKey::SearchKey(const ZtTable& table, std::size_t indexid, ZtIndexItem* item) : item_(item) {
  if constexpr (!features::separators && !features::hints) return;
  const std::vector<int>& fields = table.indexdescrible[indexid].indexdescrible;
  bool whole = true;
  for (std::size_t index = 0; whole && static_cast<int>(index) < item->point; ++index) {
    const ZtIndexField& given = item->index[index];
    whole = index < fields.size() &&
            given.type == table.fielddescrible[static_cast<std::size_t>(fields[index])].type &&
            bytes_.append(given.type, given.data, static_cast<unsigned short>(given.length));
  }
  bytes_.finish(whole);
  is_exact_ =
      whole && static_cast<std::size_t>(item->point) == fields.size() && bytes_.ordered() == bytes_.size();
}

IndexPlace find_in_index(ZtDb* database, const ZtTable& table, std::size_t indexid, const SearchKey& key) {
  Rb_base* const base = &database->base;
  if constexpr (!features::separators) return search_plainly(base, table.indexs[indexid], key.item(), ZtComp);
  constexpr bool for_entry = false;
  return checks_links(base) ? search<true>(base, table, indexid, key, for_entry)
                            : search<false>(base, table, indexid, key, for_entry);
}

IndexPlace find_place_in_index(ZtDb* database, const ZtTable& table, std::size_t indexid,
                               const SearchKey& key) {
  Rb_base* const base = &database->base;
  if constexpr (!features::separators) return search_plainly(base, table.indexs[indexid], key.item(), ZtComp);
  return search<false>(base, table, indexid, key, true);
}

void find_in_indexes(ZtDb* database, const ZtTable& table, const ZtConditionHandle* conditions,
                     std::size_t count, std::array<IndexPlace, lockstep_width>& places) {
  if constexpr (features::interleaving) {
    checks_links(&database->base) ? search_all<true>(&database->base, table, conditions, count, places)
                                  : search_all<false>(&database->base, table, conditions, count, places);
  } else {
    for (std::size_t index = 0; index < count; ++index) {
      const auto indexid = static_cast<std::size_t>(conditions[index]->indexid);
      const SearchKey key(table, indexid, &conditions[index]->indexitem);
      places[index] = find_in_index(database, table, indexid, key);
    }
  }
}

void find_places_in_indexes(ZtDb* database, const ZtTable& table, ZtRecord* row,
                            std::vector<IndexPlace>& places) {
  places.resize(table.indexs.size());
  constexpr std::size_t width = features::interleaving ? 4 : 1;
  for (std::size_t first = 0; first < places.size(); first += width) {
    std::array<Later<RowKey>, width> fields;
    if constexpr (features::interleaving) {
      const std::size_t count = std::min(places.size() - first, width);
      Round<false, width> round(&database->base);
      for (std::size_t index = 0; index < count; ++index) {
        const std::size_t id = first + index;
        round.add(table, id, fields[index].make(table, table.indexdescrible[id], row).item());
      }
      round.run();
      for (std::size_t index = 0; index < count; ++index)
        places[first + index] = round.place_for_entry(index);
    } else {
      ZtIndexItem* const item = fields[0].make(table, table.indexdescrible[first], row).item();
      places[first] = find_place_in_index(database, table, first, SearchKey(table, first, item));
    }
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
