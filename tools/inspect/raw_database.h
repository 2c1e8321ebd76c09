// A database seen through its raw segments: attached read-only, never written, never removed. Whatever its bytes say,
// nothing outside the attached memory is read: positions go through the bounds of rb_address.h, which know only what
// was attached.
#ifndef CACHET_TOOLS_INSPECT_RAW_DATABASE_H
#define CACHET_TOOLS_INSPECT_RAW_DATABASE_H

#include <memory>
#include <string>
#include <vector>

#include "inspect/attachment.h"
#include "inspect/base_path.h"
#include "rb.h"

namespace cachet::inspect {

// The bytes from the bottom and from the top that are taken, and those between.
struct Fill {
  std::int64_t size_bytes = 0;
  std::int64_t node_bytes = 0;  // header, catalog, nodes
  std::int64_t data_bytes = 0;  // records and keys
  std::int64_t free_bytes() const { return size_bytes - node_bytes - data_bytes; }
  double used_percent() const {
    return size_bytes > 0
               ? 100.0 * static_cast<double>(node_bytes + data_bytes) / static_cast<double>(size_bytes)
               : 0;
  }
};

// Of a header's copy; zeros where its numbers make no sense.
Fill fill_of(const Rb_memory& header);
// A text that fills a fixed room, with or without its NUL.
std::string text_in(const char* room, std::size_t bytes);

// A view with checks over what a handle of this process has attached; as long-lived as the handle.
std::unique_ptr<Rb_base> checked_view(const Rb_base& handle);

class RawDatabase {
 public:
  // Attaches every segment. Throws NotFound without the first one, Unreadable when it may not be attached, Damaged
  // when it has no room for a header.
  explicit RawDatabase(BasePath path);
  RawDatabase(const RawDatabase&) = delete;
  RawDatabase& operator=(const RawDatabase&) = delete;

  const BasePath& path() const { return path_; }
  // Never null; to be read from only. Its functions that check (is_node, is_data) do so against what is attached.
  Rb_base* view() const { return view_.get(); }
  // A copy, taken while others may write.
  Rb_memory header() const { return load_unaligned<Rb_memory>(view_->memory); }
  int first_segment_id() const { return segments_.front().id(); }
  // Attachments besides this one.
  unsigned long others() const { return segments_.front().others(); }
  // What the segments lack of what the header says; empty when they fit.
  const std::vector<std::string>& faults() const { return faults_; }

  // Detaches. True when the last regular user left meanwhile, so that the segments stay behind.
  bool close() noexcept;

 private:
  void attach_rest(std::int64_t size_bytes);

  BasePath path_;
  std::vector<Attachment> segments_;
  std::unique_ptr<Rb_base> view_;
  std::vector<std::string> faults_;
};

}  // namespace cachet::inspect

#endif
