// Key files against links that somebody else planted, and against the umask.
#include "base/file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

class KeyFile : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = testing::TempDir() + "cachet-file-XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    directory_ = pattern;
  }
  void TearDown() override { std::filesystem::remove_all(directory_); }

  std::string path(const char* name) const { return directory_ / name; }
  static mode_t mode_of(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0);
    return status.st_mode & 0777;
  }

  std::filesystem::path directory_;
};

TEST_F(KeyFile, GetsExactlyItsModeWhateverTheUmask) {
  const mode_t old_mask = umask(0277);
  EXPECT_TRUE(cachet::create_key_file(path("lock").c_str(), false, 0666));
  EXPECT_TRUE(cachet::create_key_file(path("key").c_str(), true, 0600));
  umask(old_mask);
  EXPECT_EQ(mode_of(path("lock")), 0666u);
  EXPECT_EQ(mode_of(path("key")), 0600u);
}

TEST_F(KeyFile, IsEmptiedOnlyOnRequest) {
  std::ofstream(path("key")) << "content";
  EXPECT_TRUE(cachet::create_key_file(path("key").c_str(), false, 0600));
  EXPECT_EQ(std::filesystem::file_size(path("key")), 7u);
  EXPECT_TRUE(cachet::create_key_file(path("key").c_str(), true, 0600));
  EXPECT_EQ(std::filesystem::file_size(path("key")), 0u);
}

TEST_F(KeyFile, IsNeverReachedThroughASymbolicLink) {
  std::ofstream(path("victim")) << "content";
  ASSERT_EQ(chmod(path("victim").c_str(), 0640), 0);
  std::filesystem::create_symlink(path("victim"), path("link"));
  std::filesystem::create_symlink(path("nowhere"), path("dangling"));

  EXPECT_FALSE(cachet::open_key_file(path("link").c_str(), O_RDONLY));
  EXPECT_EQ(errno, ELOOP);
  EXPECT_FALSE(cachet::create_key_file(path("link").c_str(), true, 0666));
  EXPECT_EQ(errno, ELOOP);
  EXPECT_FALSE(cachet::create_key_file(path("dangling").c_str(), true, 0666));

  EXPECT_EQ(std::filesystem::file_size(path("victim")), 7u);
  EXPECT_EQ(mode_of(path("victim")), 0640u);
  EXPECT_FALSE(std::filesystem::exists(path("nowhere")));
}

TEST_F(KeyFile, OfSomebodyElseKeepsItsMode) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can give files away";
  std::ofstream(path("theirs")) << "content";
  ASSERT_EQ(chmod(path("theirs").c_str(), 0640), 0);
  ASSERT_EQ(chown(path("theirs").c_str(), 1, 1), 0);
  EXPECT_TRUE(cachet::create_key_file(path("theirs").c_str(), false, 0666));
  EXPECT_EQ(mode_of(path("theirs")), 0640u);
}

TEST_F(KeyFile, ThatIsMissingIsReportedWithErrno) {
  EXPECT_FALSE(cachet::open_key_file(path("missing").c_str(), O_RDONLY));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FALSE(cachet::create_key_file(path("missing/key").c_str(), true, 0600));
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(KeyFile, DescriptorIsClosedOnceByItsLastOwnerAndNotInheritedByPrograms) {
  const auto is_open = [](int descriptor) { return fcntl(descriptor, F_GETFD) >= 0; };
  cachet::Descriptor first = cachet::create_key_file(path("key").c_str(), true, 0600);
  const int number = first.get();
  EXPECT_EQ(fcntl(number, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
  {
    cachet::Descriptor second(std::move(first));
    EXPECT_FALSE(first);
    first = std::move(second);
  }
  EXPECT_TRUE(is_open(number));
  first = cachet::Descriptor();
  EXPECT_FALSE(is_open(number));
}

TEST(AbsolutePath, PutsTheCurrentDirectoryBeforeARelativeOneAlone) {
  const std::string current = std::filesystem::current_path();
  EXPECT_EQ(cachet::absolute_path("data//stock"), current + "/data//stock");
  EXPECT_EQ(cachet::absolute_path("../a"), current + "/../a");
  EXPECT_EQ(cachet::absolute_path("/data//stock"), "/data//stock");
  EXPECT_EQ(cachet::absolute_path("//stock"), "//stock");
}

}  // namespace
