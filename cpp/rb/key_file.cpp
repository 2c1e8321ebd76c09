// Keys carry only 16 bits of a file's inode, so two databases can come to share one: a leftover is told from
// another database's memory by the file its header names.
#include "rb/key_file.h"

#include <sys/shm.h>
#include <sys/stat.h>

#include <array>
#include <cstdio>
#include <cstring>

namespace cachet {

namespace {

Rb_keyfile identity(const struct stat& status) {
  return {status.st_dev, status.st_ino};
}

}  // namespace

std::string key_file_path(const std::string& base_path, int index) {
  std::array<char, 16> suffix{};
  std::snprintf(suffix.data(), suffix.size(), "%02d.data", index);
  return base_path + suffix.data();
}

std::optional<Rb_keyfile> key_file_at(const std::string& path) {
  struct stat status;
  if (lstat(path.c_str(), &status) != 0) return std::nullopt;
  return identity(status);
}

std::optional<Rb_keyfile> key_file_of(int descriptor) {
  struct stat status;
  if (fstat(descriptor, &status) != 0) return std::nullopt;
  return identity(status);
}

std::optional<SegmentStatus> segment_status(int id) {
  struct shmid_ds status;
  if (shmctl(id, IPC_STAT, &status) != 0) return std::nullopt;
  return SegmentStatus{static_cast<std::int64_t>(status.shm_segsz), status.shm_nattch};
}

bool remove_if_unattached(int id) {
  const auto status = segment_status(id);
  return status && status->attachments == 0 && shmctl(id, IPC_RMID, nullptr) == 0;
}

HeaderProbe::HeaderProbe(int id) {
  const auto status = segment_status(id);
  if (!status || status->bytes < static_cast<std::int64_t>(sizeof(Rb_memory))) return;
  void* const address = shmat(id, nullptr, SHM_RDONLY);
  if (address != reinterpret_cast<void*>(-1)) header_ = static_cast<const Rb_memory*>(address);
}

HeaderProbe::~HeaderProbe() {
  let_go();
}

void HeaderProbe::let_go() {
  if (header_ != nullptr) shmdt(header_);
  header_ = nullptr;
}

std::int64_t HeaderProbe::flat_bytes() const {
  return header_ != nullptr ? load_relaxed<ZTINT8>(&header_->size) : 0;
}

bool HeaderProbe::belongs_to_other_file(key_t key, const Rb_keyfile& own_file) const {
  const auto other_path = base_path();
  if (!other_path) return false;
  const std::string path = key_file_path(*other_path, 0);
  const auto file = key_file_at(path);
  return file && *file != own_file && ftok(path.c_str(), segment_key_id) == key;
}

// None when the segment does not look like a header.
std::optional<std::string> HeaderProbe::base_path() const {
  if (header_ == nullptr) return std::nullopt;
  std::array<char, sizeof(Rb_memory::name)> name{};
  std::memcpy(name.data(), header_->name, name.size());
  if (std::memchr(name.data(), 0, name.size()) == nullptr || name[0] == 0) return std::nullopt;
  return std::string(name.data());
}

bool clear_leftover(key_t key, int index, const Rb_keyfile& own_file) {
  const int id = shmget(key, 0, 0666);
  if (id < 0) return true;
  const auto status = segment_status(id);
  if (!status) return true;
  if (status->attachments != 0) return false;
  if (index == 0 && HeaderProbe(id).belongs_to_other_file(key, own_file)) return false;
  return remove_if_unattached(id);
}

}  // namespace cachet
