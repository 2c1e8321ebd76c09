// Making and ending a handle. Every opening call stores the handle first, also when it fails, so that the
// caller can ask it for the error and delete it.
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "base/file.h"
#include "cache/error.h"
#include "cache/file_lock.h"
#include "cache/row.h"
#include "cache/shared_store.h"
#include "cache/transaction.h"

using namespace cachet;

namespace {

constexpr int no_session_tracking = 0;

// The base path of the database's files.
std::string base_path(const char* path, const char* name) {
  return std::string(path) + "//" + name;
}

ZtDb* make_handle(ZtDbHandle* database, int mode, bool exist) {
  auto handle = std::make_unique<ZtDb>();
  handle->base.mode = mode;
  handle->base.exist = exist;
  handle->base.owner = !exist;
  handle->creator_pid = getpid();
  handle->schema = next_schema();
  *database = handle.release();
  return *database;
}

bool check_names(ZtDbHandle database, const char* path, const char* name) {
  if (path != nullptr && name != nullptr) return true;
  return report(database, ZT_ERR_GENERAL, message::bad_name);
}

bool check_mode(ZtDbHandle database) {
  const int mode = database->base.mode;
  if (mode == ZT_MODE_READ_ONLY || mode == ZT_MODE_READ_WRITE) return true;
  return report(database, ZT_ERR_GENERAL, message::bad_mode, mode);
}

// The header keeps at most 79 characters of the base path: refused before any file is made.
bool check_length(ZtDbHandle database, const std::string& path) {
  if (path.size() < sizeof(Rb_memory::name)) return true;
  return report(database, ZT_ERR_GENERAL, message::create_file_failed, path.c_str(), ENAMETOOLONG);
}

bool no_lock(ZtDbHandle database, const std::string& path) {
  return report(database, ZT_ERR_GENERAL, message::create_lock_failed, path.c_str());
}

// The lock's key files are removed by name when the last process leaves, which may have changed its directory
// by then: the names are absolute, unless the current directory's is too long to keep.
std::string lock_path(const std::string& path) {
  constexpr std::size_t longest_suffix = 24;
  std::string absolute = absolute_path(path.c_str());
  return absolute.size() + longest_suffix < sizeof(Cztshamem::m_name) ? absolute : path;
}

bool open_lock(ZtDbHandle database, int dbsesion_mode) {
  if (database->lock.Open(database->lock_name.data(), dbsesion_mode)) return true;
  database->lock.Close();
  return false;
}

bool attach(ZtDbHandle database, const std::string& path, int access) {
  char text[RB_ERRMSG_SIZE] = {};
  if (Rb_opensharememory(&database->base, path.c_str(), access, database->reuse_shmmap, text)) return true;
  return report(database, ZT_ERR_GENERAL, message::verbatim, text);
}

bool check_version(ZtDbHandle database, const char* version) {
  // Compared whole, though only 22 bytes were kept: a longer text never matches.
  const char* const stored = database->base.memory->version;
  if (std::string_view(stored, strnlen(stored, sizeof(Rb_memory::version))) == version) return true;
  return report(database, ZT_ERR_GENERAL, message::version_mismatch, ZtGetDbVersion(database), version);
}

bool connect_to_manager(ZtDbHandle database) {
  static char local_host[] = "127.0.0.1";
  VemroTcpChanel& chanel = database->base.chanel;
  if (!chanel.Create(true) || !chanel.Connect(local_host, static_cast<short>(database->base.port))) {
    return report(database, ZT_ERR_GENERAL, message::connect_manager_failed);
  }
  return ZtLoginRemote(database) || report(database, ZT_ERR_GENERAL, message::login_manager_failed);
}

// What ZtOpenDb does under the shared file lock.
bool open_under_lock(ZtDbHandle database, const std::string& path, const char* version, bool lock_is_open) {
  const bool isolate = database->base.isolate;
  if (!attach(database, path, isolate ? ZT_MODE_READ_ONLY : database->base.mode)) return false;
  if (database->shmrcset_mode == 1 && !provide_shared_store(database)) {
    Rb_closesharememory(&database->base, database->reuse_shmmap);
    return report(database, ZT_ERR_GENERAL, message::create_copies_failed, path.c_str());
  }
  database->opened = true;
  if (!check_version(database, version)) return false;
  if (isolate) return connect_to_manager(database);
  if (!lock_is_open && database->base.mode == ZT_MODE_READ_WRITE) return no_lock(database, path);
  return true;
}

}  // namespace

