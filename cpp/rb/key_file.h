// The key file of one segment and the System V segment behind it, as the system sees them.
#ifndef CACHET_CPP_RB_KEY_FILE_H
#define CACHET_CPP_RB_KEY_FILE_H

#include <sys/ipc.h>
#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

#include "rb.h"

namespace cachet {

inline constexpr int segment_key_id = 1;

// "<base><index, two digits>.data"
std::string key_file_path(const std::string& base_path, int index);

// Which file the path names now; none when there is no such file.
std::optional<Rb_keyfile> key_file_at(const std::string& path);
// Which file an open descriptor names.
std::optional<Rb_keyfile> key_file_of(int descriptor);

struct SegmentStatus {
  std::int64_t bytes;
  unsigned long attachments;
};
std::optional<SegmentStatus> segment_status(int id);

// Removes the segment if nobody is attached to it; true when it did.
bool remove_if_unattached(int id);

// What the header in a segment 0 says, before it is attached for good. Attached read-only and anywhere until it is
// destroyed: whoever wants to keep the segment attaches it before, since a segment that nobody is attached to may be
// removed at any moment.
class HeaderProbe {
 public:
  explicit HeaderProbe(int id);
  ~HeaderProbe();
  HeaderProbe(const HeaderProbe&) = delete;
  HeaderProbe& operator=(const HeaderProbe&) = delete;
  // Detaches early; there is no header behind it.
  void let_go();

  // The size of the whole database as it stands there, unchecked; 0 when the segment cannot be looked at.
  std::int64_t flat_bytes() const;
  // Whether it belongs to another database, one whose key file is a different file with this very key.
  bool belongs_to_other_file(key_t key, const Rb_keyfile& own_file) const;

 private:
  std::optional<std::string> base_path() const;

  const Rb_memory* header_ = nullptr;
};

// Clears the way for a new segment with this key: removes an unattached leftover, whatever its size. False
// when it is in use, or when segment 0 belongs to another database, one whose key file is a different file
// with this very key.
bool clear_leftover(key_t key, int index, const Rb_keyfile& own_file);

}  // namespace cachet

#endif
