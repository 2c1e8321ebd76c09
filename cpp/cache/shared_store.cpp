#include "cache/shared_store.h"

#include <sys/shm.h>
#include <unistd.h>

#include <charconv>
#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include "base/thread_identity.h"
#include "cache/error.h"
#include "cache/rollback.h"

namespace cachet {

namespace {

constexpr int store_key_id = 1;
constexpr int writers_slot = 0;
constexpr char store_infix[] = "_rcsetshm_";

// The key files of each dead process's store. Their names are what is left of it whatever its header says.
std::map<unsigned long, std::vector<std::string>> stores_of_dead(const std::string& base_path) {
  std::map<unsigned long, std::vector<std::string>> stores;
  const std::filesystem::path base(base_path);
  const std::string prefix = base.filename().string() + store_infix;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(base.parent_path(), error)) {
    const std::string name = entry.path().filename().string();
    if (name.compare(0, prefix.size(), prefix) != 0) continue;
    unsigned long pid = 0;
    const char* const digits = name.data() + prefix.size();
    const auto [end, fault] = std::from_chars(digits, name.data() + name.size(), pid);
    if (fault == std::errc{} && end != digits && *end == '_' && is_gone(pid))
      stores[pid].push_back(entry.path());
  }
  return stores;
}

void remove_segment(const std::string& key_file) {
  const key_t key = ftok(key_file.c_str(), store_key_id);
  const int id = key != -1 ? shmget(key, 0, 0) : -1;
  struct shmid_ds status;
  const bool in_use = id >= 0 && shmctl(id, IPC_STAT, &status) == 0 && status.shm_nattch != 0;
  if (in_use) return;
  if (id >= 0) shmctl(id, IPC_RMID, nullptr);
  unlink(key_file.c_str());
}

// Sees to what the store still holds, now that its owner has no session any more. Under a lock that nobody else can hold
// it is the dead's open transaction; otherwise these were changes outside of one, and only their marks go.
bool empty_store(ZtDbHandle database, unsigned long pid) {
  ShmRecordcopySet store;
  if (!store.Open(database->lock_name.c_str(), pid)) return true;  // no more than key files, or torn segments
  bool whole = true;
  const auto copies = [&](const auto& each) { whole = for_each_shared_copy(database, store, each) && whole; };
  store.Begin();
  if (store.GetCurRecordCP() != nullptr) {
    if (database->lock.WriterHolds(writers_slot)) {
      roll_back(database, copies, Suspects::all);
    } else {
      make_final(database, copies);
    }
  }
  if (whole) store.Delete();
  return whole;
}

bool is_alone(const Rb_base& base) {
  struct shmid_ds status;
  return !base.mshid.empty() && shmctl(base.mshid[0], IPC_STAT, &status) == 0 && status.shm_nattch == 1;
}

}  // namespace

bool provide_shared_store(ZtDbHandle database) {
  auto store = std::make_unique<ShmRecordcopySet>();
  if (!store->Create(database->lock_name.c_str())) return false;
  database->shm_recordcopyset = store.release();
  database->shmrcset_mode = 1;
  return true;
}

void remove_stores_of_dead(ZtDbHandle database) {
  if (!writes_locally(database) || !is_alone(database->base)) return;
  for (const auto& [pid, key_files] : stores_of_dead(database->lock_name)) {
    if (!empty_store(database, pid)) continue;
    for (const std::string& key_file : key_files) remove_segment(key_file);
  }
}

}  // namespace cachet