bool ZtCreateDb(ZtDbHandle* database, const char* path, const char* name, const char* version, ZTINT8 size,
                int dbsesion_mode) {
  ZtDb* const handle = make_handle(database, ZT_MODE_READ_WRITE, false);
  if (!check_names(handle, path, name)) return false;
  handle->base.pid = handle->creator_pid;
  std::string base = base_path(path, name);
  if (!check_length(handle, base)) return false;

  handle->lock_name = lock_path(base);
  handle->flock = new RWLock(base.data());
  if (!handle->lock.Create(handle->lock_name.data(), dbsesion_mode)) return no_lock(handle, base);
  if (!ZtLockDb(handle, ZT_LOCK_EXCLUSIVE)) {
    return report(handle, ZT_ERR_GENERAL, message::lock_failed, base.c_str());
  }
  char text[RB_ERRMSG_SIZE] = {};
  if (!Rb_createsharememory(&handle->base, base.c_str(), version != nullptr ? version : "", size,
                            ZT_MODE_READ_WRITE, text)) {
    report(handle, ZT_ERR_GENERAL, message::verbatim, text);
    ZtUnLockDb(handle);
    return false;
  }
  handle->opened = true;
  return true;
}

bool ZtOpenDb(ZtDbHandle* database, const char* path, const char* name, const char* version, int mode,
              int port, bool isolate, int reuse_shmmap, int shmrcset_mode, int dbsesion_mode) {
  ZtDb* const handle = make_handle(database, mode, true);
  if (!check_names(handle, path, name) || !check_mode(handle)) return false;
  handle->base.port = port;
  handle->base.isolate = isolate;
  handle->base.pid = handle->creator_pid;
  handle->reuse_shmmap = reuse_shmmap;
  handle->shmrcset_mode = shmrcset_mode;
  std::string base = base_path(path, name);
  if (!check_length(handle, base)) return false;

  handle->lock_name = lock_path(base);
  handle->flock = new RWLock(base.data());
  bool lock_is_open = !isolate && open_lock(handle, dbsesion_mode);
  if (!ZtLockDb(handle, ZT_LOCK_SHARED)) {
    return report(handle, ZT_ERR_GENERAL, message::lock_failed, base.c_str());
  }
  if (isolate) handle->lock.Watch(handle->lock_name.data());
  // While this call waited, the creator may have made the lock, or the last users of an older one have left.
  if (!isolate && !handle->lock.IsCurrent()) {
    handle->lock.Close();
    lock_is_open = open_lock(handle, dbsesion_mode);
  }
  if (open_under_lock(handle, base, version != nullptr ? version : "", lock_is_open)) return true;
  ZtUnLockDb(handle);
  return false;
}

bool ZtConnectDb(ZtDbHandle* database, const char* path, const char* name, int mode) {
  ZtDb* const handle = make_handle(database, mode, true);
  if (!check_names(handle, path, name) || !check_mode(handle)) return false;
  std::string base = base_path(path, name);
  if (!check_length(handle, base)) return false;

  handle->lock_name = lock_path(base);
  handle->flock = new RWLock(base.data());
  const bool lock_is_open = open_lock(handle, no_session_tracking);
  if (!attach(handle, base, mode)) return false;
  handle->opened = true;
  if (!lock_is_open && mode == ZT_MODE_READ_WRITE) return no_lock(handle, base);
  ZtLoadDbInfo(handle);
  ZtLoadDb(handle);
  return true;
}

void ZtDeleteDb(ZtDbHandle database) {
  if (database == nullptr) return;
  const std::unique_ptr<ZtDb> handle(database);
  // A child's copy of its parent's handle: the transaction and the locks are the parent's.
  if (handle->creator_pid == getpid()) {
    if (!handle->base.isolate) ZtRollbackTransaction(database);
    if (handle->opened) take_marks_off(database);
    ZtUnLock(database);
  }
  if (handle->opened) Rb_closesharememory(&handle->base, handle->reuse_shmmap);
  if (handle->base.isolate) {
    handle->base.memchanel.Close();
    handle->base.chanel.Close();
  }
  handle->lock.Close();
  if (handle->shm_recordcopyset != nullptr) handle->shm_recordcopyset->Delete();
  delete std::exchange(handle->shm_recordcopyset, nullptr);
  file_lock::retire(handle->flock);
  forget_copies(database);
}
