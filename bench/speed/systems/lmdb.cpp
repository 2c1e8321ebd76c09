// LMDB on a memory file system, with a writable map and without syncs. Rows lie under their ids; names and groups lead to
// ids. A reader sees the last commit by renewing its transaction.
#include <lmdb.h>

#include <cstring>

#include "peers.h"

namespace bench {
namespace {

constexpr std::size_t bytes_per_row = 1024;
constexpr std::size_t spare_bytes = std::size_t{256} << 20;

void check(int status) {
  if (status != MDB_SUCCESS) throw std::runtime_error(std::string("lmdb: ") + mdb_strerror(status));
}

template <typename T>
MDB_val bytes_of(const T& value) {
  return {sizeof value, const_cast<T*>(&value)};
}

template <typename T>
T read(const MDB_val& value, std::size_t offset = 0) {
  T result;
  std::memcpy(&result, static_cast<const char*>(value.mv_data) + offset, sizeof result);
  return result;
}

class Lmdb final : public System {
 public:
  ~Lmdb() override {
    if (reader_ != nullptr) mdb_txn_abort(reader_);
    mdb_env_close(environment_);
  }

  bool shared() const override { return true; }
  bool rolls_back() const override { return true; }

  void create(const Place& place) override { open(place, MDB_CREATE); }
  void attach(const Place& place, Access) override { open(place, 0); }
  std::int64_t bytes() override {
    MDB_envinfo info;
    MDB_stat stat;
    check(mdb_env_info(environment_, &info));
    check(mdb_env_stat(environment_, &stat));
    return static_cast<std::int64_t>((info.me_last_pgno + 1) * stat.ms_psize);
  }

  void begin() override { check(mdb_txn_begin(environment_, nullptr, 0, &writer_)); }
  void commit() override { check(mdb_txn_commit(writer_)); }
  void rollback() override { mdb_txn_abort(writer_); }
  void insert(const Row& row) override {
    put(by_id_, bytes_of(row.id), bytes_of(row), MDB_NOOVERWRITE);
    put(by_name_, {std::strlen(row.name.text), const_cast<char*>(row.name.text)}, bytes_of(row.id),
        MDB_NOOVERWRITE);
    put(by_grp_, bytes_of(row.grp), bytes_of(row.id), 0);
  }
  void set_price(std::int64_t id, double price) override {
    Row row = read<Row>(get(writer_, by_id_, bytes_of(id)));
    row.price = price;
    put(by_id_, bytes_of(id), bytes_of(row), 0);
  }
  void erase(std::int64_t id) override {
    const Row row = read<Row>(get(writer_, by_id_, bytes_of(id)));
    MDB_val key = bytes_of(id);
    MDB_val name = {std::strlen(row.name.text), const_cast<char*>(row.name.text)};
    MDB_val group = bytes_of(row.grp);
    check(mdb_del(writer_, by_grp_, &group, &key));
    check(mdb_del(writer_, by_name_, &name, nullptr));
    check(mdb_del(writer_, by_id_, &key, nullptr));
  }

  void begin_reads() override {
    renew();
    holds_ = true;
  }
  void end_reads() override {
    holds_ = false;
    mdb_txn_reset(reader_);
  }

  double get_id(std::int64_t id) override {
    const Snapshot snapshot(*this);
    return read<double>(get(reader_, by_id_, bytes_of(id)), offsetof(Row, price));
  }
  double get_name(const Name& name) override {
    const Snapshot snapshot(*this);
    const MDB_val id = get(reader_, by_name_, {std::strlen(name.text), const_cast<char*>(name.text)});
    return read<double>(get(reader_, by_id_, id), offsetof(Row, price));
  }
  double get_group(std::int32_t group, int count) override {
    const Snapshot snapshot(*this);
    Cursor cursor(reader_, by_grp_);
    MDB_val key = bytes_of(group);
    double sum = 0;
    for (MDB_val id; count-- > 0 && cursor.move(key, id, MDB_NEXT_DUP);)
      sum += read<std::int32_t>(get(reader_, by_id_, id), offsetof(Row, grp));
    return sum;
  }
  double range(std::int64_t from, std::int64_t count) override {
    const Snapshot snapshot(*this);
    Cursor cursor(reader_, by_id_);
    MDB_val key = bytes_of(from);
    double sum = 0;
    for (MDB_val row; count-- > 0 && cursor.move(key, row, MDB_NEXT);)
      sum += read<double>(row, offsetof(Row, price));
    return sum;
  }

