// Boost's multi-index container in a managed segment on a memory file system, behind one sharable mutex. It has no
// transactions: nothing can be rolled back.
#include <boost/interprocess/allocators/allocator.hpp>
#include <boost/interprocess/managed_mapped_file.hpp>
#include <boost/interprocess/sync/interprocess_sharable_mutex.hpp>
#include <boost/multi_index/member.hpp>
#include <boost/multi_index/ordered_index.hpp>
#include <boost/multi_index_container.hpp>
#include <cstring>

#include "peers.h"

namespace bench {
namespace {

namespace ipc = boost::interprocess;
namespace mi = boost::multi_index;

constexpr std::size_t bytes_per_row = 512;
constexpr std::size_t spare_bytes = std::size_t{64} << 20;

struct NameLess {
  bool operator()(const Name& left, const Name& right) const {
    return std::memcmp(left.text, right.text, name_bytes) < 0;
  }
};

enum Index { by_id, by_name, by_grp };

using Segment = ipc::managed_mapped_file;
using Table = mi::multi_index_container<
    Row,
    mi::indexed_by<mi::ordered_unique<mi::member<Row, std::int64_t, &Row::id>>,
                   mi::ordered_unique<mi::member<Row, Name, &Row::name>, NameLess>,
                   mi::ordered_non_unique<mi::member<Row, std::int32_t, &Row::grp>>>,
    ipc::allocator<Row, Segment::segment_manager>>;
using Mutex = ipc::interprocess_sharable_mutex;

class BoostInterprocess final : public System {
 public:
  bool shared() const override { return true; }

  void create(const Place& place) override {
    segment_ = Segment(ipc::create_only, file(place).c_str(),
                       spare_bytes + static_cast<std::size_t>(place.rows) * bytes_per_row);
    table_ = segment_.construct<Table>("rows")(Table::ctor_args_list(), segment_.get_allocator<Row>());
    mutex_ = segment_.construct<Mutex>("mutex")();
  }
  void attach(const Place& place, Access) override {
    segment_ = Segment(ipc::open_only, file(place).c_str());
    table_ = segment_.find<Table>("rows").first;
    mutex_ = segment_.find<Mutex>("mutex").first;
    require(table_ != nullptr && mutex_ != nullptr, "boost-interprocess: no table");
  }
  std::int64_t bytes() override {
    return static_cast<std::int64_t>(segment_.get_size() - segment_.get_free_memory());
  }

  void begin() override { mutex_->lock(); }
  void commit() override { mutex_->unlock(); }
  void insert(const Row& row) override {
    require(table_->insert(row).second, "boost-interprocess: duplicate key");
  }
  void set_price(std::int64_t id, double price) override {
    table_->get<by_id>().modify(find<by_id>(id), [price](Row& row) { row.price = price; });
  }
  void erase(std::int64_t id) override { table_->get<by_id>().erase(find<by_id>(id)); }

  void begin_reads() override {
    mutex_->lock_sharable();
    holds_ = true;
  }
  void end_reads() override {
    holds_ = false;
    mutex_->unlock_sharable();
  }
  double get_id(std::int64_t id) override {
    const Lock lock(*this);
    return find<by_id>(id)->price;
  }
  double get_name(const Name& name) override {
    const Lock lock(*this);
    return find<by_name>(name)->price;
  }
  double get_group(std::int32_t group, int count) override {
    const Lock lock(*this);
    const auto& index = table_->get<by_grp>();
    double sum = 0;
    for (auto row = index.lower_bound(group); count-- > 0 && row != index.end() && row->grp == group; ++row)
      sum += row->grp;
    return sum;
  }
  double range(std::int64_t from, std::int64_t count) override {
    const Lock lock(*this);
    const auto& index = table_->get<by_id>();
    double sum = 0;
    for (auto row = index.lower_bound(from); count-- > 0 && row != index.end(); ++row) sum += row->price;
    return sum;
  }

 private:
  // Held for one call, unless begin_reads holds it.
  class Lock {
   public:
    explicit Lock(BoostInterprocess& system) : system_(system) {
      if (!system_.holds_) system_.mutex_->lock_sharable();
    }
    ~Lock() {
      if (!system_.holds_) system_.mutex_->unlock_sharable();
    }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

   private:
    BoostInterprocess& system_;
  };

  static std::string file(const Place& place) { return place.folder + "/segment"; }

  template <Index index, typename Key>
  typename Table::nth_index<index>::type::iterator find(const Key& key) {
    const auto row = table_->get<index>().find(key);
    require(row != table_->get<index>().end(), "boost-interprocess: not found");
    return row;
  }

  Segment segment_;
  Table* table_ = nullptr;
  Mutex* mutex_ = nullptr;
  bool holds_ = false;
};

}  // namespace

std::unique_ptr<System> make_boost_interprocess() {
  return std::make_unique<BoostInterprocess>();
}

}  // namespace bench
