// The search for many keys: the tree searches go down together, and so does the way from each leaf to its record.
#include <algorithm>

#include "cache/cursor.h"
#include "cache/error.h"
#include "cache/fetch_row.h"
#include "cache/find.h"
#include "cache/index_search.h"
#include "cache/snapshot.h"
#include "cachetx.h"

using namespace cachet;

namespace {

// In place of a Standing: the search found no key; its cursor does not stand anywhere yet.
constexpr signed char not_found = -1;
constexpr signed char on_its_way = -2;

// Searches for some of the keys and puts their cursors on the first records.
void stand_on_records(ZtDbHandle database, const ZtTable& table, const ZtConditionHandle* conditions,
                      std::size_t count, signed char* standings) {
  const Rb_base* const base = &database->base;
  std::array<IndexPlace, lockstep_width> places;
  find_in_indexes(database, table, conditions, count, places, database->learnt_hints);
  const auto each = [&](const auto& visit) {
    for (std::size_t index = 0; index < count; ++index) {
      if (standings[index] != not_found) visit(conditions[index], standings[index]);
    }
  };
  for (std::size_t index = 0; index < count; ++index) {
    const Rb_node head = table.indexs[static_cast<std::size_t>(conditions[index]->indexid)];
    const bool found = place_cursor(base, head, conditions[index], places[index].node, places[index].found);
    standings[index] = found ? on_its_way : not_found;
  }
  const RowFetcher fetcher{FlatSpace(base)};
  each([&](ZtConditionHandle condition, signed char&) { fetcher.item(condition->point); });
  each([&](ZtConditionHandle condition, signed char&) { fetcher.first_record(condition->point); });
  each([database](ZtConditionHandle condition, signed char& standing) {
    standing = static_cast<signed char>(stand_on_key<Forward>(database, condition));
  });
}

bool accepts_all(ZtDbHandle database, int tableid, const ZtConditionHandle* conditions, int count, int op) {
  return std::all_of(conditions, conditions + std::max(count, 0), [=](const ZtCondition* condition) {
    return accepts_search(database, tableid, condition, op);
  });
}

}  // namespace

bool ZtxFindRecords(ZtDbHandle database, int tableid, const ZtConditionHandle* conditions, int count, int op,
                    bool* found) {
  if (count <= 0) return true;
  if (!accepts_all(database, tableid, conditions, count, op)) return false;
  const auto all = static_cast<std::size_t>(count);
  for (std::size_t index = 0; index < all; ++index) begin_search(tableid, conditions[index], op);
  std::vector<signed char>& standings = database->standings;
  standings.resize(all);
  const ZtTable& table = database->database[static_cast<std::size_t>(tableid)];
  read_table(database, tableid, [&] {
    database->learnt_hints.clear();
    for (std::size_t first = 0; first < all; first += lockstep_width) {
      const std::size_t width = std::min(all - first, lockstep_width);
      stand_on_records(database, table, conditions + first, width, standings.data() + first);
    }
    return true;
  });
  for (const LearntHint& learnt : database->learnt_hints) learnt.keep();
  for (std::size_t index = 0; index < all; ++index) {
    const signed char standing = standings[index];
    found[index] = standing != not_found;
    if (!found[index]) continue;
    if (static_cast<Standing>(standing) == Standing::empty_key) conditions[index]->nodepoint = nullptr;
    found[index] = settle<Forward>(database, conditions[index], static_cast<Standing>(standing));
  }
  end_read(database, true);
  return true;
}