 private:
  // Keeps the reader's transaction open for one call, unless begin_reads did.
  class Snapshot {
   public:
    explicit Snapshot(Lmdb& lmdb) : lmdb_(lmdb) {
      if (!lmdb_.holds_) lmdb_.renew();
    }
    ~Snapshot() {
      if (!lmdb_.holds_) mdb_txn_reset(lmdb_.reader_);
    }
    Snapshot(const Snapshot&) = delete;
    Snapshot& operator=(const Snapshot&) = delete;

   private:
    Lmdb& lmdb_;
  };

  // The first move goes to the first entry not below the key, the others as they are told.
  class Cursor {
   public:
    Cursor(MDB_txn* transaction, MDB_dbi tree) { check(mdb_cursor_open(transaction, tree, &cursor_)); }
    ~Cursor() { mdb_cursor_close(cursor_); }
    Cursor(const Cursor&) = delete;
    Cursor& operator=(const Cursor&) = delete;
    bool move(MDB_val& key, MDB_val& value, MDB_cursor_op next) {
      const int status = mdb_cursor_get(cursor_, &key, &value, placed_ ? next : MDB_SET_RANGE);
      placed_ = true;
      if (status != MDB_NOTFOUND) check(status);
      return status != MDB_NOTFOUND;
    }

   private:
    MDB_cursor* cursor_ = nullptr;
    bool placed_ = false;
  };

  void open(const Place& place, unsigned create) {
    check(mdb_env_create(&environment_));
    check(mdb_env_set_maxdbs(environment_, 3));
    check(mdb_env_set_mapsize(environment_,
                              spare_bytes + static_cast<std::size_t>(place.rows) * bytes_per_row));
    check(mdb_env_open(environment_, place.folder.c_str(), MDB_WRITEMAP | MDB_NOSYNC, 0600));
    MDB_txn* transaction = nullptr;
    check(mdb_txn_begin(environment_, nullptr, create == 0 ? MDB_RDONLY : 0, &transaction));
    check(mdb_dbi_open(transaction, "id", create | MDB_INTEGERKEY, &by_id_));
    check(mdb_dbi_open(transaction, "name", create, &by_name_));
    check(mdb_dbi_open(transaction, "grp",
                       create | MDB_INTEGERKEY | MDB_DUPSORT | MDB_DUPFIXED | MDB_INTEGERDUP, &by_grp_));
    check(mdb_txn_commit(transaction));
    check(mdb_txn_begin(environment_, nullptr, MDB_RDONLY, &reader_));
    mdb_txn_reset(reader_);
  }

  void renew() { check(mdb_txn_renew(reader_)); }

  static MDB_val get(MDB_txn* transaction, MDB_dbi tree, MDB_val key) {
    MDB_val value;
    check(mdb_get(transaction, tree, &key, &value));
    return value;
  }

  void put(MDB_dbi tree, MDB_val key, MDB_val value, unsigned flags) {
    check(mdb_put(writer_, tree, &key, &value, flags));
  }

  MDB_env* environment_ = nullptr;
  MDB_txn* writer_ = nullptr;
  MDB_txn* reader_ = nullptr;
  bool holds_ = false;
  MDB_dbi by_id_ = 0;
  MDB_dbi by_name_ = 0;
  MDB_dbi by_grp_ = 0;
};

}  // namespace

std::unique_ptr<System> make_lmdb() {
  return std::make_unique<Lmdb>();
}

}  // namespace bench
