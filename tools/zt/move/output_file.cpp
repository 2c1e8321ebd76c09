#include "zt/move/output_file.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "zt/status.h"

namespace zt {
namespace {

constexpr mode_t usual_mode = 0666;

bool is_written_straight(const std::string& file) {
  struct stat status {};
  return lstat(file.c_str(), &status) == 0 && !S_ISREG(status.st_mode);
}

// As a file gets it that is made in the usual way; of one that is there already, its own.
mode_t mode_for(const std::string& file) {
  struct stat status {};
  if (stat(file.c_str(), &status) == 0) return status.st_mode & 07777;
  const mode_t mask = umask(0);
  umask(mask);
  return usual_mode & ~mask;
}

}  // namespace

OutputFile::OutputFile(const std::string& file) : name_(file == "-" ? tr("standard output") : file) {
  if (file == "-") {
    out_ = stdout;
  } else if (is_written_straight(file)) {
    out_ = std::fopen(file.c_str(), "wbe");
  } else {
    open_beside();
  }
  if (out_ == nullptr) fail();
}

void OutputFile::open_beside() {
  beside_ = name_ + ".new-XXXXXX";
  const int descriptor = mkostemp(beside_.data(), O_CLOEXEC);
  if (descriptor < 0) {
    beside_.clear();
    return;
  }
  if (fchmod(descriptor, mode_for(name_)) == 0) out_ = fdopen(descriptor, "wb");
  if (out_ == nullptr) close(descriptor);
}

void OutputFile::fail() const {
  const int error = errno;
  if (!beside_.empty()) unlink(beside_.c_str());
  throw Failure(tr("cannot write {}: {}", name_, std::strerror(error)));
}

void OutputFile::finish() {
  if (std::fflush(out_) != 0 || std::ferror(out_) != 0) fail();
  if (out_ == stdout) return;
  std::FILE* const out = out_;
  out_ = nullptr;
  if (std::fclose(out) != 0) fail();
  if (!beside_.empty() && std::rename(beside_.c_str(), name_.c_str()) != 0) fail();
  beside_.clear();
}

OutputFile::~OutputFile() {
  if (out_ != nullptr && out_ != stdout) std::fclose(out_);
  if (!beside_.empty()) unlink(beside_.c_str());
}

}  // namespace zt
