// What every system of the comparison can be asked: one table with three indexes, in the system's own idiom.
//
// A system belongs to one thread. Whatever fails throws; nothing is measured in here. Calls are virtual for all alike:
// about a nanosecond each.
#ifndef CACHET_BENCH_SYSTEM_H
#define CACHET_BENCH_SYSTEM_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>

#include "rows.h"

namespace bench {

// Where the system keeps its table: an empty folder in a memory file system, and how many rows will come.
struct Place {
  std::string folder;
  std::int64_t rows;
};

// A recoverable writer is one that others can clear up after when it is killed, where the system asks for a choice.
enum class Access { read_only, read_write, recoverable };

inline constexpr int batch_size = 16;

class System {
 public:
  System() = default;
  virtual ~System() = default;
  System(const System&) = delete;
  System& operator=(const System&) = delete;

  // ---- what it can do; the rest is reported as "-" ----

  virtual bool shared() const { return false; }  // other processes may attach
  virtual bool rolls_back() const { return false; }
  virtual bool locks() const { return true; }  // an empty write transaction makes sense
  virtual bool batches() const { return false; }
  virtual int slowness() const { return 1; }  // operations that wait are repeated so many times less

  // ---- opening ----

  // Makes the empty table. `warm_up` is the time of a call that a caller may make before, 0 without one.
  virtual void create(const Place& place) = 0;
  virtual double warm_up_ns() const { return 0; }
  // Opens the table that another process has made.
  virtual void attach(const Place&, Access) { throw std::logic_error("no other process can attach"); }
  // Bytes of memory in use.
  virtual std::int64_t bytes() = 0;

  // ---- writing, always between begin and commit or rollback ----

  virtual void begin() = 0;
  virtual void commit() = 0;
  virtual void rollback() { throw std::logic_error("no rollback"); }
  virtual void insert(const Row& row) = 0;
  virtual void set_price(std::int64_t id, double price) = 0;
  virtual void erase(std::int64_t id) = 0;
  // An empty write transaction, with whatever lets a survivor clear up after a killed writer.
  virtual void lock_unlock() {
    begin();
    commit();
  }

  // ---- reading ----

  // Between these two, reads may share one snapshot; outside, each one sees the last commit.
  virtual void begin_reads() {}
  virtual void end_reads() {}

  // The price in the row.
  virtual double get_id(std::int64_t id) = 0;
  virtual double get_name(const Name& name) = 0;
  // The sum of `grp` of the first `count` rows of a group, read from the rows.
  virtual double get_group(std::int32_t group, int count) = 0;
  // The sum of the prices of `count` rows in ascending order of id, from the first one not below `from`.
  virtual double range(std::int64_t from, std::int64_t count) = 0;
  // The prices of up to batch_size rows.
  virtual void get_ids(std::span<const std::int64_t>, double*) { throw std::logic_error("no batches"); }
  virtual void get_names(std::span<const Name>, double*) { throw std::logic_error("no batches"); }
};

inline void require(bool holds, const char* what) {
  if (!holds) throw std::runtime_error(what);
}

}  // namespace bench

#endif
