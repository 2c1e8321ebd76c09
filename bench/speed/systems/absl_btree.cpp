// B-trees of one process, as the ceiling: rows that never move, and three trees that point to them. No transactions, no
// other processes.
#include <absl/container/btree_map.h>
#include <malloc.h>

#include <cstring>
#include <deque>

#include "peers.h"

namespace bench {
namespace {

struct NameLess {
  bool operator()(const Name& left, const Name& right) const {
    return std::memcmp(left.text, right.text, name_bytes) < 0;
  }
};

std::int64_t heap_bytes() {
  const struct mallinfo2 info = mallinfo2();
  return static_cast<std::int64_t>(info.uordblks + info.hblkhd);
}

class AbslBtree final : public System {
 public:
  bool locks() const override { return false; }

  void create(const Place&) override { bytes_before_ = heap_bytes(); }
  std::int64_t bytes() override { return heap_bytes() - bytes_before_; }

  void begin() override {}
  void commit() override {}
  void insert(const Row& row) override {
    Row& stored = rows_.emplace_back(row);
    require(by_id_.emplace(row.id, &stored).second && by_name_.emplace(row.name, &stored).second,
            "absl-btree: duplicate key");
    by_grp_.emplace(row.grp, &stored);
  }
  void set_price(std::int64_t id, double price) override { find(by_id_, id).price = price; }
  void erase(std::int64_t id) override {
    Row* const row = &find(by_id_, id);
    by_name_.erase(row->name);
    auto entry = by_grp_.lower_bound(row->grp);
    while (entry->second != row) ++entry;
    by_grp_.erase(entry);
    by_id_.erase(id);
  }

  double get_id(std::int64_t id) override { return find(by_id_, id).price; }
  double get_name(const Name& name) override { return find(by_name_, name).price; }
  double get_group(std::int32_t group, int count) override {
    double sum = 0;
    for (auto entry = by_grp_.lower_bound(group);
         count-- > 0 && entry != by_grp_.end() && entry->first == group; ++entry)
      sum += entry->second->grp;
    return sum;
  }
  double range(std::int64_t from, std::int64_t count) override {
    double sum = 0;
    for (auto entry = by_id_.lower_bound(from); count-- > 0 && entry != by_id_.end(); ++entry)
      sum += entry->second->price;
    return sum;
  }

 private:
  template <typename Tree, typename Key>
  static Row& find(const Tree& tree, const Key& key) {
    const auto entry = tree.find(key);
    require(entry != tree.end(), "absl-btree: not found");
    return *entry->second;
  }

  std::int64_t bytes_before_ = 0;
  std::deque<Row> rows_;
  absl::btree_map<std::int64_t, Row*> by_id_;
  absl::btree_map<Name, Row*, NameLess> by_name_;
  absl::btree_multimap<std::int32_t, Row*> by_grp_;
};

}  // namespace

std::unique_ptr<System> make_absl_btree() {
  return std::make_unique<AbslBtree>();
}

}  // namespace bench
