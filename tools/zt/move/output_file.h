// A file that is being written. It gets its name only when it is whole: what had the name before stays until then, and
// for ever when the writing fails. Standard output, links and what is no regular file are written straight.
#ifndef CACHET_TOOLS_ZT_MOVE_OUTPUT_FILE_H
#define CACHET_TOOLS_ZT_MOVE_OUTPUT_FILE_H

#include <cstdio>
#include <string>
#include <string_view>

namespace zt {

class OutputFile {
 public:
  // "-" is standard output. Throws Failure when the file cannot be made.
  explicit OutputFile(const std::string& file);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // Failures are kept until finish().
  void put(std::string_view bytes) { std::fwrite(bytes.data(), 1, bytes.size(), out_); }
  // Throws Failure when something could not be written.
  void finish();

 private:
  void open_beside();
  [[noreturn]] void fail() const;

  std::string name_;
  std::string beside_;  // the temporary name; empty when it is written straight
  std::FILE* out_ = nullptr;
};

}  // namespace zt

#endif
