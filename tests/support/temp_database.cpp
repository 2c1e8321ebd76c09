#include "support/temp_database.h"

#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string_view>

namespace cachet::test {

namespace {

constexpr int key_id = 1;

bool is_key_file(std::string_view name) {
  return name.ends_with(".data") || name.ends_with(".lk") || name.ends_with(".sem") ||
         name.ends_with("_session_shmname") || name.find("_rcsetshm_") != std::string_view::npos;
}

bool segment_exists(int id) {
  shmid_ds status;
  return shmctl(id, IPC_STAT, &status) == 0;
}

bool semaphore_set_exists(int id) {
  semid_ds status;
  return semctl(id, 0, IPC_STAT, &status) == 0;
}

}  // namespace

TempDirectory::TempDirectory(const char* parent) : path_(std::string(parent) + "/ctXXXXXX") {
  if (mkdtemp(path_.data()) == nullptr) std::abort();
}

TempDirectory::~TempDirectory() {
  note_objects();
  for (const auto& [id, name] : segments_) shmctl(id, IPC_RMID, nullptr);
  for (const auto& [id, name] : semaphore_sets_) semctl(id, 0, IPC_RMID);
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::vector<std::string> TempDirectory::files() const {
  std::vector<std::string> found;
  for (const auto& entry : std::filesystem::directory_iterator(path_)) {
    if (!entry.is_symlink()) found.push_back(entry.path().filename());
  }
  return found;
}

void TempDirectory::note_objects() {
  for (const std::string& name : files()) {
    if (!is_key_file(name)) continue;
    const key_t key = ftok((path_ + "/" + name).c_str(), key_id);
    if (const int id = shmget(key, 0, 0); id >= 0) segments_[id] = name;
    if (const int id = semget(key, 0, 0); id >= 0) semaphore_sets_[id] = name;
  }
}

std::vector<std::string> TempDirectory::leftovers() {
  note_objects();
  std::vector<std::string> left;
  for (const std::string& name : files()) {
    if (is_key_file(name)) left.push_back("key file " + name);
  }
  for (const auto& [id, name] : segments_) {
    if (segment_exists(id)) left.push_back("segment of " + name);
  }
  for (const auto& [id, name] : semaphore_sets_) {
    if (semaphore_set_exists(id)) left.push_back("semaphore set of " + name);
  }
  return left;
}

}  // namespace cachet::test
