// What the demo's processes tell each other, in anonymous shared memory that the children inherit: orders
// from the parent, and from every child its figures, its first complaint and, from a writer, the ledger of
// what it committed.
//
// The database under test has no part in this: it is plain memory, and every entry has one writing process.
#ifndef CACHET_TOOLS_DEMO_BOARD_H
#define CACHET_TOOLS_DEMO_BOARD_H

#include <sys/mman.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <new>
#include <string>

#include "statistics.h"

namespace demo {

enum Role { kWriter1, kWriter2, kReaderReadOnly, kReaderReadWrite, kRoles };
constexpr Role kAllRoles[] = {kWriter1, kWriter2, kReaderReadOnly, kReaderReadWrite};
constexpr const char* kRoleNames[kRoles] = {"writer 1", "writer 2", "reader 1 (read-only)",
                                            "reader 2 (read-write)"};

enum Task { kLookUp, kListSection, kTenLargest, kCommit, kRollback, kRefused, kTasks };
constexpr const char* kTaskNames[kTasks] = {"look up a name", "list a section", "ten largest",
                                            "transaction",    "rolled back",    "duplicate refused"};

struct Report {
  std::atomic<bool> ready{false};
  std::atomic<bool> finished{false};
  Latencies tasks[kTasks];
  int64_t rows_checked = 0;
  std::atomic<int64_t> complaint_count{0};
  char first_complaint[400] = "";

  void complain(const std::string& text) {
    if (complaint_count.fetch_add(1) == 0)
      std::snprintf(first_complaint, sizeof first_complaint, "%s", text.c_str());
  }
};

struct Board {
  std::atomic<bool> go{false};
  std::atomic<bool> stop{false};
  std::atomic<int> rows_loaded{0};
  Report reports[kRoles];
};

constexpr int kMadeUpRowsMax = 1 << 16;

// What one writer committed. Sums over both writers' ledgers give the database's content.
struct Ledger {
  int32_t* stock_changes;  // by record id of a package
  uint32_t* revisions;     // likewise
  bool* made_up_rows;      // by serial: inserted and not deleted
};

// Zeroed memory that stays shared with processes made by fork; never unmapped.
template <typename T>
T* shared_array(size_t count) {
  void* const memory =
      mmap(nullptr, count * sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::bad_alloc();
  T* const array = static_cast<T*>(memory);
  for (size_t i = 0; i < count; ++i) new (array + i) T{};
  return array;
}

}  // namespace demo

#endif
