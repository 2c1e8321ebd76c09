#include "cache/link.h"

#include "base/features.h"
#include "cache/entry.h"
#include "cache/error.h"
#include "cache/index_search.h"
#include "cache/key.h"
#include "cache/record.h"
#include "cache/work.h"
#include "rb_fronts.h"

namespace cachet {

namespace {

constexpr bool unaligned = false;

// Nodes a tree takes for one more key: a leaf, and an internal node over it and its neighbour.
int nodes_for_new_key(Rb_base* base, Rb_node head) {
  return rb_empty(base, head) ? 1 : 2;
}

bool take_nodes(Fronts& fronts, int count) {
  for (int i = 0; i < count; ++i) {
    if (fronts.take_node() < 0) return false;
  }
  return true;
}

int key_field_bytes(const ZtIndexDescrible& index) {
  return static_cast<int>(index.indexdescrible.size() * sizeof(ZtIndexField));
}

// A key in shared memory whose values are the fields of `record`, which outlives it.
ZtIndexItem* store_key(Rb_base* base, const ZtTable& table, const ZtIndexDescrible& index, ZtRecord* record) {
  auto* const item = reinterpret_cast<ZtIndexItem*>(Rb_data_malloc(base, sizeof(ZtIndexItem), 0, unaligned));
  char* const fields = Rb_data_malloc(base, key_field_bytes(index), 0, unaligned);
  auto* field = reinterpret_cast<ZtIndexField*>(fields);
  for (const int fieldid : index.indexdescrible) {
    const ZtDataField& source = table.fielddescrible[static_cast<std::size_t>(fieldid)];
    const std::int64_t offset = value_of(offset_of(base, field_bytes(record, source)));
    *field++ = {reinterpret_cast<char*>(offset), source.type, 0, static_cast<short>(source.length)};
  }
  item->index = reinterpret_cast<ZtIndexField*>(value_of(offset_of(base, fields)));
  item->count = static_cast<signed char>(index.indexdescrible.size());
  item->point = item->count;
  item->sharememory = 1;
  return item;
}

// An entry for the record, with no links.
ZtIndexNode* store_entry(Rb_base* base, std::int64_t record_offset) {
  auto* const entry = reinterpret_cast<ZtIndexNode*>(Rb_node_malloc(base));
  entry->precord = record_offset;
  return entry;
}

ZtIndexNode* entry_or_none(const Rb_base* base, std::uint32_t number) {
  return number != 0 ? entry_at(base, number) : nullptr;
}

// The entry goes to the end of both lists. Under a key whose current list has run empty it starts both anew.
void append_entry(Rb_base* base, ZtIndexItem* item, ZtIndexNode* entry) {
  const std::uint32_t current_tail = CurrentList::tail(item);
  const std::uint32_t origin_tail = current_tail != 0 ? OriginList::tail(item) : 0;
  Stage stage(base);
  OriginList::insert(stage, base, item, entry_or_none(base, origin_tail), entry, nullptr);
  CurrentList::insert(stage, base, item, entry_or_none(base, current_tail), entry, nullptr);
  stage.run();
}

void enter_into_index(Rb_base* base, const ZtTable& table, std::size_t id, const IndexPlace& place,
                      ZtRecord* record, std::int64_t record_offset) {
  if (place.found) {
    append_entry(base, stored_item(base, place.node), store_entry(base, record_offset));
    return;
  }
  ZtIndexItem* const item = store_key(base, table, table.indexdescrible[id], record);
  ZtIndexNode* const entry = store_entry(base, record_offset);
  item->originhead = item->origintail = number_of(base, entry);
  item->curenthead = item->curenttail = number_of(base, entry);
  insert_before(base, place.node, item, item, place.separator);
}

// Record ids rise, and the tree's first node holds the largest: nearly always the new one goes before it.
void enter_into_list(Rb_base* base, Rb_node head, ZtListItem* list_item) {
  const Rb_node first = rb_first(base, head);
  if (first == head || ZtComp2(base, stored_list_item(base, first), list_item) > 0) {
    insert_before(base, first, list_item, list_item, separator_of(list_item->recordid));
  } else {
    rb_insertg(base, head, list_item, list_item, ZtComp2);
  }
}

IndexPlace place_in_index(ZtDbHandle database, const ZtTable& table, std::size_t id, ZtRecord* row) {
  RowKey fields(table, table.indexdescrible[id], row);
  const SearchKey key(table, id, fields.item());
  return find_place_in_index(&database->base, table, id, key);
}

// A bound that no insert reaches: twice the bytes of all blocks, since a block may leave as much unused at a segment's
// edge, and twice those of all nodes, since a page leaves the last one out.
std::int64_t more_than_insert_takes(const ZtTable& table) {
  constexpr std::int64_t block_rounding = 16;
  std::int64_t blocks = std::int64_t{stored_bytes(table)} + block_rounding + round_up(sizeof(ZtListItem), 8);
  for (const ZtIndexDescrible& index : table.indexdescrible) {
    blocks += round_up(sizeof(ZtIndexItem), 8) + round_up(key_field_bytes(index), 8);
  }
  const auto nodes = static_cast<std::int64_t>(3 * table.indexdescrible.size() + 2);
  return 2 * (blocks + nodes * slot_bytes);
}

// Takes from the fronts what entering one index takes.
bool take_for_index(Fronts& fronts, Rb_base* base, const ZtTable& table, std::size_t id,
                    const IndexPlace& place) {
  if (place.found) return take_nodes(fronts, 1);
  return fronts.take_data(sizeof(ZtIndexItem), 0, unaligned) >= 0 &&
         fronts.take_data(key_field_bytes(table.indexdescrible[id]), 0, unaligned) >= 0 &&
         take_nodes(fronts, 1 + nodes_for_new_key(base, table.indexs[id]));
}

}  // namespace

void find_places(ZtDbHandle database, ZtTable& table, ZtRecord* row) {
  if (features::nonces && database->base.intransaction && writes_locally(database)) {
    // A reset by another program has left the trees without.
    for (const Rb_node head : table.indexs) provide_nonce(head);
  }
  find_places_in_indexes(database, table, row, database->index_places);
}

// Checks its links: an isolated handle looks while its manager may be writing.
bool conflicts(ZtDbHandle database, const ZtTable& table) {
  const Rb_base* const base = &database->base;
  for (std::size_t id = 0; id < table.indexs.size(); ++id) {
    const IndexPlace& place = database->index_places[id];
    if (table.indexdescrible[id].indextype != ZT_INDEX_UNIQUE || !place.found) continue;
    const ZtIndexItem* const item = stored_item(base, place.node);
    std::uint32_t number = item != nullptr ? CurrentList::head(item) : 0;
    while (is_node(base, number)) {
      const ZtIndexNode* const entry = entry_at(base, number);
      const std::int64_t record = record_offset_of(entry);
      if (is_data(base, record, ZT_RECORD_HEADER) && !is_deleted(record_at(base, record))) return true;
      number = CurrentList::next(entry);
    }
  }
  return false;
}

bool fits(ZtDbHandle database, const ZtTable& table, int record_bytes) {
  Rb_base* const base = &database->base;
  Fronts fronts = Fronts::of(base);
  if (fronts.data - fronts.node >= more_than_insert_takes(table)) [[likely]]
    return true;
  if (record_bytes != record_is_stored && fronts.take_data(record_bytes, 8, true) < 0) return false;
  if (fronts.take_data(sizeof(ZtListItem), 0, unaligned) < 0) return false;
  for (std::size_t id = 0; id < table.indexs.size(); ++id) {
    if (!take_for_index(fronts, base, table, id, database->index_places[id])) return false;
  }
  return take_nodes(fronts, nodes_for_new_key(base, table.listindex));
}

void enter_into_trees(ZtDbHandle database, int tableid, ZtRecord* record, ZtListItem* list_item) {
  Rb_base* const base = &database->base;
  ZtTable& table = database->database[static_cast<std::size_t>(tableid)];
  const std::int64_t record_offset = value_of(offset_of(base, record));
  const Work work(database, work_insert, tableid, record_offset);
  for (std::size_t id = 0; id < table.indexs.size(); ++id) {
    base->stage_step = static_cast<std::uint16_t>(id);
    enter_into_index(base, table, id, database->index_places[id], record, record_offset);
  }
  base->stage_step = static_cast<std::uint16_t>(table.indexs.size());
  enter_into_list(base, table.listindex, list_item);
}

ZtListItem* store_list_item(Rb_base* base, const ZtRecord* record) {
  auto* const item = reinterpret_cast<ZtListItem*>(Rb_data_malloc(base, sizeof(ZtListItem), 0, unaligned));
  item->recordid = id_of(record);
  item->precord = value_of(offset_of(base, record));
  return item;
}

// Each step is left out when the memory has no room for it: the record is a deleted one, and nothing leads astray.
void resume_entering(ZtDbHandle database, ZtTable& table, ZtRecord* record, int first_step) {
  Rb_base* const base = &database->base;
  const std::int64_t record_offset = value_of(offset_of(base, record));
  const auto indexes = table.indexs.size();
  for (auto step = static_cast<std::size_t>(first_step); step <= indexes; ++step) {
    base->stage_step = static_cast<std::uint16_t>(step);
    Fronts fronts = Fronts::of(base);
    if (step == indexes) {
      const bool has_room = fronts.take_data(sizeof(ZtListItem), 0, unaligned) >= 0 &&
                            take_nodes(fronts, nodes_for_new_key(base, table.listindex));
      if (has_room) enter_into_list(base, table.listindex, store_list_item(base, record));
    } else {
      const IndexPlace place = place_in_index(database, table, step, record);
      if (take_for_index(fronts, base, table, step, place)) {
        enter_into_index(base, table, step, place, record, record_offset);
      }
    }
  }
}

}  // namespace cachet
