// Where handles attach: at one aligned base if there is room, anywhere if not, never counted twice, and without a trace
// when they are gone.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/shm.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <vector>

#include "base/features.h"
#include "cachetx.h"
#include "rb/address_range.h"
#include "support/child_process.h"
#include "support/raw_memory.h"
#include "support/sanitizers.h"
#include "support/schema.h"

namespace {

// What a detaching of this segment left attached at the least, of those made by shmdt.
int watched_id = -1;
unsigned long fewest_attached = 0;

}  // namespace

// In place of the C library's, for all tests of this program.
extern "C" int shmdt(const void* address) noexcept {
  static const auto real = reinterpret_cast<int (*)(const void*)>(dlsym(RTLD_NEXT, "shmdt"));
  const int result = real(address);
  if (watched_id != -1) {
    fewest_attached = std::min(fewest_attached, cachet::test::segment_status(watched_id).shm_nattch);
  }
  return result;
}

namespace cachet::test {
namespace {

constexpr ZTINT8 gibibyte = 1LL << 30;

struct Attach : DatabaseTest {};

bool has_item(const Database& db, int id) {
  Row row(db);
  return find_item(db, id, row);
}

long address_space_bytes() {
  long pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  return pages * 4096;
}

// The lines of /proc/self/smaps about the mapping that begins at `begin`.
long resident_bytes(const void* begin) {
  std::ostringstream start;
  start << std::hex << reinterpret_cast<std::uintptr_t>(begin) << '-';
  std::ifstream maps("/proc/self/smaps");
  for (std::string line; std::getline(maps, line);) {
    if (line.rfind(start.str(), 0) != 0) continue;
    while (std::getline(maps, line) && line.rfind("Rss:", 0) != 0) continue;
    return std::stol(line.substr(4)) * 1024;
  }
  return -1;
}

void expect_one_aligned_base(const Rb_base* base) {
  ASSERT_EQ(base->flat_begin, base->share_memory_begin[0]);
  for (int i = 0; i < base->segmentcount; ++i) {
    EXPECT_EQ(base->share_memory_begin[i], base->flat_begin + i * gibibyte);
  }
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(base->flat_begin) % huge_page_bytes, 0u);
}

TEST_F(Attach, OfManyHandlesIsCountedOnceEachAndGivesAllAddressesBack) {
  std::mt19937 random(4);
  Database creator = create_items(directory);
  ASSERT_TRUE(commit_item(creator, 7));
  long before = 0;
  for (int round = 0; round < 3; ++round) {
    std::vector<Database> handles;
    for (int count = 1; count <= 40; ++count) {
      handles.push_back(open_items(directory, count % 2 == 0 ? ZT_MODE_READ_ONLY : ZT_MODE_READ_WRITE));
      ASSERT_EQ(attachments(directory.base()), count + 1);
      if (features::reserved_range) expect_one_aligned_base(base_of(handles.back()));
    }
    std::shuffle(handles.begin(), handles.end(), random);
    while (!handles.empty()) {
      EXPECT_TRUE(has_item(handles.back(), 7));
      handles.pop_back();
      ASSERT_EQ(attachments(directory.base()), static_cast<int>(handles.size()) + 1);
    }
    if (round == 0) before = address_space_bytes();
  }
  EXPECT_EQ(address_space_bytes(), before);
}

TEST_F(Attach, ThatFailsGivesAllAddressesBack) {
  const Database creator = create_items(directory, gibibyte + 4096);
  std::filesystem::rename(directory.base() + "01.data", directory.base() + ".away");
  const auto attempt = [&](bool create) {
    Rb_base base;
    char text[RB_ERRMSG_SIZE];
    const char* const name = base_of(creator)->absolute_path.c_str();
    EXPECT_FALSE(create ? Rb_createsharememory(&base, name, version_text, gibibyte, 2, text)
                        : Rb_opensharememory(&base, name, 2, 0, text));
    EXPECT_EQ(base.segmentcount, 0);
  };
  for (const bool create : {false, true}) {
    attempt(create);
    const long before = address_space_bytes();
    for (int i = 0; i < 5; ++i) attempt(create);
    EXPECT_LT(address_space_bytes() - before, 1 << 20);
    EXPECT_EQ(attachments(directory.base()), 1);
  }
  std::filesystem::rename(directory.base() + ".away", directory.base() + "01.data");
}

TEST_F(Attach, PutsSegmentsSideBySide) {
  Database creator = create_items(directory, gibibyte + (3 << 20) + 12345);
  ASSERT_TRUE(commit_item(creator, 1));
  for (const int mode : {ZT_MODE_READ_WRITE, ZT_MODE_READ_ONLY}) {
    const Database db = open_items(directory, mode);
    const Rb_base* const base = base_of(db);
    ASSERT_EQ(base->segmentcount, 2);
    if (features::reserved_range) expect_one_aligned_base(base);
    for (const ZTINT8 offset : {ZTINT8{64}, gibibyte - 1, gibibyte, base->attached_bytes - 1}) {
      const char* const address = address_of(base, FlatOffset{offset});
      EXPECT_EQ(address, base->share_memory_begin[offset / gibibyte] + offset % gibibyte);
      EXPECT_EQ(value_of(offset_of(base, address)), offset);
    }
    EXPECT_TRUE(has_item(db, 1));
  }
}

TEST_F(Attach, IsNeverGivenUpForALookAtTheHeader) {
  {
    Child dies([&](Gate&) {
      Database db = create_items(directory);
      commit_item(db, 3);
      directory.note_objects();
      std::_Exit(0);  // and leaves segments that nobody is attached to
      return 0;
    });
    ASSERT_EQ(dies.exit_status(), 0);
  }
  directory.note_objects();
  watched_id = segment_id(directory.base() + "00.data");
  fewest_attached = 100;
  Database db = begin_open(directory, ZT_MODE_READ_ONLY);
  watched_id = -1;
  ASSERT_TRUE(db.opened);
  EXPECT_GE(fewest_attached, features::reserved_range ? 1u : 0u);
  EXPECT_EQ(attachments(directory.base()), 1);
  finish_open(db);
}

TEST_F(Attach, OfAChildEndsWithoutTheParents) {
  Database db = create_items(directory, 3 << 20);
  ASSERT_TRUE(commit_item(db, 5));
  Child child([&](Gate& gate) {
    EXPECT_EQ(attachments(directory.base()), 2) << "the system counts the child";
    gate.tell('a');
    gate.wait_for('b');
    EXPECT_TRUE(has_item(db, 5));
    db.close();
    EXPECT_EQ(attachments(directory.base()), 1);
    gate.tell('c');
    gate.wait_for('d');
    const Database own = open_items(directory);
    EXPECT_EQ(attachments(directory.base()), 2);
    return 0;
  });
  child.wait_for('a');
  child.tell('b');
  child.wait_for('c');
  EXPECT_TRUE(commit_item(db, 6));
  child.tell('d');
  EXPECT_EQ(child.exit_status(), 0);
  EXPECT_EQ(attachments(directory.base()), 1);
}

// Room for the database once, and a little more: not for a range and a look at the header.
TEST_F(Attach, GoesAnywhereWhenAddressesAreScarce) {
  if (sanitized) GTEST_SKIP() << "a sanitizer has taken most addresses";
  constexpr ZTINT8 bytes = 256 << 20;
  const Database db = create_items(directory, bytes);
  ASSERT_TRUE(commit_item(db, 5));
  Child child([&](Gate&) {
    const auto limit = static_cast<rlim_t>(address_space_bytes() + bytes + (64 << 20));
    const rlimit limits{limit, limit};
    EXPECT_EQ(setrlimit(RLIMIT_AS, &limits), 0);
    for (const int mode : {ZT_MODE_READ_ONLY, ZT_MODE_READ_WRITE}) {
      const Database scarce = open_items(directory, mode);
      if (!scarce.opened) return 1;
      EXPECT_EQ(base_of(scarce)->range.bytes, 0);
      EXPECT_TRUE(has_item(scarce, 5));
    }
    return 0;
  });
  EXPECT_EQ(child.exit_status(), 0);
}

TEST(AddressRange, TakesOnlyWhatFitsItsPlace) {
  if (!features::reserved_range) GTEST_SKIP();
  AddressRange range = reserve_addresses(3 << 20);
  ASSERT_EQ(range.bytes, 4 << 20);
  const int large = shmget(IPC_PRIVATE, (4 << 20) + 1, IPC_CREAT | 0600);
  const int small = shmget(IPC_PRIVATE, 5000, IPC_CREAT | 0600);
  EXPECT_EQ(attach_in_range(range, 0, large, 0), nullptr);
  EXPECT_EQ(attach_in_range(range, 1, small, 0), nullptr) << "its place lies behind the range";
  EXPECT_EQ(attach_in_range(range, 0, small, 0), range.begin);
  EXPECT_EQ(segment_status(small).shm_nattch, 1u);
  char* const begin = range.begin;
  EXPECT_TRUE(give_back(range));
  EXPECT_EQ(range.bytes, 0);
  EXPECT_EQ(segment_status(small).shm_nattch, 0u);
  EXPECT_NE(msync(begin, 4 << 20, MS_ASYNC), 0) << "nothing is mapped there any more";
  for (const int id : {large, small}) shmctl(id, IPC_RMID, nullptr);
}

TEST_F(Attach, CanBeWarmedUpByEveryHandle) {
  Database creator = create_items(directory, (6 << 20) + 100);
  ASSERT_TRUE(commit_item(creator, 9));
  const Database reader = open_items(directory, ZT_MODE_READ_ONLY);
  const auto bytes_of = [](const Database& db) {
    return std::string(base_of(db)->share_memory_begin[0],
                       static_cast<std::size_t>(base_of(db)->attached_bytes));
  };
  for (const Database* db : std::initializer_list<const Database*>{&reader, &creator}) {
    ASSERT_LT(resident_bytes(base_of(*db)->share_memory_begin[0]), 1 << 20);
    ASSERT_TRUE(ZtxWarmUp(*db));
    EXPECT_EQ(resident_bytes(base_of(*db)->share_memory_begin[0]), (6 << 20) + 4096);
    EXPECT_EQ(attachments(directory.base()), 2) << "no mapping was split";
  }
  const std::string before = bytes_of(creator);
  ASSERT_TRUE(ZtxWarmUp(creator));
  EXPECT_TRUE(bytes_of(creator) == before);
  EXPECT_TRUE(has_item(reader, 9));

  const Database nothing = begin_open(directory, ZT_MODE_READ_ONLY, "absent");
  silence(nothing);
  EXPECT_FALSE(ZtxWarmUp(nothing));
  EXPECT_EQ(last_error(nothing).code, ZT_ERR_GENERAL);
}

}  // namespace
}  // namespace cachet::test
