// A directory of its own for every test that makes a database, and the proof that the test left nothing in
// it.
//
// Whatever happens to the test, be it killed, the System V objects and the files go with the directory.
#ifndef CACHET_TESTS_SUPPORT_TEMP_DATABASE_H
#define CACHET_TESTS_SUPPORT_TEMP_DATABASE_H

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace cachet::test {

class TempDirectory {
 public:
  explicit TempDirectory(const char* parent = "/tmp");
  ~TempDirectory();
  TempDirectory(const TempDirectory&) = delete;
  TempDirectory& operator=(const TempDirectory&) = delete;

  const std::string& path() const { return path_; }
  // The base path of the database `name` as the library composes it.
  std::string base(const std::string& name = "d") const { return path_ + "//" + name; }

  // Remembers the System V objects that the key files stand for now, so that they are found (and removed)
  // later even when their key file is gone. Keys would not do: a removed file's inode is soon another test's.
  void note_objects();
  // Key files that are there, and objects that exist: those of the key files and the noted ones.
  std::vector<std::string> leftovers();

 private:
  std::vector<std::string> files() const;

  std::string path_;
  std::map<int, std::string> segments_;  // by System V id
  std::map<int, std::string> semaphore_sets_;
};

inline std::vector<std::string> leftovers(TempDirectory& directory) {
  return directory.leftovers();
}

// Expects at the end that nothing is left. A test closes all its handles before it returns.
class DatabaseTest : public ::testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(directory.leftovers(), std::vector<std::string>{}); }

  TempDirectory directory;
};

}  // namespace cachet::test

#endif
