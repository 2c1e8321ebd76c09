// The most frequent of all reads in one straight piece: the search for the one record under a number or a text that is
// the whole key of a unique index, by a hint (hinted_key.h) that holds.
//
// Where anything is out of the ordinary it says false, and the whole search begins from nothing.
#ifndef CACHET_CPP_CACHE_FIND_BY_HINT_H
#define CACHET_CPP_CACHE_FIND_BY_HINT_H

#include "base/element.h"
#include "cache/entry.h"
#include "cache/hinted_key.h"
#include "cache/record.h"
#include "cache/snapshot.h"

namespace cachet {

// An index for whose next search there may be a hint.
struct HintedIndex {
  const ZtTable* table = nullptr;  // null: there is none
  HintTable* hints = nullptr;
};

[[gnu::always_inline]] inline HintedIndex hinted_index(const ZtDb* database, int tableid,
                                                       const ZtCondition* condition) noexcept {
  if (!features::hints || !has_element(database->database, tableid)) return {};
  const ZtTable& table = database->database[index_of_id(tableid)];
  if (!has_element(table.hints, condition->indexid)) return {};
  HintTable& hints = table.hints[index_of_id(condition->indexid)];
  const ZtIndexItem& key = condition->indexitem;
  if (hints.empty() || key.point != 1 || key.index->type != hints.keys.lone_type) return {};
  const bool may_serve = !condition->overfull && hint_limit() != 0 && database->base.flat_begin != nullptr;
  return may_serve ? HintedIndex{&table, &hints} : HintedIndex{};
}

// Puts the cursor on the first record of the key, whose only field has the type. `checked` is checks_links(base).
template <signed char type, bool checked>
[[gnu::always_inline]] inline bool stand_by_hint(const ZtDb* database, const HintedIndex& index,
                                                 ZtConditionHandle condition) noexcept {
  const FlatSpace space(&database->base);
  const ZtIndexField& field = *condition->indexitem.index;
  ExpectedHint& expected = condition->expected;
  if (!expected.has_key) {
    expected = index.hints->expect();
    expected.key = exact_lone_key<type>(field);
  }
  const ExactKey& key = expected.key;
  if (!key.is_exact) return false;
  const Rb_node head = index.table->indexs[static_cast<std::size_t>(condition->indexid)];
  const Hint* const found = index.hints->find(Era::of(&database->base, head), key.hash);
  if (found == nullptr) return false;
  // Everything that the memory of the row is not needed for comes first: the less there is behind it, the sooner the
  // next search is seen.
  const Hint hint = *found;
  const int record_bytes = stored_bytes(*index.table);
  const Places records = Places::of_data(space, record_bytes);
  const Places entries = Places::of_nodes(space);
  fetch_hinted(space, hint, index.hints->keys.to_record, record_bytes);
  const Rb_node node = space.node(hint.node_number);
  const char* const item = space.at(hint.key_offset);
  if (!leads_to_leaf(space, hint)) return false;
  if (!equal_lone_keys<type, checked>(space, records, record_bytes, field, key, item)) return false;

  const std::uint32_t first = CurrentList::head(reinterpret_cast<const ZtIndexItem*>(item));
  if (!entries.have_node(first)) return false;
  auto* const entry = reinterpret_cast<ZtIndexNode*>(space.node(first));
  const std::int64_t record = record_offset_of(entry);
  if (!records.have(record)) return false;
  if (is_deleted(reinterpret_cast<const ZtRecord*>(space.at(record)))) return false;
  condition->begin = condition->point = condition->end = node;
  condition->nodepoint = entry;
  condition->precord = record;
  return true;
}

}  // namespace cachet

#endif
