#include "inspect/raw_database.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "inspect/translate.h"

namespace cachet::inspect {

namespace {

constexpr std::int64_t header_bytes = sizeof(Rb_memory);

std::int64_t segments_for(std::int64_t size_bytes) {
  const std::int64_t count = segment_of(std::max<std::int64_t>(size_bytes, 1) - 1) + 1;
  return std::min<std::int64_t>(count, RB_MAX_SEGMENTS);
}

}  // namespace

Fill fill_of(const Rb_memory& header) {
  const bool sound = header.size > 0 && header.nodeoffset >= 0 && header.nodeoffset <= header.dataoffset &&
                     header.dataoffset <= header.size;
  if (!sound) return {std::max<std::int64_t>(header.size, 0), 0, 0};
  return {header.size, header.nodeoffset, header.size - header.dataoffset};
}

std::string text_in(const char* room, std::size_t bytes) {
  return {room, strnlen(room, bytes)};
}

std::unique_ptr<Rb_base> checked_view(const Rb_base& handle) {
  auto view = std::make_unique<Rb_base>();
  std::copy_n(handle.share_memory_begin, handle.segmentcount, view->share_memory_begin);
  view->segmentcount = handle.segmentcount;
  view->attached_bytes = handle.attached_bytes;
  view->flat_begin = handle.flat_begin;
  view->memory = handle.memory;
  view->table = handle.table;
  view->mode = ZT_MODE_READ_ONLY;
  view->exist = true;
  return view;
}

RawDatabase::RawDatabase(BasePath path) : path_(std::move(path)), view_(std::make_unique<Rb_base>()) {
  try {
    segments_.emplace_back(path_.segment_file(0));
  } catch (const NotFound& error) {
    throw NotFound(tr("there is no database {} ({})", path_.shown(), error.what()));
  }
  const Attachment& first = segments_.front();
  if (first.bytes() < header_bytes) {
    throw Damaged(
        tr("{}: the first segment has {} bytes, too few for a header", path_.shown(), first.bytes()));
  }
  // Nothing is ever written through the view: the memory is mapped read-only, and mode 1 reads with checks.
  char* const begin = const_cast<char*>(first.data());
  view_->mode = ZT_MODE_READ_ONLY;
  view_->exist = true;
  view_->memory = reinterpret_cast<Rb_memory*>(begin);
  view_->table = reinterpret_cast<Rb_tablename*>(begin + header_bytes);
  attach_rest(header().size);
}

void RawDatabase::attach_rest(std::int64_t size_bytes) {
  const std::int64_t wanted = segments_for(size_bytes);
  try {
    while (static_cast<std::int64_t>(segments_.size()) < wanted &&
           segments_.back().bytes() == segment_bytes) {
      segments_.emplace_back(path_.segment_file(static_cast<int>(segments_.size())));
    }
  } catch (const std::runtime_error& error) {
    faults_.emplace_back(error.what());
  }
  for (const Attachment& segment : segments_) {
    view_->share_memory_begin[view_->segmentcount++] = const_cast<char*>(segment.data());
    view_->attached_bytes += segment.bytes();
  }
  if (view_->segmentcount == 1) view_->flat_begin = view_->share_memory_begin[0];
  if (view_->attached_bytes != size_bytes) {
    faults_.push_back(
        tr("the header says {} bytes, the segments have {}", size_bytes, view_->attached_bytes));
  }
}

bool RawDatabase::close() noexcept {
  bool left_alone = false;
  for (Attachment& segment : segments_) left_alone = segment.detach() || left_alone;
  return left_alone;
}

}  // namespace cachet::inspect
