// zt rm: removes the memory, the semaphores and the key files of a database that nobody uses. The lock file stays, as
// it does behind the last regular user: it is empty, and two who make a database meet at it.
#include <sys/sem.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "inspect/file_lock.h"
#include "inspect/host.h"
#include "zt/commands.h"

namespace zt {
namespace {

using namespace cachet::inspect;

class Rm final : public Command {
 public:
  void declare(CLI::App& app) override {
    declare_database(app, path_);
    app.add_flag("--dry-run", dry_run_, "Only show what would be removed");
  }

  Status run(Context& context) override {
    const BasePath path = BasePath::parse(path_);
    const ExclusiveFileLock lock(path);
    if (!lock.is_ours()) throw Refused(tr("{} is in use: somebody holds its file lock", path_));
    std::vector<Object> objects;
    for (Object& each : objects_of(path)) {
      if (each.has_key_file || each.id >= 0) objects.push_back(std::move(each));
    }
    if (objects.empty()) throw NotFound(tr("there is no database {}", path_));
    refuse_if_used(objects);
    const auto rows =
        context.rows({{"object"}, {"id", Kind::integer}, {"size", Kind::bytes}, {"key_file"}, {"result"}});
    bool all_removed = true;
    for (const Object& each : objects) {
      const std::string result = dry_run_ ? "would be removed" : remove(each);
      all_removed = all_removed && (dry_run_ || result == removed);
      rows->row({std::string(kind_name(each.kind)), each.id >= 0 ? Cell(std::int64_t{each.id}) : Cell(),
                 each.bytes > 0 ? Cell(each.bytes) : Cell(),
                 each.has_key_file ? Cell(context.encoding().from_outside(each.key_file)) : Cell(), result});
    }
    rows->end();
    return all_removed ? Status::ok : Status::failure;
  }

 private:
  static constexpr char removed[] = "removed";

  void refuse_if_used(const std::vector<Object>& objects) const {
    for (const Object& each : objects) {
      if (each.attachments == 0) continue;
      throw Refused(tr("{} is in use: {} attachments to its {}; to see by whom: zt ps {}", path_,
                       each.attachments, kind_name(each.kind), path_));
    }
  }

  static bool remove_object(const Object& each) {
    if (each.id < 0) return true;
    if (each.kind == ObjectKind::semaphores) return semctl(each.id, 0, IPC_RMID) == 0;
    // Once more: whoever came meanwhile keeps it.
    const auto status = status_of_segment(each.id);
    if (status && status->shm_nattch > 0) {
      errno = EBUSY;
      return false;
    }
    return shmctl(each.id, IPC_RMID, nullptr) == 0;
  }

  static std::string remove(const Object& each) {
    const bool gone = remove_object(each) && (!each.has_key_file || unlink(each.key_file.c_str()) == 0);
    return gone ? removed : std::strerror(errno);
  }

  std::string path_;
  bool dry_run_ = false;
};

}  // namespace

std::unique_ptr<Command> make_rm() {
  return std::make_unique<Rm>();
}

}  // namespace zt
