// The shared store of before-images: its bytes, seen through shmat alone, where entries go at a segment's
// end, what a failure leaves, what another process finds, and what damaged bytes may not do.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/shm.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "shmrecordcopyset.h"
#include "support/child_process.h"
#include "support/raw_memory.h"
#include "support/temp_database.h"

namespace {

using cachet::test::Child;
using cachet::test::Gate;
using cachet::test::RawSegment;

constexpr long segment = 0x8000000;

// A record of any length up to a segment, all zeros, that takes no memory.
class BigRecord {
 public:
  BigRecord()
      : bytes_(mmap(nullptr, segment, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0)) {}
  ~BigRecord() { munmap(bytes_, segment); }
  BigRecord(const BigRecord&) = delete;
  BigRecord& operator=(const BigRecord&) = delete;

  ZtRecord* get() const { return static_cast<ZtRecord*>(bytes_); }

 private:
  void* bytes_;
};

struct Entry {
  long position;
  long offset;
  int tableid;
  std::string bytes;
  bool operator==(const Entry&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Entry& entry) {
  return out << "{" << entry.position << ", " << entry.offset << ", " << entry.tableid << ", "
             << entry.bytes.size() << " bytes}";
}

std::vector<Entry> entries_of(ShmRecordcopySet& store) {
  std::vector<Entry> entries;
  for (store.Begin(); const CopySetEntry* const head = store.GetCurRecordCP(); store.MoveNext()) {
    const auto* const bytes = reinterpret_cast<const char*>(store.GetCurRecord());
    entries.push_back({store.read_pos_off_, head->offset, head->tableid,
                       std::string(bytes, static_cast<std::size_t>(head->length))});
  }
  EXPECT_EQ(store.GetCurRecord(), nullptr);
  return entries;
}

std::vector<long> positions_of(ShmRecordcopySet& store) {
  std::vector<long> positions;
  for (store.Begin(); store.GetCurRecordCP() != nullptr; store.MoveNext()) {
    positions.push_back(store.read_pos_off_);
  }
  return positions;
}

std::string output_of(const std::function<void()>& action) {
  testing::internal::CaptureStdout();
  action();
  return testing::internal::GetCapturedStdout();
}

class SharedStore : public cachet::test::DatabaseTest {
 protected:
  std::string key_file(int number, pid_t pid = getpid()) const {
    return directory.base() + "_rcsetshm_" + std::to_string(pid) + "_" + std::to_string(number);
  }
  bool create() { return store.Create(directory.base().c_str()); }
  bool push(std::string bytes, int tableid = 0, long offset = 0) {
    return store.PushBack(tableid, reinterpret_cast<ZtRecord*>(bytes.data()), offset,
                          static_cast<int>(bytes.size()));
  }
  // Fills the first segment but for `room` bytes at its end.
  bool fill_up_to(long room) {
    return store.PushBack(1, big.get(), 0,
                          static_cast<int>(segment - store.copyset_header->write_pos - room - 32));
  }

