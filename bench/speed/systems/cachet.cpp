// cachet through its public interface, as a module of its own: built once with the library as it is and once with the
// plain one, so that one process can run both and calls each as any program calls a shared library.
//
// One condition and one row are kept and reused, as a caller may. Writers beside others, and whoever measures the lock,
// have session tracking and the shared store on, as processes that may be killed should; all other handles are plain.
#include "cachet.h"

#include <cstring>

#include "../clock.h"
#include "../module.h"
#include "../system.h"
#include "cachetx.h"

namespace bench {
namespace {

constexpr char name_of_database[] = "bench";
constexpr char version[] = "1";
constexpr int table = 0;
enum Field { field_id, field_name, field_grp, field_price };
enum Index { by_id, by_name, by_grp };

constexpr ZTINT8 bytes_per_row = 640;
constexpr ZTINT8 spare_bytes = ZTINT8{32} << 20;

class Cachet final : public System {
 public:
  explicit Cachet(WarmUp warm_up) : warm_up_(warm_up) {
    ZtCreateCondition(1, &condition_);
    for (ZtConditionHandle& condition : batch_) ZtCreateCondition(1, &condition);
    ZtCreateRecord(&row_);
  }
  ~Cachet() override {
    ZtDeleteDb(tracked_);
    if (db_ != nullptr) ZtCloseRecord(db_, row_);
    ZtCloseCondition(condition_);
    for (const ZtConditionHandle condition : batch_) ZtCloseCondition(condition);
    ZtDeleteDb(db_);
  }

  bool shared() const override { return true; }
  bool rolls_back() const override { return true; }
  bool batches() const override { return true; }

  void create(const Place& place) override;
  void attach(const Place& place, Access access) override {
    place_ = place;
    open(&db_, access);
  }
  std::int64_t bytes() override {
    ZTINT8 size = 0;
    ZTINT8 used = 0;
    ZtMemoryInfo(db_, &size, &used);
    return used;
  }

  double warm_up_ns() const override { return warm_up_ns_; }

  void begin() override { ZtBeginTransaction(db_); }
  void commit() override { ZtCommitTransaction(db_); }
  void rollback() override { ZtRollbackTransaction(db_); }
  void insert(const Row& row) override;
  void set_price(std::int64_t id, double price) override {
    find(by_id, FIELD_INT8, sizeof id, &id, ZT_OP_EQUAL);
    require(ZtSetField(db_, row_, field_price, &price), "cachet: no update");
  }
  void erase(std::int64_t id) override {
    find(by_id, FIELD_INT8, sizeof id, &id, ZT_OP_EQUAL);
    ZtDeleteRecord(db_, row_);
  }
  void lock_unlock() override {
    if (tracked_ == nullptr) open(&tracked_, Access::recoverable);
    ZtBeginTransaction(tracked_);
    ZtCommitTransaction(tracked_);
  }

  double get_id(std::int64_t id) override {
    find(by_id, FIELD_INT8, sizeof id, &id, ZT_OP_EQUAL);
    return value<double>(field_price);
  }
  double get_name(const Name& name) override {
    find(by_name, FIELD_STRING, name_bytes, name.text, ZT_OP_EQUAL);
    return value<double>(field_price);
  }
  double get_group(std::int32_t group, int count) override {
    find(by_grp, FIELD_INT, sizeof group, &group, ZT_OP_EQUAL);
    return sum<std::int32_t>(field_grp, count);
  }
  double range(std::int64_t from, std::int64_t count) override {
    find(by_id, FIELD_INT8, sizeof from, &from, ZT_OP_GREATER_EQUAL);
    return sum<double>(field_price, count);
  }
  void get_ids(std::span<const std::int64_t> ids, double* prices) override {
    for (std::size_t i = 0; i < ids.size(); ++i)
      set_key(batch_[i], by_id, FIELD_INT8, sizeof ids[i], &ids[i]);
    find_batch(ids.size(), prices);
  }
  void get_names(std::span<const Name> names, double* prices) override {
    for (std::size_t i = 0; i < names.size(); ++i)
      set_key(batch_[i], by_name, FIELD_STRING, name_bytes, names[i].text);
    find_batch(names.size(), prices);
  }

