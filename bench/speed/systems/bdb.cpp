// Berkeley DB: a transactional environment on a memory file system with its log in memory; a B-tree by id and two
// secondary indexes that the library keeps.
#include <db.h>

#include <cstring>
#include <filesystem>
#include <utility>

#include "peers.h"

namespace bench {
namespace {

constexpr std::uint32_t log_bytes = 64U << 20;
constexpr std::int64_t cache_bytes_per_row = 512;
constexpr std::int64_t spare_cache_bytes = 64 << 20;
constexpr std::uint32_t max_locks = 200000;

void check(int status) {
  if (status != 0) throw std::runtime_error(std::string("bdb: ") + db_strerror(status));
}

// Trees compare bytes: keys are stored with their highest byte first.
std::uint64_t key_of(std::int64_t id) {
  return __builtin_bswap64(static_cast<std::uint64_t>(id));
}
std::uint32_t key_of(std::int32_t group) {
  return __builtin_bswap32(static_cast<std::uint32_t>(group));
}

DBT entry(const void* bytes, std::size_t size) {
  DBT entry = {};
  entry.data = const_cast<void*>(bytes);
  entry.size = static_cast<u_int32_t>(size);
  return entry;
}

// An entry that the library fills in the caller's memory.
DBT target(void* bytes, std::size_t size) {
  DBT target = {};
  target.data = bytes;
  target.ulen = static_cast<u_int32_t>(size);
  target.flags = DB_DBT_USERMEM;
  return target;
}

int name_of_row(DB*, const DBT*, const DBT* row, DBT* key) {
  const char* const name = static_cast<const char*>(row->data) + offsetof(Row, name);
  *key = entry(name, strnlen(name, name_bytes));
  return 0;
}

int group_of_row(DB*, const DBT*, const DBT* row, DBT* key) {
  std::int32_t group;
  std::memcpy(&group, static_cast<const char*>(row->data) + offsetof(Row, grp), sizeof group);
  std::uint32_t* const bytes = static_cast<std::uint32_t*>(std::malloc(sizeof *bytes));
  if (bytes == nullptr) return ENOMEM;
  *bytes = key_of(group);
  *key = entry(bytes, sizeof *bytes);
  key->flags = DB_DBT_APPMALLOC;
  return 0;
}

class Bdb final : public System {
 public:
  ~Bdb() override {
    for (DB* const tree : {by_name_, by_grp_, by_id_}) {
      if (tree != nullptr) tree->close(tree, DB_NOSYNC);
    }
    if (environment_ != nullptr) environment_->close(environment_, 0);
  }

  bool shared() const override { return true; }
  bool rolls_back() const override { return true; }
  int slowness() const override { return 2; }

  void create(const Place& place) override { open(place, DB_CREATE); }
  void attach(const Place& place, Access) override { open(place, 0); }
  std::int64_t bytes() override {
    std::int64_t bytes = 0;
    check(environment_->memp_sync(environment_, nullptr));
    for (const char* const file : {"/id", "/name", "/grp"}) {
      bytes += static_cast<std::int64_t>(std::filesystem::file_size(folder_ + file));
    }
    return bytes;
  }

  void begin() override { check(environment_->txn_begin(environment_, nullptr, &transaction_, 0)); }
  void commit() override {
    DB_TXN* const done = std::exchange(transaction_, nullptr);
    check(done->commit(done, 0));
  }
  void rollback() override {
    DB_TXN* const done = std::exchange(transaction_, nullptr);
    check(done->abort(done));
  }
  void insert(const Row& row) override { put(row, DB_NOOVERWRITE); }
  void set_price(std::int64_t id, double price) override {
    Row row = find(by_id_, key_of(id), DB_RMW);
    row.price = price;
    put(row, 0);
  }
  void erase(std::int64_t id) override {
    const std::uint64_t bytes = key_of(id);
    DBT key = entry(&bytes, sizeof bytes);
    check(by_id_->del(by_id_, transaction_, &key, 0));
  }

