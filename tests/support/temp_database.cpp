#include "support/temp_database.h"

#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string_view>

namespace cachet::test {

namespace {

constexpr int key_id = 1;

bool is_key_file(std::string_view name) {
  return name.ends_with(".data") || name.ends_with(".lk") || name.ends_with(".sem") ||
         name.ends_with(".asha") || name.ends_with(".rsha") || name.ends_with("_session_shmname") ||
         name.find("_rcsetshm_") != std::string_view::npos;
}

bool segment_exists(int id) {
  shmid_ds status;
  return shmctl(id, IPC_STAT, &status) == 0;
}

bool semaphore_set_exists(int id) {
  semid_ds status;
  return semctl(id, 0, IPC_STAT, &status) == 0;
}

void remove_with_objects(const std::string& directory) {
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(directory, ignored)) {
    if (entry.is_symlink() || !is_key_file(entry.path().filename().native())) continue;
    const key_t key = ftok(entry.path().c_str(), key_id);
    if (const int id = shmget(key, 0, 0); id >= 0) shmctl(id, IPC_RMID, nullptr);
    if (const int id = semget(key, 0, 0); id >= 0) semctl(id, 0, IPC_RMID);
  }
  std::filesystem::remove_all(directory, ignored);
}

// A process that outlives the tests, however they end (killed, aborted, timed out), and then removes the
// directories that are still there. It is made before the first directory, so it inherits no attachment.
class Janitor {
 public:
  static void watch(const std::string& directory) {
    static const Janitor janitor;
    const std::string line = directory + "\n";
    if (write(janitor.out_, line.data(), line.size()) < 0) std::abort();
  }

 private:
  Janitor() {
    int pipe[2];
    if (pipe2(pipe, O_CLOEXEC) != 0) std::abort();
    out_ = pipe[1];
    if (fork() != 0) return;
    setsid();
    dup2(pipe[0], STDIN_FILENO);
    close_range(STDOUT_FILENO, ~0u, 0);
    std::string directories;
    char buffer[4096];
    for (ssize_t got; (got = read(STDIN_FILENO, buffer, sizeof buffer)) > 0;) {
      directories.append(buffer, static_cast<std::size_t>(got));
    }
    std::istringstream lines(directories);
    for (std::string directory; std::getline(lines, directory);) remove_with_objects(directory);
    _exit(0);
  }

  int out_;
};

}  // namespace

TempDirectory::TempDirectory(const char* parent) : path_(std::string(parent) + "/ctXXXXXX") {
  if (mkdtemp(path_.data()) == nullptr) std::abort();
  Janitor::watch(path_);
}

TempDirectory::~TempDirectory() {
  for (const auto& [id, name] : segments_) shmctl(id, IPC_RMID, nullptr);
  for (const auto& [id, name] : semaphore_sets_) semctl(id, 0, IPC_RMID);
  remove_with_objects(path_);
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
