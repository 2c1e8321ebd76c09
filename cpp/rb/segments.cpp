// Creating, attaching, detaching and removing the segments of a database. Called under the database's file
// lock.
//
// A step that fails decides what becomes of the segments attached before it; the differences are part of the
// behaviour (an attachment that stays is detached when the process ends).
#include <fcntl.h>
#include <sys/shm.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/file.h"
#include "base/messages.h"
#include "rb.h"
#include "rb/address_range.h"
#include "rb/attachments.h"
#include "rb/key_file.h"

namespace cachet {

namespace {

constexpr std::size_t version_bytes = 22;

enum class CleanUp { none, unless_first, always };

struct Failed {
  CleanUp clean_up;
};

// One attempt to create or open a database: where it is, and where the text of a failure goes.
struct Attempt {
  Rb_base* base;
  std::string name;
  bool writable;
  char* errmsg;

  template <class Message, class... Args>
  Failed fail(CleanUp clean_up, const Message& message, Args... args) const {
    message::format(errmsg, RB_ERRMSG_SIZE, message, args...);
    return {clean_up};
  }
};

int segments_for(std::int64_t size_bytes) {
  return static_cast<int>(round_up(size_bytes, segment_bytes) / segment_bytes);
}

std::int64_t bytes_of_segment(std::int64_t size_bytes, int index) {
  return std::min(size_bytes - (std::int64_t{index} << segment_bits), segment_bytes);
}

bool is_valid_size(std::int64_t size_bytes) {
  return size_bytes >= static_cast<std::int64_t>(sizeof(Rb_memory)) &&
         size_bytes <= RB_MAX_SEGMENTS * segment_bytes;
}

// In the handle's range if that goes, else wherever the system puts it.
char* attach_anyhow(Rb_base* base, int id, int flags) {
  if (char* const address = attach_in_range(base->range, base->segmentcount, id, flags)) return address;
  void* const address = shmat(id, nullptr, flags);
  return address == reinterpret_cast<void*>(-1) ? nullptr : static_cast<char*>(address);
}

// Attaches segment `id` as the handle's next one.
std::optional<Failed> attach(const Attempt& attempt, int id, const std::string& path,
                             const Rb_keyfile& file) {
  Rb_base* const base = attempt.base;
  base->mshid.push_back(id);
  base->key_files.push_back(file);
  char* const address = attach_anyhow(base, id, attempt.writable ? 0 : SHM_RDONLY);
  if (address == nullptr) {
    return attempt.fail(CleanUp::always, message::map_file_failed, path.c_str(), errno);
  }
  base->share_memory_begin[base->segmentcount++] = address;
  attachments::add(address, id, base->absolute_path, file, attempt.writable);
  return std::nullopt;
}

std::optional<Failed> create_segment(const Attempt& attempt, int index, std::int64_t size_bytes) {
  const std::string path = key_file_path(attempt.name, index);
  const bool existed = key_file_at(path).has_value();
  const Descriptor descriptor = create_key_file(path.c_str(), true, 0600);
  const int file_error = errno;
  const auto file = key_file_of(descriptor.get());
  if (!file)
    return attempt.fail(CleanUp::unless_first, message::create_file_failed, path.c_str(), file_error);

  const key_t key = ftok(path.c_str(), segment_key_id);
  if (key == -1) return attempt.fail(CleanUp::none, message::create_segment_failed, path.c_str(), errno);
  if (!clear_leftover(key, index, *file)) {
    // A new key file whose key is taken would lead openers into the other database.
    if (!existed) unlink(path.c_str());
    return attempt.fail(CleanUp::none, message::segment_exists, path.c_str());
  }

  const key_t key_again = ftok(path.c_str(), segment_key_id);
  if (key_again == -1) {
    return attempt.fail(CleanUp::unless_first, message::create_segment_failed_1, path.c_str(), errno);
  }
  const auto bytes = static_cast<std::size_t>(bytes_of_segment(size_bytes, index));
  const int id = shmget(key_again, bytes, IPC_CREAT | IPC_EXCL | 0666);
  if (id < 0)
    return attempt.fail(CleanUp::unless_first, message::create_segment_failed_2, path.c_str(), errno);
  return attach(attempt, id, path, *file);
}

std::optional<Failed> open_segment(const Attempt& attempt, int index, std::int64_t least_bytes) {
  const std::string path = key_file_path(attempt.name, index);
  const Descriptor descriptor = open_key_file(path.c_str(), O_RDONLY);
  const int file_error = errno;
  const auto file = key_file_of(descriptor.get());
  if (!file) {
    // A missing later file prints the text of a failed creation, on purpose.
    return index == 0 ? attempt.fail(CleanUp::none, message::open_file_failed, path.c_str(), file_error)
                      : attempt.fail(CleanUp::always, message::create_file_failed, path.c_str(), file_error);
  }
  const key_t key = ftok(path.c_str(), segment_key_id);
  if (key == -1)
    return attempt.fail(CleanUp::unless_first, message::open_segment_failed_1, path.c_str(), errno);
  // Looked up with size 0: the segment may be smaller than any fixed size.
  const int id = shmget(key, 0, 0666);
  if (id < 0) return attempt.fail(CleanUp::unless_first, message::open_segment_failed_2, path.c_str(), errno);
  const auto status = segment_status(id);
  const auto refused = [&] {
    return attempt.fail(CleanUp::unless_first, message::open_segment_failed_2, path.c_str(), EINVAL);
  };
  if (!status || status->bytes < least_bytes) return refused();
  if (index != 0) return attach(attempt, id, path, *file);
  HeaderProbe header(id);
  if (header.belongs_to_other_file(key, *file)) return refused();
  if (is_valid_size(header.flat_bytes())) attempt.base->range = reserve_addresses(header.flat_bytes());
  // Addresses are scarce then: there may not be enough for the segment twice.
  if (attempt.base->range.bytes == 0) header.let_go();
  return attach(attempt, id, path, *file);
}

void bind_records(Rb_base* base) {
  base->memory = reinterpret_cast<Rb_memory*>(base->share_memory_begin[0]);
  base->table = reinterpret_cast<Rb_tablename*>(base->share_memory_begin[0] + sizeof(Rb_memory));
}

void write_header(Rb_base* base, const std::string& name, const char* version, std::int64_t size_bytes) {
  Rb_memory* const header = base->memory;
  std::memcpy(header->name, name.c_str(), name.size() + 1);
  std::memcpy(header->version, version, strnlen(version, version_bytes));
  header->size = size_bytes;
  header->dataoffset = size_bytes;
  header->nodeoffset = sizeof(Rb_memory);
}

// Attaches segment 0 and learns from its header how large the database is.
std::optional<Failed> open_first_segment(const Attempt& attempt) {
  if (const auto failed = open_segment(attempt, 0, sizeof(Rb_memory))) return failed;
  bind_records(attempt.base);
  const std::int64_t size_bytes = attempt.base->memory->size;
  const auto first = segment_status(attempt.base->mshid[0]);
  if (!first || !is_valid_size(size_bytes) || first->bytes < bytes_of_segment(size_bytes, 0)) {
    const std::string path = key_file_path(attempt.name, 0);
    return attempt.fail(CleanUp::always, message::open_segment_failed_2, path.c_str(), EINVAL);
  }
  attempt.base->attached_bytes = size_bytes;
  return std::nullopt;
}

// Notes whether one base leads to every position.
void settle_addresses(Rb_base* base) {
  char* const begin = base->share_memory_begin[0];
  bool side_by_side = true;
  for (int index = 1; index < base->segmentcount; ++index) {
    side_by_side = side_by_side && base->share_memory_begin[index] == begin + index * segment_bytes;
  }
  base->flat_begin = side_by_side ? begin : nullptr;
}

bool give_up(const Attempt& attempt, int index, const Failed& failed) {
  const bool close =
      failed.clean_up == CleanUp::always || (failed.clean_up == CleanUp::unless_first && index > 0);
  if (close) Rb_closesharememory(attempt.base, 0);
  if (attempt.base->segmentcount == 0) give_back(attempt.base->range);
  return false;
}

void detach_all(Rb_base* base) {
  const AddressRange range = base->range;
  const bool given_back = give_back(base->range);
  for (int index = 0; index < base->segmentcount; ++index) {
    char* const address = base->share_memory_begin[index];
    if (!given_back || !contains(range, address)) shmdt(address);
    attachments::forget(address);
  }
  base->flat_begin = nullptr;
}

// Takes over the process's first attachments. They are this handle's to read, not to detach.
bool reuse_segments(const Attempt& attempt) {
  Rb_base* const base = attempt.base;
  const auto take = [base](int index) {
    base->share_memory_begin[index] = g_proccess_dbstorage.share_memory_begin[index];
    base->mshid.push_back(g_proccess_dbstorage.mshid[static_cast<std::size_t>(index)]);
    base->segmentcount = index + 1;
  };
  int count = 1;
  if (attachments::are_of(base->absolute_path, count, attempt.writable)) {
    take(0);
    bind_records(base);
    base->attached_bytes = base->memory->size;
    count = segments_for(base->attached_bytes);
  }
  if (base->segmentcount == 0 || !attachments::are_of(base->absolute_path, count, attempt.writable)) {
    base->segmentcount = 0;
    attempt.fail(CleanUp::none, message::open_file_failed, key_file_path(attempt.name, 0).c_str(), ENOENT);
    return false;
  }
  for (int index = 1; index < count; ++index) take(index);
  settle_addresses(base);
  return true;
}

}  // namespace

}  // namespace cachet

