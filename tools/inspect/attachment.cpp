#include "inspect/attachment.h"

#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "inspect/translate.h"

namespace cachet::inspect {

namespace {

constexpr int key_id = 1;

int segment_or_throw(const std::string& key_file) {
  const auto key = key_of_file(key_file);
  if (!key) throw NotFound(key_file + ": " + std::strerror(errno));
  const int id = shmget(*key, 0, 0);
  if (id < 0) throw NotFound(tr("{}: the key file is there, its shared memory is not", key_file));
  return id;
}

}  // namespace

std::optional<key_t> key_of_file(const std::string& key_file) {
  struct stat status;
  if (lstat(key_file.c_str(), &status) != 0) return std::nullopt;
  if (!S_ISREG(status.st_mode)) {
    errno = S_ISLNK(status.st_mode) ? ELOOP : EINVAL;
    return std::nullopt;
  }
  const key_t key = ftok(key_file.c_str(), key_id);
  return key == -1 ? std::nullopt : std::optional(key);
}

int segment_of_file(const std::string& key_file) {
  const auto key = key_of_file(key_file);
  return key ? shmget(*key, 0, 0) : -1;
}

int semaphore_set_of_file(const std::string& key_file) {
  const auto key = key_of_file(key_file);
  return key ? semget(*key, 0, 0) : -1;
}

std::optional<shmid_ds> status_of_segment(int id) {
  shmid_ds status;
  return id >= 0 && shmctl(id, IPC_STAT, &status) == 0 ? std::optional(status) : std::nullopt;
}

Attachment::Attachment(const std::string& key_file) : id_(segment_or_throw(key_file)) {
  attach(key_file);
}

Attachment::Attachment(int id) : id_(id) {
  attach("segment " + std::to_string(id));
}

Attachment::Attachment(Attachment&& other) noexcept
    : id_(other.id_),
      data_(std::exchange(other.data_, nullptr)),
      bytes_(other.bytes_),
      others_(other.others_) {}

void Attachment::attach(const std::string& name) {
  const void* const address = shmat(id_, nullptr, SHM_RDONLY);
  if (address == reinterpret_cast<void*>(-1)) {
    const std::string why = name + ": " + std::strerror(errno);
    if (errno == EINVAL || errno == EIDRM) throw NotFound(why);
    throw Unreadable(why);
  }
  data_ = static_cast<const char*>(address);
  const auto status = status_of_segment(id_);
  bytes_ = status ? static_cast<std::int64_t>(status->shm_segsz) : 0;
  others_ = status && status->shm_nattch > 0 ? status->shm_nattch - 1 : 0;
}

bool Attachment::detach() noexcept {
  if (data_ == nullptr) return false;
  shmdt(std::exchange(data_, nullptr));
  const auto status = status_of_segment(id_);
  return others_ > 0 && status && status->shm_nattch == 0;
}

}  // namespace cachet::inspect
