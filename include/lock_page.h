// The lock page of a database: the documented words of both slots, and in the rest of its 8192 bytes what
// lets a live process finish the work of a dead one.
//
//   byte     0       20      40    64         72     80    128     192       448       704       768 832
//           +-------+-------+ - - +----------+------+ - -
//           +-------+---------+---------+---------+---------+---------+ | slot 0| slot 1|     | reader   |
//           epoch|     | magic | section | section | cleaner | work    | stage   | |       |       |     |
//           releases |      |     |       | of 0    | of 1    | mutex   | record  | log     |
//           +-------+-------+ - - +----------+------+ - -
//           +-------+---------+---------+---------+---------+---------+
//
// The creator of the page prepares everything behind the magic and writes the magic last. Without it (a page
// of a plain implementation) only the documented words are used, and nothing can be recovered.
#ifndef CACHET_LOCK_PAGE_H
#define CACHET_LOCK_PAGE_H

#include <pthread.h>

#include <cstddef>
#include <cstdint>

#include "shared_word.h"
#include "stage_log.h"

namespace cachet {

inline constexpr int lock_slots = 2;
inline constexpr int lock_page_bytes = 8192;
inline constexpr std::uint64_t lock_page_magic = 0x3130'7465'6863'6163;  // "cachet01"

// The documented words of a slot.
struct SlotWords {
  std::int32_t spin;
  std::int32_t writers_holding;
  std::int32_t writers_waiting;
  std::int32_t readers_holding;
  std::int32_t readers_waiting;
};

// What the holder of a slot's spin lock is doing, so that its heir can leave the slot as if the holder had
// never held or waited there. Written before the first change, published by `active`.
struct SectionRecord {
  std::int32_t active;
  std::int32_t unused;
  std::int32_t pid;
  std::int32_t tid;
  std::int32_t writers_holding;  // the counts the heir leaves
  std::int32_t writers_waiting;
  std::int32_t readers_holding;
  std::int32_t readers_waiting;
  std::int32_t claimed;     // session entry that the holder may have claimed, or -1
  std::int32_t erased;      // session entry that has to go, or -1
  std::int32_t erased_pid;  // whose it is
  std::int32_t erased_tid;
};

// One slot's share of the unused rest. Whoever holds the mutex may take the spin word.
struct SlotSection {
  pthread_mutex_t mutex;
  SectionRecord record;
  char unused[256 - sizeof(pthread_mutex_t) - sizeof(SectionRecord)];
};

// Work on shared structures that outlives no single store: who does it, and on what.
struct WorkRecord {
  std::uint64_t owner;  // process id; 0 = nobody
  std::int32_t kind;    // WorkKind, published last and cleared first
  std::int32_t tableid;
  std::int64_t record_offset;
  char unused[64 - 24];
};

struct LockPage {
  SlotWords slots[lock_slots];
  char unused_1[24];
  std::int32_t reader_releases[lock_slots];  // raised by every unlock that lets the waiting readers go
  std::uint64_t epoch;                       // raised by rollbacks, odd during a reset or a load
  char unused_2[48];
  std::uint64_t magic;
  char unused_3[56];
  SlotSection sections[lock_slots];
  pthread_mutex_t cleaner;
  char unused_4[64 - sizeof(pthread_mutex_t)];
  WorkRecord work;
  StageLog stages;
};

static_assert(sizeof(SlotWords) == 20 && offsetof(LockPage, slots) == 0);
static_assert(offsetof(LockPage, reader_releases) == 64 && offsetof(LockPage, epoch) == 72);
static_assert(offsetof(LockPage, magic) == 128 && offsetof(LockPage, sections) == 192 &&
              sizeof(SlotSection) == 256);
static_assert(offsetof(LockPage, cleaner) == 704 && offsetof(LockPage, work) == 768 &&
              sizeof(WorkRecord) == 64);
static_assert(offsetof(LockPage, stages) == 832 && sizeof(LockPage) <= lock_page_bytes);

// Prepares a zeroed page. False when the system has no robust mutexes to give.
bool prepare(LockPage& page);
inline bool is_recoverable(const LockPage& page) noexcept {
  return load_acquire<std::uint64_t>(&page.magic) == lock_page_magic;
}

}  // namespace cachet

#endif
