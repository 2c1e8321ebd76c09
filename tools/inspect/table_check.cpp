#include "inspect/table_check.h"

#include <algorithm>
#include <cstring>

#include "inspect/translate.h"
#include "inspect/tree_check.h"
#include "inspect/walk.h"

namespace cachet::inspect {

namespace {

// One of a key's two lists.
struct Links {
  const char* name;
  std::uint32_t head, tail;
  std::uint32_t ZtIndexNode::*next;
  std::uint32_t ZtIndexNode::*prev;
};

// As keys: a text ends at its NUL, and 0 is -0.
bool are_equal(const Field& field, const char* a, const char* b) {
  const auto bytes = static_cast<std::size_t>(field.length_bytes);
  if (field.type == FIELD_STRING) return std::strncmp(a, b, bytes) == 0;
  if (std::memcmp(a, b, bytes) == 0) return true;
  return field.type == FIELD_DOUBLE && bytes == sizeof(double) &&
         !(load_unaligned<double>(a) < load_unaligned<double>(b)) &&
         !(load_unaligned<double>(a) > load_unaligned<double>(b));
}

class TableCheck {
 public:
  TableCheck(const Rb_base* view, const Table& table, Findings& findings)
      : view_(view), table_(table), findings_(findings), where_("table " + table.name) {}

  RecordOffsets run() {
    check_records();
    for (const Index& index : table_.indexes) check_index(index);
    return std::move(live_);
  }

 private:
  struct Entry {
    std::int64_t recordid;
    std::int64_t offset;
    bool deleted;
  };

  std::int64_t stored_bytes() const { return ZT_RECORD_HEADER + table_.record_bytes; }

  void check_records() {
    const std::string where = where_ + ", record ids";
    const std::int64_t taken = load_acquire<int>(&table_.record->recordcount);
    const TreeToCheck tree{view_, table_.list_head, ZtComp2, sizeof(ZtListItem), where};
    for (const std::uint32_t number : check_tree(tree, findings_)) {
      const auto item = data_at<ZtListItem>(view_, key_offset_of(node_at(view_, number)));
      if (!item) continue;  // the check of the tree has said so
      if (!is_data(view_, item->precord, stored_bytes())) {
        findings_.damage(where, tr("record {} lies outside the data", item->recordid));
        continue;
      }
      const auto header = load_unaligned<RecordHeader>(address_of(view_, FlatOffset{item->precord}));
      if (header.recordid != item->recordid) {
        findings_.damage(where, tr("record {} calls itself {}", item->recordid, header.recordid));
      }
      if (item->recordid < 0 || item->recordid >= taken) {
        findings_.damage(where, tr("record {} is beyond the table's count", item->recordid));
      }
      all_.emplace(item->recordid, item->precord);
      if (header.deleted != 1) live_.emplace(item->recordid, item->precord);
    }
  }

  void check_index(const Index& index) {
    const std::string where = where_ + ", index " + index.name;
    found_.clear();
    const TreeToCheck tree{view_, index.head, ZtComp, sizeof(ZtIndexItem), where};
    for (const std::uint32_t number : check_tree(tree, findings_)) {
      const auto item = data_at<ZtIndexItem>(view_, key_offset_of(node_at(view_, number)));
      if (item) check_key(index, *item, where + ", key of node " + std::to_string(number));
    }
    std::sort(found_.begin(), found_.end());
    for (const auto& [id, offset] : live_) {
      if (!std::binary_search(found_.begin(), found_.end(), id)) {
        findings_.damage(where, tr("record {} lives and is under none of its keys", id));
      }
    }
    const auto twice = std::adjacent_find(found_.begin(), found_.end());
    if (twice != found_.end()) findings_.damage(where, tr("record {} is under two keys", *twice));
  }

  void check_key(const Index& index, const ZtIndexItem& item, const std::string& where) {
    stop_if_asked();
    const bool readable = check_fields(index, item, where);
    const std::vector<Entry> origin = check_list(
        {"origin", item.originhead, item.origintail, &ZtIndexNode::originnext, &ZtIndexNode::originprev},
        where);
    const std::vector<Entry> current = check_list(
        {"current", item.curenthead, item.curenttail, &ZtIndexNode::curentnext, &ZtIndexNode::curentprev},
        where);
    std::int64_t living = 0;
    for (const Entry& entry : current) {
      if (readable && !has_key(index, item, entry.offset)) {
        findings_.damage(where, tr("record {} stands under a key that it does not have", entry.recordid));
      }
      if (!std::ranges::binary_search(origin, entry.recordid, {}, &Entry::recordid)) {
        findings_.damage(where,
                         tr("record {} is in the current list and not in the origin list", entry.recordid));
      }
      if (entry.deleted) continue;
      ++living;
      found_.push_back(entry.recordid);
    }
    if (index.unique && living > 1) {
      findings_.damage(where, tr("{} live records have the key of a unique index", living));
    }
  }

