// One pass over a key's list serves all its records: they are sorted by record id, which is the order of the
// list.
//
// A missing entry is usually still in the origin list, which is never unlinked from. It is gone from there
// too when the key's current list had run empty and an insert started both lists anew: then it is made again.
#include "cache/relink.h"

#include <algorithm>
#include <tuple>

#include "cache/entry.h"
#include "cache/error.h"
#include "cache/index_search.h"
#include "cache/key.h"
#include "cache/record.h"
#include "cache/work.h"
#include "rb_fronts.h"

namespace cachet {

namespace {

struct Missing {
  ZtIndexItem* item;
  ZTINT8 id;
  ZtRecord* record;
  bool operator<(const Missing& other) const { return std::tie(item, id) < std::tie(other.item, other.id); }
};

// A place in a list: the entries on both sides of it, either of which may be missing.
template <class List>
class Place {
 public:
  Place(const Rb_base* base, const ZtIndexItem* item) : base_(base), behind_(at(List::head(item))) {}

  // Moves on to the first entry whose record id is not below `id`.
  void advance_to(ZTINT8 id) {
    while (behind_ != nullptr && id_of(record_of(behind_)) < id) {
      before_ = behind_;
      behind_ = at(List::next(behind_));
    }
  }

  // The entry of the record, if the place stands on it.
  ZtIndexNode* entry_of(const ZtRecord* record) const {
    return behind_ != nullptr && record_of(behind_) == record ? behind_ : nullptr;
  }

  void insert(ZtDbHandle database, ZtIndexItem* item, ZtIndexNode* entry) {
    const Work work(database, work_lists);
    Stage stage(base_);
    List::insert(stage, base_, item, before_, entry, behind_);
    stage.run();
    before_ = entry;
  }

 private:
  ZtIndexNode* at(std::uint32_t number) const { return number != 0 ? entry_at(base_, number) : nullptr; }
  const ZtRecord* record_of(const ZtIndexNode* entry) const {
    return record_at(base_, record_offset_of(entry));
  }

  const Rb_base* base_;
  ZtIndexNode* before_ = nullptr;
  ZtIndexNode* behind_;
};

// A new entry in the origin list; none when the memory has no room for it.
ZtIndexNode* make_again(ZtDbHandle database, const Missing& missing, Place<OriginList>& origin) {
  Rb_base* const base = &database->base;
  if (Fronts::of(base).take_node() < 0) return nullptr;
  auto* const entry = reinterpret_cast<ZtIndexNode*>(Rb_node_malloc(base));
  entry->precord = value_of(offset_of(base, missing.record));
  origin.insert(database, missing.item, entry);
  return entry;
}

// Walks both lists of one key along its records; false when an entry could not be made.
bool put_back(ZtDbHandle database, const Missing* first, const Missing* last) {
  const Rb_base* const base = &database->base;
  Place<CurrentList> current(base, first->item);
  Place<OriginList> origin(base, first->item);
  for (; first != last; ++first) {
    current.advance_to(first->id);
    if (current.entry_of(first->record) != nullptr) continue;
    origin.advance_to(first->id);
    ZtIndexNode* entry = origin.entry_of(first->record);
    if (entry == nullptr) entry = make_again(database, *first, origin);
    if (entry == nullptr) return false;
    current.insert(database, first->item, entry);
  }
  return true;
}

void add_keys_of(ZtDbHandle database, const RevivedRecord& revived, std::vector<Missing>& all) {
  ZtTable& table = database->database[static_cast<std::size_t>(revived.tableid)];
  for (std::size_t id = 0; id < table.indexs.size(); ++id) {
    RowKey fields(table, table.indexdescrible[id], revived.record);
    const IndexPlace place =
        find_place_in_index(&database->base, table, id, SearchKey(table, id, fields.item()));
    if (!place.found) continue;
    all.push_back({stored_item(&database->base, place.node), id_of(revived.record), revived.record});
  }
}

}  // namespace

void put_back_into_indexes(ZtDbHandle database, const Revived& revived) {
  if (revived.empty()) return;
  std::vector<Missing> all;
  for (const RevivedRecord& record : revived) add_keys_of(database, record, all);
  std::sort(all.begin(), all.end());

  const Missing* const end = all.data() + all.size();
  for (const Missing* first = all.data(); first != end;) {
    const Missing* const last =
        std::find_if(first, end, [first](const Missing& each) { return each.item != first->item; });
    if (!put_back(database, first, last)) {
      const Fronts fronts = Fronts::of(&database->base);
      report(database, ZT_ERR_NO_MEMORY, message::memory_low, static_cast<int>(fronts.data - fronts.node));
    }
    first = last;
  }
}

}  // namespace cachet
