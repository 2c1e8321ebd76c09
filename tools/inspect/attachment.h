// One System V segment, attached read-only and detached with shmdt alone: looking at it removes nothing. An
// attachment counts all the same: a regular user who leaves last while one is held leaves the segment behind. Whoever
// looks keeps it short, and asks at the end whether that happened.
#ifndef CACHET_TOOLS_INSPECT_ATTACHMENT_H
#define CACHET_TOOLS_INSPECT_ATTACHMENT_H

#include <sys/shm.h>

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

namespace cachet::inspect {

// What these say is made by tr(): UTF-8, but for the paths in it, which are as they were given.
//
// There is no such database, file or segment.
struct NotFound : std::runtime_error {
  using std::runtime_error::runtime_error;
};
// It is there and cannot be looked at; the text says why.
struct Unreadable : std::runtime_error {
  using std::runtime_error::runtime_error;
};
// It is there, and is not what it should be.
struct Damaged : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The System V key of a key file; none when there is no regular file of this name, errno says why.
std::optional<key_t> key_of_file(const std::string& key_file);
// The segment of a key file; -1 without one.
int segment_of_file(const std::string& key_file);
// -1 without one.
int semaphore_set_of_file(const std::string& key_file);
std::optional<shmid_ds> status_of_segment(int id);

class Attachment {
 public:
  // Throws NotFound without the file or the segment, Unreadable when it may not be attached.
  explicit Attachment(const std::string& key_file);
  explicit Attachment(int id);
  Attachment(Attachment&& other) noexcept;
  Attachment& operator=(Attachment&&) = delete;
  ~Attachment() { detach(); }

  int id() const { return id_; }
  const char* data() const { return data_; }
  std::int64_t bytes() const { return bytes_; }
  // How many attachments there were besides this one.
  unsigned long others() const { return others_; }

  // Whether all others left meanwhile, so that nobody has it any more. False when there were none to begin with.
  bool detach() noexcept;

 private:
  void attach(const std::string& name);

  int id_ = -1;
  const char* data_ = nullptr;
  std::int64_t bytes_ = 0;
  unsigned long others_ = 0;
};

}  // namespace cachet::inspect

#endif