 private:
  void open(ZtDbHandle* db, Access access) const {
    const int mode = access == Access::read_only ? ZT_MODE_READ_ONLY : ZT_MODE_READ_WRITE;
    const int recoverable = access == Access::recoverable ? 1 : 0;
    require(ZtOpenDb(db, place_.folder.c_str(), name_of_database, version, mode, 0, false, 0, recoverable,
                     recoverable),
            "cachet: no database to open");
    ZtLoadDbInfo(*db);
    ZtLoadDb(*db);
    ZtUnLockDb(*db);
  }

  static void set_key(ZtConditionHandle condition, Index index, int type, int length, const void* key) {
    ZtSetConditionIndex(condition, index);
    ZtAddConditionIndexItem(condition, type, length, key);
  }

  // Stands on the first match, with its row in the handle.
  void find(Index index, int type, int length, const void* key, int op) {
    set_key(condition_, index, type, length, key);
    require(ZtFindRecord(db_, table, condition_, op) && ZtGetRecord(db_, condition_, row_),
            "cachet: not found");
  }

  // The prices of the rows with the keys in the first `count` conditions of the batch.
  void find_batch(std::size_t count, double* prices) {
    bool found[batch_size];
    require(ZtxFindRecords(db_, table, batch_, static_cast<int>(count), ZT_OP_EQUAL, found),
            "cachet: no batch");
    for (std::size_t i = 0; i < count; ++i) {
      require(found[i] && ZtGetRecord(db_, batch_[i], row_), "cachet: not found");
      prices[i] = value<double>(field_price);
    }
  }

  template <typename T>
  T value(Field field) {
    T value;
    int type;
    std::memcpy(&value, ZtGetField(db_, row_, field, &type), sizeof value);
    return value;
  }

  // Of `count` rows at most, from the one that the condition stands on.
  template <typename T>
  double sum(Field field, std::int64_t count) {
    double sum = 0;
    for (;;) {
      sum += static_cast<double>(value<T>(field));
      if (--count <= 0 || !ZtNextRecord(db_, condition_)) return sum;
      require(ZtGetRecord(db_, condition_, row_), "cachet: no row");
    }
  }

  WarmUp warm_up_;
  double warm_up_ns_ = 0;
  Place place_;
  ZtDbHandle db_ = nullptr;
  ZtDbHandle tracked_ = nullptr;  // for lock_unlock
  ZtConditionHandle condition_ = nullptr;
  ZtConditionHandle batch_[batch_size] = {};
  ZtRecordHandle row_ = nullptr;
};

void Cachet::create(const Place& place) {
  place_ = place;
  require(ZtCreateDb(&db_, place.folder.c_str(), name_of_database, version,
                     spare_bytes + place.rows * bytes_per_row, 0),
          "cachet: no database");
  ZtAddTable(db_, "rows");
  ZtAddField(db_, table, "id", FIELD_INT8, sizeof(std::int64_t), -1);
  ZtAddField(db_, table, "name", FIELD_STRING, name_bytes, -1);
  ZtAddField(db_, table, "grp", FIELD_INT, sizeof(std::int32_t), -1);
  ZtAddField(db_, table, "price", FIELD_DOUBLE, sizeof(double), -1);
  ZtAddIndex(db_, table, "by_id", ZT_INDEX_UNIQUE);
  ZtAddIndexField(db_, table, by_id, field_id);
  ZtAddIndex(db_, table, "by_name", ZT_INDEX_UNIQUE);
  ZtAddIndexField(db_, table, by_name, field_name);
  ZtAddIndex(db_, table, "by_grp", ZT_INDEX_DUPLICATES);
  ZtAddIndexField(db_, table, by_grp, field_grp);
  ZtSaveDbInfo(db_);
  ZtLoadDb(db_);
  ZtUnLockDb(db_);
  if (warm_up_ == WarmUp::no) return;
  const Stopwatch stopwatch;
  require(ZtxWarmUp(db_), "cachet: no warm-up");
  warm_up_ns_ = stopwatch.elapsed_ns();
}

void Cachet::insert(const Row& row) {
  require(ZtNewRecord(db_, table, row_) && ZtSetField(db_, row_, field_id, &row.id) &&
              ZtSetField(db_, row_, field_name, row.name.text) &&
              ZtSetField(db_, row_, field_grp, &row.grp) && ZtSetField(db_, row_, field_price, &row.price) &&
              ZtPutRecord(db_, row_),
          "cachet: no insert");
}

}  // namespace
}  // namespace bench

bench::System* bench_make_system(bench::WarmUp warm_up) {
  return new bench::Cachet(warm_up);
}
