// A file under its final name is whole: what is there before, meanwhile, afterwards, and where it cannot be
// so.
#include "base/replace_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "base/transfer.h"
#include "support/files.h"

namespace cachet::test {
namespace {

using Names = std::vector<std::string>;

bool write_new(int descriptor) {
  return write_whole(descriptor, "new", 3);
}

struct stat status_of(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0);
  return status;
}

TEST(ReplaceFile, ShowsTheOldFileUntilTheNewOneIsWhole) {
  const Folder folder;
  const std::string path = write_file(folder.file("f"), "old contents");
  EXPECT_EQ(replace_file(path.c_str(),
                         [&](int descriptor) {
                           EXPECT_EQ(contents_of(path), "old contents");
                           return write_new(descriptor) && contents_of(path) == "old contents";
                         }),
            Written::whole);
  EXPECT_EQ(contents_of(path), "new");
  EXPECT_EQ(replace_file(path.c_str(), [](int) { return false; }), Written::not_whole);
  EXPECT_EQ(contents_of(path), "new");
  EXPECT_EQ(folder.names(), Names{"f"}) << "no temporary is left";
}

TEST(ReplaceFile, KeepsModeAndOwnerOfAnExistingFile) {
  const Folder folder;
  const std::string path = folder.file("f");
  EXPECT_EQ(replace_file(path.c_str(), write_new), Written::whole);
  EXPECT_EQ(status_of(path).st_mode & 07777, 0600u);
  const ino_t first = status_of(path).st_ino;
  EXPECT_EQ(chmod(path.c_str(), 0640), 0);
  const bool is_root = geteuid() == 0;
  EXPECT_EQ(is_root ? chown(path.c_str(), 1234, 4321) : 0, 0);
  EXPECT_EQ(replace_file(path.c_str(), write_new), Written::whole);
  EXPECT_EQ(status_of(path).st_mode & 07777, 0640u);
  EXPECT_EQ(status_of(path).st_uid, is_root ? 1234u : geteuid());
  EXPECT_NE(status_of(path).st_ino, first);
}

TEST(ReplaceFile, WritesStraightWhereANameCannotBeReplaced) {
  const Folder folder;
  const std::string target = write_file(folder.file("target"), "old contents");
  EXPECT_EQ(symlink("target", folder.file("link").c_str()), 0);
  EXPECT_EQ(replace_file(folder.file("link").c_str(), write_new), Written::whole);
  EXPECT_TRUE(S_ISLNK(status_of(folder.file("link")).st_mode));
  EXPECT_EQ(contents_of(target), "new");
  EXPECT_EQ(replace_file("/dev/full", write_new), Written::not_whole);
  EXPECT_EQ(replace_file("/dev/null", write_new), Written::whole);
  EXPECT_TRUE(S_ISCHR(status_of("/dev/null").st_mode));
  EXPECT_EQ(replace_file(folder.path().c_str(), write_new), Written::not_opened);
  EXPECT_EQ(replace_file(folder.file("no/where").c_str(), write_new), Written::not_opened);
  EXPECT_EQ(replace_file("", write_new), Written::not_opened);
  EXPECT_EQ(replace_file(nullptr, write_new), Written::not_opened);
}

// As somebody whom the permissions bind, in a process of its own.
int as_nobody(const std::function<bool()>& body) {
  const pid_t child = fork();
  if (child == 0) {
    const bool dropped = geteuid() != 0 || (setgid(65534) == 0 && setuid(65534) == 0);
    _exit(dropped && body() ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  return status;
}

TEST(ReplaceFile, WritesStraightWhereTheFolderAdmitsNoTemporary) {
  const Folder folder;
  const std::string open_to_all = write_file(folder.file("open"), "old contents");
  const std::string guarded = write_file(folder.file("guarded"), "old contents");
  EXPECT_EQ(chmod(open_to_all.c_str(), 0666), 0);
  EXPECT_EQ(chmod(guarded.c_str(), 0444), 0);
  EXPECT_EQ(chmod(folder.path().c_str(), 0555), 0);
  EXPECT_EQ(as_nobody([&] {
              return replace_file(open_to_all.c_str(), write_new) == Written::whole &&
                     replace_file(guarded.c_str(), write_new) == Written::not_opened;
            }),
            0);
  EXPECT_EQ(chmod(folder.path().c_str(), 0777), 0);
  EXPECT_EQ(as_nobody([&] { return replace_file(guarded.c_str(), write_new) == Written::not_opened; }), 0);
  EXPECT_EQ(contents_of(open_to_all), "new");
  EXPECT_EQ(contents_of(guarded), "old contents");
  EXPECT_EQ(folder.names(), (Names{"guarded", "open"}));
}

TEST(FileWriter, TellsOfAFailureThatCameEarly) {
  const int full = open("/dev/full", O_WRONLY);
  FileWriter writer(full);
  const std::string much(1 << 20, 'x');
  writer.put(much);
  writer.put("");
  errno = 0;
  EXPECT_FALSE(writer.finish());
  EXPECT_EQ(errno, ENOSPC);
  close(full);
}

}  // namespace
}  // namespace cachet::test
