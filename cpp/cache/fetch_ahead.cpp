#include "cache/fetch_ahead.h"

#include "accelerate/leaves_ahead.h"
#include "accelerate/prefetch.h"
#include "cache/cursor.h"
#include "cache/key.h"
#include "cache/record.h"

namespace cachet {

namespace {

// Leaves between a request and the next one that needs its answer.
constexpr unsigned steps_to_item = 10;
constexpr unsigned steps_to_record = 5;

// A record may begin in one line and end in the next.
void fetch_record(const Rb_base* base, std::int64_t offset) {
  constexpr std::int64_t line_bytes = 64;
  if (!is_data(base, offset, ZT_RECORD_HEADER)) return;
  const char* const record = bytes_of(record_at(base, offset));
  prefetch(record);
  prefetch(record + line_bytes - 1);
}

void fetch_record_of_list_item(const Rb_base* base, Rb_node leaf) {
  const ZtListItem* const item = stored_list_item(base, leaf);
  if (item != nullptr) fetch_record(base, load_unaligned<std::int64_t>(&item->precord));
}

}  // namespace

void fetch_item(const Rb_base* base, Rb_node leaf) {
  prefetch(reinterpret_cast<const char*>(leaf) - slot_bytes);
  const std::int64_t offset = key_offset_of(leaf);
  if (is_data(base, offset, sizeof(ZtIndexItem))) prefetch(address_of(base, FlatOffset{offset}));
}

void fetch_first_record(const Rb_base* base, Rb_node leaf) {
  const ZtIndexItem* const item = stored_item(base, leaf);
  if (item == nullptr) return;
  const std::uint32_t first = CurrentList::head(item);
  if (is_node(base, first)) fetch_record(base, record_offset_of(entry_at(base, first)));
}

void fetch_ahead(ZtDb* database, const ZtCondition* condition, Rb_node from, bool leftward) {
  const Rb_base* const base = &database->base;
  if (database->leaves_ahead == nullptr) database->leaves_ahead = std::make_shared<LeavesAhead>();
  LeavesAhead& ahead = *database->leaves_ahead;
  ahead.follow(base, from, condition->point, leftward);
  if (const Rb_node leaf = ahead.at(steps_to_item)) fetch_item(base, leaf);
  const Rb_node leaf = ahead.at(steps_to_record);
  if (leaf == nullptr) return;
  walks_index(condition) ? fetch_first_record(base, leaf) : fetch_record_of_list_item(base, leaf);
}

}  // namespace cachet