  ShmRecordcopySet store;
  BigRecord big;
};

// ---- bytes ----

TEST_F(SharedStore, LaysOutHeaderAndEntriesAsPinned) {
  ASSERT_TRUE(create());
  RawSegment raw(key_file(0));
  EXPECT_EQ(cachet::test::segment_status(cachet::test::segment_id(key_file(0))).shm_segsz, 0x8000000u);
  EXPECT_EQ(raw.at<std::int64_t>(0), 1);
  EXPECT_EQ(raw.at<std::int64_t>(8), 16);

  ASSERT_TRUE(push(std::string(17, 'a'), 3, (5L << 30) + 7));  // 32 + 17, rounded up to 56
  EXPECT_EQ(raw.at<std::int64_t>(16 + 24), 72);                // no entry follows: the write position
  ASSERT_TRUE(push(std::string(24, 'b'), 4, -1));
  EXPECT_EQ(raw.at<std::int64_t>(8), 128);
  struct {
    std::int64_t offset;
    std::int32_t length, tableid;
    std::int64_t data, next;
  } const first{(5L << 30) + 7, 17, 3, 48, 72}, second{-1, 24, 4, 104, 128};
  EXPECT_EQ(raw.bytes(16, 32), std::string(reinterpret_cast<const char*>(&first), 32));
  EXPECT_EQ(raw.bytes(48, 24), std::string(17, 'a') + std::string(7, '\0'));
  EXPECT_EQ(raw.bytes(72, 32), std::string(reinterpret_cast<const char*>(&second), 32));
  EXPECT_EQ(raw.bytes(104, 24), std::string(24, 'b'));
  store.Delete();
}

TEST_F(SharedStore, YieldsEntriesInPushOrder) {
  ASSERT_TRUE(create());
  EXPECT_EQ(entries_of(store), std::vector<Entry>{});
  std::vector<Entry> pushed;
  long position = 16;
  for (int i = 0; i < 1000; ++i) {
    pushed.push_back({position, 5000 - i, i % 7, std::string(static_cast<std::size_t>(i % 41), 'x')});
    ASSERT_TRUE(push(pushed.back().bytes, pushed.back().tableid, pushed.back().offset));
    position += (32L + i % 41 + 7) / 8 * 8;
  }
  EXPECT_EQ(entries_of(store), pushed);
  EXPECT_EQ(store.read_pos_off_, position);
  EXPECT_EQ(store.tail_off_, pushed.back().position);
  EXPECT_EQ(store.free_size_, segment - position);
  store.Delete();
}

TEST_F(SharedStore, PrintsPositionsAndAddresses) {
  const auto print = [this] { store.PrintSetInfo(); };
  EXPECT_EQ(output_of(print),
            "ShmRecordcopySet info:--------------------\nread_pos_off_ = 0\nfree_size_ = 0\ntail_off_ = 0\n"
            "copyset_header = 0x(nil)\nshm_segs.size=0\nShmRecordcopySet info end --------------------\n\n");
  ASSERT_TRUE(create() && push("12345678") && push("1") && store.AppendSeg());
  char addresses[200];
  std::snprintf(addresses, sizeof addresses,
                "copyset_header = 0x%p\nwrite_pos = 96\nshm_segs.size=2\nshm_segs NO. 0 baseaddr = 0x%p\n"
                "shm_segs NO. 1 baseaddr = 0x%p\n",
                static_cast<void*>(store.GetRaw(0)), static_cast<void*>(store.GetRaw(0)),
                static_cast<void*>(store.GetRaw(segment)));
  EXPECT_EQ(output_of(print),
            "ShmRecordcopySet info:--------------------\nread_pos_off_ = 16\nfree_size_ = 268435360\n"
            "tail_off_ = 56\n" +
                std::string(addresses) + "ShmRecordcopySet info end --------------------\n\n");
  store.Delete();
}

TEST_F(SharedStore, RefusesNamesThatItsFieldCannotHold) {
  const std::string longest = directory.base(std::string(127 - directory.base("").size(), 'n'));
  EXPECT_FALSE(store.Create((longest + "n").c_str()));
  EXPECT_FALSE(store.Open((longest + "n").c_str(), store.GetCurPid()));
  EXPECT_TRUE(store.shm_segs.empty());
  EXPECT_FALSE(push("never created"));
  ASSERT_TRUE(store.Create(longest.c_str()));
  EXPECT_FALSE(store.Create(longest.c_str()));  // in use
  EXPECT_EQ(store.db_shm_name_, longest);
  store.Delete();
}

// ---- the end of a segment ----

TEST_F(SharedStore, MovesAnEntryThatReachesTheEndToTheNextSegment) {
  struct Case {
    long room;
    bool stays;
  };
  // The entry takes 48 bytes. The first case leaves its bytes where the others have to leave zeros.
  const Case cases[] = {{56, true}, {48, false}, {40, false}, {8, false}};
  ASSERT_TRUE(create());
  for (const Case& test : cases) {
    SCOPED_TRACE(test.room);
    ASSERT_TRUE(push("first") && fill_up_to(test.room));
    ASSERT_TRUE(push(std::string(16, 'e')) && push(std::string(16, 'f')));

    const long end = segment - test.room;
    const long place = test.stays ? end : segment;
    EXPECT_EQ(positions_of(store), (std::vector<long>{16, 56, place, test.stays ? segment : place + 48}));
    EXPECT_EQ(store.shm_segs.size(), 2u);
    EXPECT_EQ(store.free_size_, 2 * segment - store.copyset_header->write_pos);
    RawSegment raw(key_file(0));
    EXPECT_EQ(raw.at<std::int64_t>(0), 2);
    EXPECT_EQ(raw.at<std::int64_t>(56 + 24), place);
    if (!test.stays) {
      EXPECT_EQ(raw.bytes(end, static_cast<std::size_t>(test.room)),
                std::string(static_cast<std::size_t>(test.room), '\0'));
    }
    store.Clear();
  }
  store.Delete();
}

TEST_F(SharedStore, RefusesWhatNoSegmentHolds) {
  ASSERT_TRUE(create());
  EXPECT_FALSE(store.PushBack(0, big.get(), 0, segment - 32));
  EXPECT_FALSE(store.PushBack(0, big.get(), 0, INT_MAX));
  EXPECT_FALSE(store.PushBack(0, big.get(), 0, -1));
  EXPECT_EQ(store.shm_segs.size(), 1u);
  EXPECT_EQ(positions_of(store), std::vector<long>{});
  store.Delete();
}

TEST_F(SharedStore, ChangesNothingWhenASegmentCannotBeMade) {
  ASSERT_TRUE(create());
  ASSERT_TRUE(push("first") && fill_up_to(48));
  std::ofstream(key_file(1)).close();
  const int occupant = shmget(ftok(key_file(1).c_str(), 1), 4096, IPC_CREAT | 0600);
  void* const attached = shmat(occupant, nullptr, 0);
  RawSegment raw(key_file(0));
  // What a failed push could have touched: the header, the last entry's head, the room behind it.
  const auto snapshot = [&] {
    return raw.bytes(0, 16) + raw.bytes(56, 32) + raw.bytes(segment - 48, 48) +
           std::to_string(store.free_size_) + ' ' + std::to_string(store.tail_off_);
  };
  raw.put(segment - 8, 0x5A5A5A5A5A5A5A5AL);
  const std::string before = snapshot();

  for (const std::size_t length : {16u, 100u}) {  // ends exactly with the segment, passes its end
    const std::string output = output_of([&] { EXPECT_FALSE(push(std::string(length, 'e'))); });
    EXPECT_EQ(output, "sha name=" + key_file(1) + " exist=" + std::to_string(occupant) + "\nCreateSeg: shm " +
                          key_file(1) + " create error.\n");
    EXPECT_EQ(snapshot(), before);
    EXPECT_EQ(store.shm_segs.size(), 1u);
  }
  EXPECT_EQ(positions_of(store), (std::vector<long>{16, 56}));

  shmdt(attached);
  EXPECT_TRUE(push("again" + std::string(11, '.')));
  EXPECT_EQ(positions_of(store), (std::vector<long>{16, 56, segment}));
  store.Delete();
}

// ---- emptying and removing ----

TEST_F(SharedStore, KeepsOnlyItsFirstSegmentWhenCleared) {
  ASSERT_TRUE(create());
  ASSERT_TRUE(push("first") && store.AppendSeg() && store.AppendSeg());
  directory.note_objects();
  store.Begin();
  store.MoveNext();
  store.Clear();
  EXPECT_EQ(store.GetCurRecordCP(), nullptr);
  EXPECT_EQ(store.read_pos_off_, 16);
  EXPECT_EQ(store.free_size_, 0x7fffff0);
  EXPECT_EQ(store.tail_off_, 0);
  RawSegment raw(key_file(0));
  EXPECT_EQ(raw.at<std::int64_t>(0), 3);  // the count stays until the next segment
  EXPECT_EQ(raw.at<std::int64_t>(8), 16);
  EXPECT_EQ(directory.leftovers().size(), 2u);  // key file and segment 0

  ASSERT_TRUE(push("again") && store.AppendSeg());
  EXPECT_EQ(raw.at<std::int64_t>(0), 2);
  EXPECT_EQ(entries_of(store), (std::vector<Entry>{{16, 0, 0, "again"}}));
  store.Delete();
}

TEST_F(SharedStore, IsGoneWhenDeletedAndMayBeMadeAnew) {
  ASSERT_TRUE(create());
  ASSERT_TRUE(push("first") && store.AppendSeg());
  directory.note_objects();
  store.Delete();
  EXPECT_EQ(directory.leftovers(), std::vector<std::string>{});
  EXPECT_EQ(store.copyset_header, nullptr);
  EXPECT_EQ(store.GetRaw(16), nullptr);
  EXPECT_STREQ(store.db_shm_name_, "");
  EXPECT_EQ(store.read_pos_off_ + store.free_size_ + store.tail_off_, 0);
  EXPECT_EQ(positions_of(store), std::vector<long>{});
  EXPECT_FALSE(push("deleted"));
  store.Clear();
  store.Delete();

  ASSERT_TRUE(create());
  EXPECT_TRUE(push("again"));
  store.Delete();
}

TEST_F(SharedStore, IsLeftToItsOwnerByAForkedChild) {
  ASSERT_TRUE(create());
  ASSERT_TRUE(push("first") && store.AppendSeg());
  for (const bool clear : {true, false}) {
    Child child([&](Gate&) {
      if (clear) store.Clear();
      store.Delete();
      EXPECT_EQ(store.GetRaw(0), nullptr);
      EXPECT_FALSE(push("child"));
      return 0;
    });
    EXPECT_EQ(child.exit_status(), 0);
    EXPECT_EQ(directory.leftovers().size(), 4u);
    EXPECT_EQ(entries_of(store), (std::vector<Entry>{{16, 0, 0, "first"}}));
  }
  store.Clear();
  Child writer([&](Gate&) { return push("child") ? 1 : 0; });
  EXPECT_EQ(writer.exit_status(), 0);
  EXPECT_EQ(positions_of(store), std::vector<long>{});
  store.Delete();
}

TEST_F(SharedStore, OfADeadParentStaysForTheClearing) {
  Child owner([&](Gate& gate) {
    const bool made = create() && push("first");
    Child heir([&](Gate&) {
      store.Delete();
      return 0;
    });
    const bool let_go = heir.exit_status() == 0;
    gate.tell(made && let_go ? 'm' : 'x');
    gate.wait_for('g');
    return 0;
  });
  ASSERT_TRUE(owner.wait_for('m'));
  owner.kill();
  ASSERT_TRUE(store.Open(directory.base().c_str(), static_cast<unsigned long>(owner.pid())));
  EXPECT_EQ(entries_of(store), (std::vector<Entry>{{16, 0, 0, "first"}}));
  store.Delete();
}

// ---- another process's store ----

TEST_F(SharedStore, OfADeadProcessIsReadAndRemovedByASurvivor) {
  Child owner([&](Gate& gate) {
    const bool made = create() && push("first", 1, 10) && fill_up_to(8) && push("third", 3, 30);
    gate.tell(made ? 'm' : 'x');
    gate.wait_for('g');
    return 0;
  });
  ASSERT_TRUE(owner.wait_for('m'));
  owner.kill();
  directory.note_objects();
  const auto pid = static_cast<unsigned long>(owner.pid());
  {
    ShmRecordcopySet visitor;  // leaves the segments as they are
    ASSERT_TRUE(visitor.Open(directory.base().c_str(), pid));
  }
  ASSERT_TRUE(store.Open(directory.base().c_str(), pid));
  EXPECT_EQ(store.free_size_, 0x7fffff0 + segment);
  const std::vector<Entry> found = entries_of(store);
  ASSERT_EQ(found.size(), 3u);
  EXPECT_EQ(found.front(), (Entry{16, 10, 1, "first"}));
  EXPECT_EQ(found.back(), (Entry{segment, 30, 3, "third"}));
  EXPECT_GE(store.read_pos_off_, store.copyset_header->write_pos);
  EXPECT_FALSE(push("not ours"));
  store.Clear();
  EXPECT_EQ(directory.leftovers().size(), 2u);
  store.Delete();
  EXPECT_EQ(directory.leftovers(), std::vector<std::string>{});
}

TEST_F(SharedStore, CannotBeOpenedWhereNoneIs) {
  const std::string output = output_of([&] { EXPECT_FALSE(store.Open(directory.base().c_str(), 4194304)); });
  EXPECT_EQ(output, "Open: shm " + key_file(0, 4194304) + " open error.\n");

  // Something smaller than a segment under the store's key is left alone.
  std::ofstream(key_file(0)).close();
  const int small = shmget(ftok(key_file(0).c_str(), 1), 4096, IPC_CREAT | 0600);
  output_of([&] { EXPECT_FALSE(store.Open(directory.base().c_str(), store.GetCurPid())); });
  EXPECT_EQ(cachet::test::segment_status(small).shm_segsz, 4096u);
  EXPECT_EQ(shmctl(small, IPC_RMID, nullptr), 0);
  unlink(key_file(0).c_str());
}

TEST_F(SharedStore, EndsAWalkBeforeAMissingSegment) {
  ASSERT_TRUE(create());
  ASSERT_TRUE(push("first") && fill_up_to(8) && push("third"));
  const int second = cachet::test::segment_id(key_file(1));
  ASSERT_EQ(shmctl(second, IPC_RMID, nullptr), 0);

  ShmRecordcopySet reader;
  ASSERT_TRUE(reader.Open(directory.base().c_str(), store.GetCurPid()));
  EXPECT_EQ(reader.shm_segs.size(), 2u);
  EXPECT_EQ(positions_of(reader), (std::vector<long>{16, 56}));
  EXPECT_LT(reader.read_pos_off_, reader.copyset_header->write_pos);  // not the whole store
  reader.Delete();
  EXPECT_NE(access(key_file(1).c_str(), F_OK), 0);
  store.Delete();
}

// ---- damaged bytes ----

TEST_F(SharedStore, EndsAWalkAtBytesThatCannotBe) {
  ASSERT_TRUE(create());
  ASSERT_TRUE(push("first") && push("other") && push("third"));  // at 16, 56, 96; the end at 136
  struct Case {
    const char* what;
    long offset;
    std::int64_t value;
    std::size_t whole;  // entries in front of the damage
  };
  const std::int64_t tableid = 0;
  const auto length = [&](std::int64_t bytes) { return (tableid << 32) | (bytes & 0xFFFFFFFF); };
  const Case cases[] = {
      {"nothing damaged", 56 + 24, 96, 3},
      {"next leads back", 56 + 24, 16, 2},
      {"next leads to itself", 56 + 24, 56, 2},
      {"next leads into its entry", 56 + 24, 64, 2},
      {"next is zero", 56 + 24, 0, 2},
      {"next is negative", 56 + 24, -8, 2},
      {"next is odd", 56 + 24, 97, 2},
      {"next leaves an entry out", 16 + 24, 96, 1},
      {"next lies behind the end", 56 + 24, 136, 2},
      {"next lies in no segment", 56 + 24, LONG_MAX - 7, 2},
      {"length is negative", 56 + 8, length(-1), 1},
      {"length passes the write position", 56 + 8, length(64), 1},
      {"length passes the segment", 56 + 8, length(segment), 1},
      {"length is the largest", 56 + 8, length(INT_MAX), 1},
      {"bytes lie elsewhere", 56 + 16, 16, 1},
      {"bytes lie in no segment", 56 + 16, LONG_MAX, 1},
      {"write position cuts an entry", 8, 120, 2},
      {"write position is zero", 8, 0, 0},
      {"write position is negative", 8, LONG_MIN, 0},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.what);
    RawSegment raw(key_file(0));
    const auto original = raw.at<std::int64_t>(test.offset);
    raw.put(test.offset, test.value);
    EXPECT_EQ(entries_of(store).size(), test.whole);
    raw.put(test.offset, original);
  }
  store.Delete();
}

TEST_F(SharedStore, NeverReadsBehindTheSegmentsThatAreThere) {
  ASSERT_TRUE(create());
  ASSERT_TRUE(push("first"));
  RawSegment raw(key_file(0));
  for (const std::int64_t end : {segment, 2 * segment, LONG_MAX - 7, LONG_MAX}) {
    raw.put<std::int64_t>(8, end);
    // Heads at the segment's end and behind it, and a length that would pass it.
    raw.put<std::int32_t>(segment - 40 + 8, 9);
    raw.put<std::int64_t>(segment - 40 + 16, segment - 8);
    for (const long position :
         {segment - 40, segment - 24, segment - 8, segment, segment + 16, LONG_MAX - 7, -8L, 8L}) {
      store.read_pos_off_ = position;
      EXPECT_EQ(store.GetCurRecordCP(), nullptr) << end << ' ' << position;
    }
    raw.put<std::int64_t>(16 + 24, segment);  // a link to where no segment is
    EXPECT_EQ(positions_of(store), std::vector<long>{16}) << end;
    EXPECT_FALSE(push("no place"));
  }
  // A count of segments that nobody could have made.
  for (const std::int64_t count : {LONG_MAX, LONG_MIN, 0L}) {
    raw.put<std::int64_t>(0, count);
    ShmRecordcopySet reader;
    ASSERT_TRUE(reader.Open(directory.base().c_str(), store.GetCurPid()));
    EXPECT_EQ(positions_of(reader), std::vector<long>{16});
  }
  store.Delete();
}

}  // namespace
