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

bool Exists(const std::string& file) {
  return std::filesystem::exists(std::filesystem::symlink_status(file));
}

ino_t Inode(const std::string& file) {
  struct stat status = {};
  return stat(file.c_str(), &status) == 0 ? status.st_ino : 0;
}

// Captures what a block prints on standard output.
template <class Block>
std::string Printed(Block block) {
  testing::internal::CaptureStdout();
  block();
  std::fflush(stdout);
  return testing::internal::GetCapturedStdout();
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

TEST(SharedSegment, OpensOnlyFourKibibytesOrMore) {
  TempDirectory directory;
  const std::string name = directory.path() + "/m";
  Cztshamem small, user;
  ASSERT_TRUE(small.Create(name.c_str(), 1, 4095, false));
  EXPECT_FALSE(user.Open(name.c_str(), 1, false));
  small.Close(false);
}

}  // namespace
