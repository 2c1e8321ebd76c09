// The database that zt bench measures in: private, in a temporary folder, gone at the end of its scope. Reached through
// the public headers alone, as any program would.
//
//   table 0  id INT | name STRING[16] "item00000042" | team INT | price DOUBLE | next INT
//   indexes  0 by id (unique) | 1 by name (unique) | 2 by team
//
// `next` leads from each record to another one, through all of them in one ring.
#ifndef CACHET_TOOLS_ZT_BENCH_PRIVATE_DATABASE_H
#define CACHET_TOOLS_ZT_BENCH_PRIVATE_DATABASE_H

#include <cachet.h>

#include <array>
#include <string>
#include <vector>

namespace zt::bench {

inline constexpr int table = 0;
enum : int { field_id, field_name, field_team, field_price, field_next };
enum : int { by_id, by_name, by_team };
inline constexpr int records_of_a_team = 100;

using Name = std::array<char, 16>;
Name name_of(int id);

// A handle; ended with its scope.
class Handle {
 public:
  Handle() = default;
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  ~Handle() { ZtDeleteDb(handle_); }

  operator ZtDbHandle() const { return handle_; }
  ZtDbHandle* out() { return &handle_; }
  // The library's last error.
  std::string error() const;

 private:
  ZtDbHandle handle_ = nullptr;
};

// Removed with its scope.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

class PrivateDatabase {
 public:
  // Makes it with room for this many records and with none. Throws Failure.
  explicit PrivateDatabase(int records);

  // The creator's handle, and one that only reads.
  ZtDbHandle handle() const { return handle_; }
  ZtDbHandle reader() const { return reader_; }
  // Opens another read-only one, for the calling thread.
  void open(Handle& reader) const;
  // For each id the next one of the ring, in an order without order.
  const std::vector<int>& ring() const { return ring_; }

 private:
  TemporaryFolder folder_;  // goes last
  std::vector<int> ring_;
  Handle handle_, reader_;
};

}  // namespace zt::bench

#endif
