// A folder for the files that a test writes and reads.
#ifndef CACHET_TESTS_SUPPORT_FILES_H
#define CACHET_TESTS_SUPPORT_FILES_H

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace cachet::test {

class Folder {
 public:
  Folder() {
    std::string pattern = "/tmp/cachet-files-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) ADD_FAILURE() << "no folder";
    path_ = pattern;
  }
  ~Folder() { std::filesystem::remove_all(path_); }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

  // What is in it, sorted.
  std::vector<std::string> names() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path_))
      names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
  }

 private:
  std::string path_;
};

inline std::string contents_of(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file) << path;
  return {std::istreambuf_iterator<char>(file), {}};
}

inline std::string write_file(const std::string& path, std::string_view bytes) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  EXPECT_TRUE(file.flush()) << path;
  return path;
}

// A text that may hold NULs, from its literal.
template <std::size_t size>
std::string bytes(const char (&literal)[size]) {
  return {literal, size - 1};
}

}  // namespace cachet::test

#endif