using namespace cachet;

bool Rb_createsharememory(Rb_base* base, const char* name, const char* version, ZTINT8 size, int mode,
                          char* errmsg) {
  const Attempt attempt{base, name, mode == 2, errmsg};
  const std::string first_path = key_file_path(name, 0);
  const auto refuse = [&](const auto& message, int error) {
    attempt.fail(CleanUp::none, message, first_path.c_str(), error);
    return false;
  };
  if (attempt.name.size() >= sizeof(Rb_memory::name))
    return refuse(message::create_file_failed, ENAMETOOLONG);
  if (!is_valid_size(size)) return refuse(message::create_segment_failed_2, EINVAL);
  if (!attempt.writable) return refuse(message::map_file_failed, EACCES);  // the header could not be written

  base->mode = mode;
  base->attached_bytes = size;
  base->absolute_path = absolute_path(name);
  base->range = reserve_addresses(size);
  const int count = segments_for(size);
  for (int index = 0; index < count; ++index) {
    if (const auto failed = create_segment(attempt, index, size)) return give_up(attempt, index, *failed);
    if (index == 0) {
      bind_records(base);
      write_header(base, attempt.name, version, size);
    }
  }
  settle_addresses(base);
  return true;
}

bool Rb_opensharememory(Rb_base* base, const char* name, int mode, int reuse_shmmap, char* errmsg) {
  // `mode` says how the memory is mapped; an isolated handle's own mode may say more.
  const Attempt attempt{base, name, mode == 2, errmsg};
  if (base->mode == 0) base->mode = mode;
  base->absolute_path = absolute_path(name);
  if (reuse_shmmap != 0) return reuse_segments(attempt);

  if (const auto failed = open_first_segment(attempt)) return give_up(attempt, 0, *failed);
  const int count = segments_for(base->attached_bytes);
  for (int index = 1; index < count; ++index) {
    const auto failed = open_segment(attempt, index, bytes_of_segment(base->attached_bytes, index));
    if (failed) return give_up(attempt, index, *failed);
  }
  settle_addresses(attempt.base);
  return true;
}

void Rb_closesharememory(Rb_base* base, int reuse_shmmap) {
  if (reuse_shmmap != 0) return;
  detach_all(base);
  // Decided after the own detach, segment by segment; a name may belong to somebody else's file by now.
  for (std::size_t index = 0; index < base->mshid.size(); ++index) {
    if (!remove_if_unattached(base->mshid[index])) continue;
    const std::string path = key_file_path(base->absolute_path, static_cast<int>(index));
    if (key_file_at(path) == base->key_files[index]) unlink(path.c_str());
  }
  base->segmentcount = 0;
  base->memory = nullptr;
  base->table = nullptr;
  base->mshid.clear();
  base->key_files.clear();
}
