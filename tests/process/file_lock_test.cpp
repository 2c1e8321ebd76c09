// The file lock of several handles in one process, as other processes see it; and the files that a database
// stands on: their modes, and what happens when somebody puts another file in their place.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "support/child_process.h"
#include "support/raw_memory.h"
#include "support/schema.h"
#include "support/texts.h"

namespace cachet::test {
namespace {

namespace text = cachet::message;
namespace fs = std::filesystem;

using LockDb = DatabaseTest;
using KeyFiles = DatabaseTest;

// Byte 1 of the lock file, seen by another process: 0 free, 1 shared, 2 exclusive.
int lock_level(const TempDirectory& directory) {
  Child observer([&](Gate&) {
    const int file = open(directory.base().c_str(), O_RDWR);
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_start = 1;
    lock.l_len = 1;
    if (file < 0 || fcntl(file, F_GETLK, &lock) != 0) return 50;
    return lock.l_type == F_UNLCK ? 0 : lock.l_type == F_RDLCK ? ZT_LOCK_SHARED : ZT_LOCK_EXCLUSIVE;
  });
  return observer.exit_status();
}

TEST_F(LockDb, KeepsEveryHandlesOwnLevel) {
  Database a = begin_create(directory);
  EXPECT_EQ(lock_level(directory), ZT_LOCK_EXCLUSIVE);
  Database b;
  b.opened = ZtOpenDb(b.out(), (directory.path() + "/.").c_str(), "d", version_text, ZT_MODE_READ_WRITE, 0,
                      false, 0, 0, 0);
  EXPECT_TRUE(b.opened) << "never waits for its own process";
  EXPECT_EQ(lock_level(directory), ZT_LOCK_EXCLUSIVE)
      << "opening another handle does not weaken the creator's lock";
  finish_create(a);
  EXPECT_EQ(lock_level(directory), ZT_LOCK_SHARED) << "b's";
  EXPECT_TRUE(ZtLockDb(b, ZT_LOCK_EXCLUSIVE));
  EXPECT_TRUE(ZtLockDb(a, ZT_LOCK_SHARED));
  EXPECT_EQ(lock_level(directory), ZT_LOCK_EXCLUSIVE) << "b's";
  b.close();
  EXPECT_EQ(lock_level(directory), ZT_LOCK_SHARED) << "a's";
  Database c = open_items(directory);
  c.close();
  EXPECT_EQ(lock_level(directory), ZT_LOCK_SHARED) << "a's";
  ZtUnLockDb(a);
  EXPECT_EQ(lock_level(directory), 0);
}

TEST_F(KeyFiles, HaveTheirModesWhateverTheUmask) {
  const mode_t umask_before = umask(077);
  Database db = create_items(directory);
  umask(umask_before);
  EXPECT_EQ(fs::status(directory.base()).permissions(), fs::perms{0666});
  for (const char* suffix : {"00.data", ".lk", "_session_shmname", ".1.r.s0.sem", ".2.w.s0.sem"}) {
    EXPECT_EQ(fs::status(directory.base() + suffix).permissions(), fs::perms{0600}) << suffix;
  }
  for (const auto& open_file : fs::directory_iterator("/proc/self/fd")) {
    std::error_code ignored;
    if (fs::read_symlink(open_file, ignored) != fs::canonical(directory.base())) continue;
    EXPECT_NE(fcntl(std::stoi(open_file.path().filename()), F_GETFD) & FD_CLOEXEC, 0);
  }
  if (geteuid() == 0 && chown(directory.base().c_str(), 1, 1) == 0) {
    chmod(directory.base().c_str(), 0640);
    Child opener([&](Gate&) { return begin_open(directory).opened ? 0 : 1; });
    EXPECT_EQ(opener.exit_status(), 0);
    EXPECT_EQ(fs::status(directory.base()).permissions(), fs::perms{0640}) << "somebody else's file";
  }
  EXPECT_EQ(segment_status(segment_id(directory.base() + "00.data")).shm_perm.mode & 0777, 0666);
}

TEST_F(KeyFiles, AreNotReachedThroughSymbolicLinks) {
  const std::string base = directory.base();
  const struct {
    const char* suffix;
    Error expected;
  } cases[] = {{"", failure(text::lock_failed, base.c_str())},
               {"00.data", failure(text::create_file_failed, (base + "00.data").c_str(), ELOOP)},
               {".lk", failure(text::create_lock_failed, base.c_str())},
               {"_session_shmname", failure(text::create_lock_failed, base.c_str())},
               {".1.r.s0.sem", failure(text::create_lock_failed, base.c_str())}};
  const std::string victim = directory.path() + "/victim";
  std::ofstream(victim) << "precious";
  chmod(victim.c_str(), 0640);
  for (const auto& c : cases) {
    fs::create_symlink(victim, base + c.suffix);
    EXPECT_EQ(error_of([&] { return begin_create(directory); }), c.expected) << c.suffix;
    fs::remove(base + c.suffix);
    EXPECT_EQ(directory.leftovers(), std::vector<std::string>{}) << c.suffix;
    EXPECT_EQ(fs::status(victim).permissions(), fs::perms{0640}) << c.suffix;
    EXPECT_EQ(fs::file_size(victim), 8u) << c.suffix;
  }
}

TEST_F(KeyFiles, OfSomebodyElseAreNotRemoved) {
  Database db = create_items(directory);
  const std::string file = directory.base() + "00.data";
  std::ofstream(file + ".new") << "another file";
  fs::rename(file + ".new", file);
  db.close();
  EXPECT_TRUE(fs::exists(file));
  fs::remove(file);
}

TEST_F(KeyFiles, AreRemovedWhereTheyWereMade) {
  Child wanderer([&](Gate&) {
    fs::current_path(directory.path());
    Database db;
    EXPECT_TRUE(ZtCreateDb(db.out(), ".", "d", version_text, small_bytes, 0));
    directory.note_objects();
    EXPECT_EQ(RawMemory(directory.base()).text(0), ".//d") << "the header keeps the name as composed";
    fs::current_path("/");
    db.close();
    return 0;
  });
  EXPECT_EQ(wanderer.exit_status(), 0);
}

// Keys hold 16 bits of the inode. On a file system that hands out rising inodes, two key files with one key
// are made by trying.
TEST(KeyCollision, WithAnotherDatabaseIsRefusedAndItsSegmentKept) {
  if (access("/dev/shm", W_OK) != 0) GTEST_SKIP() << "no memory file system";
  TempDirectory directory("/dev/shm");
  const std::string file = directory.base() + "00.data";
  const std::string other_file = directory.base("e") + "00.data";
  std::ofstream(file).flush();
  const key_t key = ftok(file.c_str(), 1);
  for (int attempt = 0; ftok(other_file.c_str(), 1) != key; ++attempt) {
    if (attempt == 300000) GTEST_SKIP() << "no file with the same key within reach";
    fs::remove(other_file);
    std::ofstream(other_file).flush();
  }
  Child dies([&](Gate& gate) {
    Database other = begin_create(directory, small_bytes, "e");
    finish_create(other);
    gate.tell('c');
    gate.wait_for('-');
    return 0;
  });
  ASSERT_TRUE(dies.wait_for('c'));
  dies.kill();
  EXPECT_EQ(error_of([&] { return begin_create(directory); }), failure(text::segment_exists, file.c_str()));
  EXPECT_EQ(RawMemory(directory.base("e")).text(0), directory.base("e"));
  fs::remove(other_file);
  std::ofstream(file).flush();
  ASSERT_EQ(ftok(file.c_str(), 1), key);
  EXPECT_TRUE(begin_create(directory).opened) << "nobody's segment is replaced";
}

}  // namespace
}  // namespace cachet::test
