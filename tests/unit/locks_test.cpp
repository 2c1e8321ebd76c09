// The wrappers of the system's locks, within one process: what they leave in memory and in the directory. How
// several processes take turns is in process/rwlock_test.cpp.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "rwlock.h"
#include "rwspinlock.h"
#include "spinlock.h"
#include "support/temp_database.h"
#include "ztmem.h"
#include "ztsema.h"

namespace {

using cachet::test::TempDirectory;

mode_t Permissions(const std::string& file) {
  struct stat status = {};
  return stat(file.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

bool Exists(const std::string& file) {
  return std::filesystem::exists(std::filesystem::symlink_status(file));
}

ino_t Inode(const std::string& file) {
  struct stat status = {};
  return stat(file.c_str(), &status) == 0 ? status.st_ino : 0;
}

std::string Content(const std::string& file) {
  std::ifstream in(file);
  return {std::istreambuf_iterator<char>(in), {}};
}

// Captures what a block prints on standard output.
template <class Block>
std::string Printed(Block block) {
  testing::internal::CaptureStdout();
  block();
  std::fflush(stdout);
  return testing::internal::GetCapturedStdout();
}

TEST(SpinLock, KeepsTheWordAtOneWhileItIsTaken) {
  alignas(4) std::int32_t word = 0;
  Cspinlock lock;
  EXPECT_FALSE(lock.Lock()) << "no word is bound";
  lock.Set(reinterpret_cast<char*>(&word));
  EXPECT_TRUE(lock.Lock());
  EXPECT_EQ(word, 1);
  lock.Unlock();
  EXPECT_EQ(word, 0);
}

TEST(Semaphore, StandsInASetOfTenPerKeyFile) {
  TempDirectory directory;
  const std::string name = directory.path() + "/s";
  Cztsema first, second, other_file;
  ASSERT_TRUE(first.Create(name.c_str(), 1, 3, 100));
  ASSERT_TRUE(second.Create(name.c_str(), 1, 9, 100));
  ASSERT_TRUE(other_file.Create(name.c_str(), 1, 13, 100));
  EXPECT_EQ(first.m_name, name + "0.sem");
  EXPECT_EQ(first.m_sempid, second.m_sempid);
  EXPECT_EQ(first.m_sempno, 3);
  EXPECT_EQ(second.m_sempno, 9);
  EXPECT_EQ(other_file.m_name, name + "1.sem");
  EXPECT_EQ(other_file.m_sempno, 3);
  EXPECT_NE(other_file.m_sempid, first.m_sempid);
  EXPECT_EQ(Permissions(name + "0.sem"), 0600u);
  semid_ds set = {};
  ASSERT_EQ(semctl(first.m_sempid, 0, IPC_STAT, &set), 0);
  EXPECT_EQ(set.sem_nsems, 10u);
  first.Close();
  other_file.Close();
  EXPECT_EQ(first.m_sempid, -1);
  EXPECT_TRUE(Exists(name + "0.sem")) << "closing leaves the key file";
  first.Delete();
  EXPECT_FALSE(Exists(name + "0.sem"));
}

TEST(Semaphore, CountsReleasesAndTimesOut) {
  TempDirectory directory;
  const std::string name = directory.path() + "/s";
  Cztsema sema, opened;
  EXPECT_FALSE(opened.Open(name.c_str(), 1, 1)) << "no set yet";
  ASSERT_TRUE(sema.Create(name.c_str(), 1, 1, 1));
  ASSERT_TRUE(opened.Open(name.c_str(), 1, 1));
  EXPECT_EQ(sema.Wait(0), 0);
  EXPECT_EQ(sema.Wait(15), 0);
  EXPECT_TRUE(opened.Release());
  EXPECT_TRUE(opened.Release()) << "the maximum is not used";
  EXPECT_EQ(sema.Wait(-1), 1);
  EXPECT_EQ(sema.Wait(1000), 1);
  EXPECT_EQ(sema.Wait(0), 0);
  sema.Close();
  EXPECT_EQ(opened.Wait(0), 0) << "the set is gone";
  EXPECT_FALSE(opened.Release());
}

TEST(Semaphore, ReportsAnInterruptedWait) {
  TempDirectory directory;
  Cztsema sema;
  ASSERT_TRUE(sema.Create((directory.path() + "/s").c_str(), 1, 1, 1));
  struct sigaction action = {}, before = {};
  action.sa_handler = [](int) {};
  sigaction(SIGALRM, &action, &before);
  itimerval every_5_ms = {{0, 5000}, {0, 5000}}, off = {};
  setitimer(ITIMER_REAL, &every_5_ms, nullptr);
  errno = 0;
  EXPECT_EQ(sema.Wait(-1), -1);
  EXPECT_EQ(errno, EINTR);
  EXPECT_EQ(sema.Wait(20000), -1);
  setitimer(ITIMER_REAL, &off, nullptr);
  sigaction(SIGALRM, &before, nullptr);
}

TEST(Semaphore, RemovesItsKeyFileWhenTheSetIsRefused) {
  TempDirectory directory;
  const std::string name = directory.path() + "/s", file = name + "0.sem";
  std::ofstream(file).close();
  const int smaller_set = semget(ftok(file.c_str(), 1), 3, IPC_CREAT | 0600);
  ASSERT_GE(smaller_set, 0);
  Cztsema sema;
  bool created = true;
  const std::string text = Printed([&] { created = sema.Create(name.c_str(), 1, 1, 1); });
  EXPECT_FALSE(created);
  EXPECT_EQ(text, "create sema name=" + file + ",errno=" + std::to_string(EINVAL) + "\n");
  EXPECT_FALSE(Exists(file));
  semctl(smaller_set, 0, IPC_RMID);
  EXPECT_FALSE(sema.Create((directory.path() + "/missing/s").c_str(), 1, 1, 1));
}

TEST(SharedSegment, LivesUntilTheLastAttachmentCloses) {
  TempDirectory directory;
  const std::string name = directory.path() + "/m";
  Cztshamem creator, user;
  EXPECT_EQ(creator.usercount(), 0);
  EXPECT_FALSE(user.Open(name.c_str(), 1, false)) << "no key file";
  ASSERT_TRUE(creator.Create(name.c_str(), 1, 8192, false));
  EXPECT_EQ(Permissions(name), 0600u);
  ASSERT_TRUE(user.Open(name.c_str(), 1, false));
  EXPECT_EQ(creator.usercount(), 2);
  creator.m_p[8191] = 'z';
  EXPECT_EQ(user.m_p[8191], 'z');
  creator.Close(false);
  EXPECT_EQ(creator.m_shamemid, -1);
  EXPECT_EQ(user.usercount(), 1);
  EXPECT_TRUE(Exists(name));
  user.Close(false);
  EXPECT_FALSE(Exists(name));
  EXPECT_EQ(user.usercount(), 0);
}

TEST(SharedSegment, ReplacesALeftoverThatNobodyHasAttached) {
  TempDirectory directory;
  const std::string name = directory.path() + "/m";
  std::ofstream(name).close();
  for (std::size_t leftover_bytes : {8192u, 65536u}) {
    const int leftover = shmget(ftok(name.c_str(), 1), leftover_bytes, IPC_CREAT | 0600);
    ASSERT_GE(leftover, 0);
    Cztshamem segment;
    ASSERT_TRUE(segment.Create(name.c_str(), 1, 12288, false)) << leftover_bytes;
    EXPECT_NE(segment.m_shamemid, leftover);
    shmid_ds status = {};
    ASSERT_EQ(shmctl(segment.m_shamemid, IPC_STAT, &status), 0);
    EXPECT_EQ(status.shm_segsz, 12288u);
    EXPECT_EQ(segment.m_p[0], 0);
    segment.Close(false);
    std::ofstream(name).close();
  }
}

TEST(SharedSegment, RefusesAnAttachedOneAndLeavesItsKeyFileAlone) {
  TempDirectory directory;
  const std::string name = directory.path() + "/m";
  Cztshamem user, intruder;
  ASSERT_TRUE(user.Create(name.c_str(), 1, 8192, false));
  const ino_t inode = Inode(name);
  bool created = true;
  const std::string text = Printed([&] { created = intruder.Create(name.c_str(), 1, 8192, false); });
  EXPECT_FALSE(created);
  EXPECT_EQ(text, "sha name=" + name + " exist=" + std::to_string(user.m_shamemid) + "\n");
  EXPECT_EQ(Inode(name), inode);
  intruder.Close(false);
  EXPECT_TRUE(Exists(name));
  EXPECT_EQ(user.usercount(), 1);
  user.Close(false);
}

TEST(SharedSegment, RemovesItsKeyFileWhenTheSystemRefuses) {
  TempDirectory directory;
  const std::string name = directory.path() + "/m";
  Cztshamem segment;
  bool created = true;
  const std::string text = Printed([&] { created = segment.Create(name.c_str(), 1, 0, false); });
  EXPECT_FALSE(created);
  EXPECT_EQ(text, "create2 sha name=" + name + ",errno=" + std::to_string(EINVAL) + "\n");
  EXPECT_FALSE(Exists(name));
  EXPECT_FALSE(segment.Create((directory.path() + "/missing/m").c_str(), 1, 8192, false));
}

TEST(SharedSegment, OpensOnlyFourKibibytesOrMore) {
  TempDirectory directory;
  const std::string name = directory.path() + "/m";
  Cztshamem small, user;
  ASSERT_TRUE(small.Create(name.c_str(), 1, 4095, false));
  EXPECT_FALSE(user.Open(name.c_str(), 1, false));
  small.Close(false);
}

TEST(KeyFiles, AreNeverReachedThroughALink) {
  TempDirectory directory;
  const std::string victim = directory.path() + "/victim", trap = directory.path() + "/trap";
  std::ofstream(victim) << "precious";
  std::filesystem::permissions(victim, std::filesystem::perms(0640));
  std::filesystem::create_symlink(victim, trap);
  Cztshamem segment;
  EXPECT_FALSE(segment.Create(trap.c_str(), 1, 8192, false));
  std::filesystem::remove(trap);
  std::filesystem::create_symlink(victim, trap);
  { RWLock lock(const_cast<char*>(trap.c_str())); }
  std::filesystem::create_symlink(victim, trap + "0.sem");
  Cztsema sema;
  EXPECT_FALSE(sema.Create(trap.c_str(), 1, 1, 1));
  EXPECT_EQ(Content(victim), "precious");
  EXPECT_EQ(Permissions(victim), 0640u);
}

TEST(FileLock, MakesAFileThatEverybodyMayLock) {
  TempDirectory directory;
  std::string name = directory.path() + "/db";
  const mode_t before = umask(077);
  RWLock lock(name.data());
  umask(before);
  ASSERT_GE(lock.m_hfile, 0);
  EXPECT_EQ(Permissions(name), 0666u);
  EXPECT_NE(fcntl(lock.m_hfile, F_GETFD) & FD_CLOEXEC, 0);
  EXPECT_TRUE(lock.lock(1, 1, -1));
  EXPECT_TRUE(lock.lock(2, 1, -1));
  EXPECT_FALSE(lock.lock(0, 1, -1));
  EXPECT_FALSE(lock.lock(3, 1, -1));
  EXPECT_TRUE(lock.unlock(1));
  EXPECT_TRUE(lock.unlock(1));
}

// The ten documented words of the lock page.
std::array<int, 10> Words(const Crwspinlock& lock) {
  std::array<int, 10> words;
  std::memcpy(words.data(), lock.m_lockpage.m_p, sizeof words);
  return words;
}

struct LockPage : testing::Test {
  LockPage() { EXPECT_TRUE(lock.Create(name.data(), 1)); }
  ~LockPage() override { lock.Close(); }
  TempDirectory directory;
  std::string name = directory.path() + "/db";
  Crwspinlock lock;
};

using Ten = std::array<int, 10>;

TEST_F(LockPage, CountsHoldersInTheSlotsOwnWords) {
  EXPECT_TRUE(lock.Lock(0, 1));
  EXPECT_EQ(Words(lock), (Ten{0, 1, 0, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_TRUE(lock.WriterHolds(0));
  EXPECT_TRUE(lock.Lock(1, 0));
  EXPECT_TRUE(lock.Lock(1, 0));
  EXPECT_EQ(Words(lock), (Ten{0, 1, 0, 0, 0, 0, 0, 0, 2, 0}));
  EXPECT_TRUE(lock.Lock(1, 1)) << "a writer does not wait for readers";
  EXPECT_EQ(Words(lock), (Ten{0, 1, 0, 0, 0, 0, 1, 0, 2, 0}));
  std::vector<TransInfo> sessions;
  EXPECT_TRUE(lock.GetSessions(sessions, INREAD));
  EXPECT_EQ(sessions.size(), 2u);
  EXPECT_TRUE(lock.GetSessions(sessions, INWRITE));
  EXPECT_EQ(sessions.size(), 4u);
  lock.Unlock(0, 1, -1, nullptr);
  lock.Unlock(1, 1, -1, nullptr);
  lock.Unlock(1, 0, -1, nullptr);
  lock.Unlock(1, 0, -1, nullptr);
  EXPECT_EQ(Words(lock), Ten{});
  sessions.clear();
  for (int type = WTREAD; type <= INWRITE; ++type) lock.GetSessions(sessions, type);
  EXPECT_TRUE(sessions.empty());
}

TEST_F(LockPage, RefusesOtherSlotsAndLevels) {
  const int bad[][2] = {{-1, 0}, {2, 1}, {100, 0}, {0, 2}, {1, -1}};
  for (const auto& [slot, level] : bad) {
    EXPECT_FALSE(lock.Lock(slot, level)) << slot << ", " << level;
    lock.Unlock(slot, level, -1, nullptr);
  }
  EXPECT_EQ(Words(lock), Ten{});
  Crwspinlock never_opened;
  EXPECT_FALSE(never_opened.Lock(0, 0));
  EXPECT_FALSE(never_opened.Lock(0, 1));
}

TEST_F(LockPage, TakesAWaitersCountBack) {
  const Ten waiting = {0, 0, 1, 0, 1, 0, 0, 0, 0, 0};
  std::memcpy(lock.m_lockpage.m_p, waiting.data(), sizeof waiting);
  Printed([&] { lock.Unlock(0, 1, 2, nullptr); });
  EXPECT_EQ(Words(lock), (Ten{0, 0, 0, 0, 1, 0, 0, 0, 0, 0}));
  Printed([&] { lock.Unlock(0, 0, 0, nullptr); });
  EXPECT_EQ(Words(lock), Ten{}) << "the count goes down although the session is unknown";
}

TEST_F(LockPage, KeepsItsFilesUntilTheLastUserCloses) {
  const char* const files[] = {".lk",         "_session_shmname", ".1.r.s0.sem",
                               ".1.w.s0.sem", ".2.r.s0.sem",      ".2.w.s0.sem"};
  Crwspinlock user;
  ASSERT_TRUE(user.Open(name.data(), 1));
  lock.Close();
  for (const char* file : files) EXPECT_TRUE(Exists(name + file)) << file;
  EXPECT_TRUE(user.Lock(1, 1)) << "the semaphores and the page still serve";
  user.Unlock(1, 1, -1, nullptr);
  user.Close();
  for (const char* file : files) EXPECT_FALSE(Exists(name + file)) << file;
  Crwspinlock late;
  Printed([&] { EXPECT_FALSE(late.Open(name.data(), 1)); });
  EXPECT_FALSE(late.Lock(0, 0));
}

}  // namespace