  // Whether the key's fields are those of the index, and can be read.
  bool check_fields(const Index& index, const ZtIndexItem& item, const std::string& where) {
    const auto count = static_cast<std::int64_t>(index.fields.size());
    if (item.sharememory != 1 || item.point != count || item.count != count) {
      findings_.damage(where, tr("it is no key of {} fields", count));
      return false;
    }
    const auto fields = reinterpret_cast<std::int64_t>(item.index);
    for (std::int64_t i = 0; i < count; ++i) {
      const Field& field = table_.fields[static_cast<std::size_t>(index.fields[static_cast<std::size_t>(i)])];
      const auto key =
          data_at<ZtIndexField>(view_, fields + i * static_cast<std::int64_t>(sizeof(ZtIndexField)));
      const bool fits = key && key->type == static_cast<signed char>(field.type) &&
                        static_cast<std::uint16_t>(key->length) == field.length_bytes;
      if (!fits || !is_data(view_, reinterpret_cast<std::int64_t>(key->data), field.length_bytes)) {
        findings_.damage(where, tr("its field {} is not that of the index", i));
        return false;
      }
    }
    return true;
  }

  // Of a key whose fields can be read.
  bool has_key(const Index& index, const ZtIndexItem& item, std::int64_t record) const {
    const auto fields = reinterpret_cast<std::int64_t>(item.index);
    for (std::size_t i = 0; i < index.fields.size(); ++i) {
      const auto key =
          data_at<ZtIndexField>(view_, fields + static_cast<std::int64_t>(i * sizeof(ZtIndexField)));
      if (!key) return false;
      const Field& field = table_.fields[static_cast<std::size_t>(index.fields[i])];
      if (!is_data(view_, reinterpret_cast<std::int64_t>(key->data), field.length_bytes)) return false;
      const char* const its = address_of(view_, FlatOffset{reinterpret_cast<std::int64_t>(key->data)});
      const char* const mine = address_of(view_, FlatOffset{record + ZT_RECORD_HEADER + field.offset});
      if (!are_equal(field, mine, its)) return false;
    }
    return true;
  }

  // Whole in both directions, in the order in which the records were stored. Returns what could be read.
  std::vector<Entry> check_list(const Links& list, const std::string& where) {
    std::vector<Entry> entries;
    const auto damage = [&](const std::string& what) {
      findings_.damage(where, what);
      return entries;
    };
    std::uint32_t before = 0;
    for (std::uint32_t number = list.head; number != 0;) {
      if (!is_node(view_, number)) return damage(tr("the {} list leads outside the nodes", list.name));
      const auto entry = load_unaligned<ZtIndexNode>(node_at(view_, number));
      if (entry.*list.prev != before)
        damage(tr("the {} list backwards leads elsewhere at entry {}", list.name, number));
      if (!is_data(view_, entry.precord, stored_bytes()))
        return damage(tr("the {} list has a record outside the data", list.name));
      const auto header = load_unaligned<RecordHeader>(address_of(view_, FlatOffset{entry.precord}));
      if (!entries.empty() && header.recordid <= entries.back().recordid) {
        return damage(
            tr("the {} list is not in the order of the records at record {}", list.name, header.recordid));
      }
      const auto known = all_.find(header.recordid);
      if (known == all_.end() || known->second != entry.precord) {
        damage(
            tr("the {} list has record {}, which is not among the record ids", list.name, header.recordid));
      }
      entries.push_back({header.recordid, entry.precord, header.deleted == 1});
      before = number;
      number = entry.*list.next;
    }
    if (list.tail != before) damage(tr("the {} list ends elsewhere than at its tail", list.name));
    return entries;
  }

  const Rb_base* view_;
  const Table& table_;
  Findings& findings_;
  std::string where_;
  RecordOffsets all_, live_;
  std::vector<std::int64_t> found_;  // live records of the index at hand
};

}  // namespace

RecordOffsets check_table(const Rb_base* view, const Table& table, Findings& findings) {
  return TableCheck(view, table, findings).run();
}

}  // namespace cachet::inspect