  double get_id(std::int64_t id) override { return find(by_id_, key_of(id), 0).price; }
  double get_name(const Name& name) override {
    Row row;
    DBT key = entry(name.text, std::strlen(name.text));
    DBT value = target(&row, sizeof row);
    check(by_name_->get(by_name_, transaction_, &key, &value, 0));
    return row.price;
  }
  double get_group(std::int32_t group, int count) override {
    const std::uint32_t first = key_of(group);
    return walk(by_grp_, &first, sizeof first, DB_SET, DB_NEXT_DUP, count,
                [](const Row& row) { return double(row.grp); });
  }
  double range(std::int64_t from, std::int64_t count) override {
    const std::uint64_t first = key_of(from);
    return walk(by_id_, &first, sizeof first, DB_SET_RANGE, DB_NEXT, count,
                [](const Row& row) { return row.price; });
  }

 private:
  void open(const Place& place, std::uint32_t create) {
    folder_ = place.folder;
    check(db_env_create(&environment_, 0));
    const std::int64_t cache_bytes = spare_cache_bytes + place.rows * cache_bytes_per_row;
    check(environment_->set_cachesize(environment_, static_cast<u_int32_t>(cache_bytes >> 30),
                                      static_cast<u_int32_t>(cache_bytes & ((1 << 30) - 1)), 1));
    check(environment_->set_lg_bsize(environment_, log_bytes));
    check(environment_->log_set_config(environment_, DB_LOG_IN_MEMORY, 1));
    check(environment_->set_lk_max_locks(environment_, max_locks));
    check(environment_->set_lk_max_objects(environment_, max_locks));
    check(environment_->set_lk_detect(environment_, DB_LOCK_DEFAULT));
    check(environment_->open(environment_, folder_.c_str(),
                             create | DB_INIT_MPOOL | DB_INIT_LOCK | DB_INIT_LOG | DB_INIT_TXN, 0600));
    begin();
    by_id_ = open_tree("id", create, 0);
    by_name_ = open_tree("name", create, 0);
    by_grp_ = open_tree("grp", create, DB_DUPSORT);
    check(by_id_->associate(by_id_, transaction_, by_name_, name_of_row, 0));
    check(by_id_->associate(by_id_, transaction_, by_grp_, group_of_row, 0));
    commit();
  }

  DB* open_tree(const char* name, std::uint32_t create, std::uint32_t flags) {
    DB* tree = nullptr;
    check(db_create(&tree, environment_, 0));
    check(tree->set_flags(tree, flags));
    check(tree->open(tree, transaction_, name, nullptr, DB_BTREE, create, 0600));
    return tree;
  }

  template <typename Key>
  Row find(DB* tree, Key bytes, std::uint32_t flags) {
    Row row;
    DBT key = entry(&bytes, sizeof bytes);
    DBT value = target(&row, sizeof row);
    check(tree->get(tree, transaction_, &key, &value, flags));
    return row;
  }

  void put(const Row& row, std::uint32_t flags) {
    const std::uint64_t bytes = key_of(row.id);
    DBT key = entry(&bytes, sizeof bytes);
    DBT value = entry(&row, sizeof row);
    check(by_id_->put(by_id_, transaction_, &key, &value, flags));
  }

  template <typename Field>
  double walk(DB* tree, const void* first, std::size_t size, std::uint32_t find, std::uint32_t next,
              std::int64_t count, Field field) {
    DBC* cursor = nullptr;
    check(tree->cursor(tree, transaction_, &cursor, 0));
    char key_bytes[name_bytes];
    std::memcpy(key_bytes, first, size);
    DBT key = target(key_bytes, sizeof key_bytes);
    key.size = static_cast<u_int32_t>(size);
    Row row;
    DBT value = target(&row, sizeof row);
    double sum = 0;
    int status = cursor->get(cursor, &key, &value, find);
    for (; status == 0; status = cursor->get(cursor, &key, &value, next)) {
      sum += field(row);
      if (--count <= 0) break;
    }
    cursor->close(cursor);
    if (status != DB_NOTFOUND) check(status);
    return sum;
  }

  std::string folder_;
  DB_ENV* environment_ = nullptr;
  DB_TXN* transaction_ = nullptr;
  DB* by_id_ = nullptr;
  DB* by_name_ = nullptr;
  DB* by_grp_ = nullptr;
};

}  // namespace

std::unique_ptr<System> make_bdb() {
  return std::make_unique<Bdb>();
}

}  // namespace bench
