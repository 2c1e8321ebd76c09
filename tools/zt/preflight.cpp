#include "zt/preflight.h"

#include <sys/ipc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "inspect/file_lock.h"
#include "inspect/host.h"
#include "inspect/processes.h"
#include "rb_fronts.h"

namespace zt {

using namespace cachet::inspect;

namespace {

constexpr std::int64_t largest_database = std::int64_t{RB_MAX_SEGMENTS} * cachet::segment_bytes;

// What header, catalog and tree heads take, and the room without which no row can be inserted.
std::int64_t least_bytes(const Schema& schema) {
  std::int64_t catalog = sizeof(Rb_memory), heads = 0;
  for (const Table& table : schema.tables) {
    catalog += static_cast<std::int64_t>(sizeof(Rb_tablename) + sizeof(Rb_tablefield) * table.fields.size() +
                                         sizeof(Rb_indexname) * table.indexes.size());
    for (const Index& index : table.indexes)
      catalog += static_cast<std::int64_t>(sizeof(Rb_indexfield) * index.fields.size());
    heads += 1 + static_cast<std::int64_t>(table.indexes.size());
  }
  std::int64_t front = cachet::round_up(catalog, cachet::slot_bytes);
  for (; heads > 0; --heads) front = cachet::next_node_slot(front) + cachet::slot_bytes;
  return front + least_room_of_an_insert;
}

class Checks {
 public:
  Checks(const Context& context, const BasePath& path, std::int64_t size_bytes)
      : context_(context),
        path_(path),
        shown_(context.encoding().from_outside(path.shown())),
        size_bytes_(size_bytes) {}

  Preflight run(const Schema& schema) {
    check_path();
    check_existing();
    if (result_.exists) return std::move(result_);
    check_size(schema);
    examine_limits(result_.diagnoses, size_bytes_);
    check_keys();
    return std::move(result_);
  }

 private:
  void add(std::string check, bool well, std::string detail, std::string remedy,
           const char* otherwise = "fault") {
    result_.diagnoses.push_back(
        {std::move(check), well ? "ok" : otherwise, std::move(detail), well ? "" : std::move(remedy)});
  }

  void check_path() {
    const std::size_t length = path_.text().size();
    add("path", length <= BasePath::longest_text && !path_.name.empty(),
        tr("{} of {} bytes", length, BasePath::longest_text),
        tr("choose a shorter directory, or another name"));
    struct stat directory;
    if (stat(path_.directory.c_str(), &directory) != 0 || !S_ISDIR(directory.st_mode)) {
      add("directory", false, tr("{} is no directory", context_.encoding().from_outside(path_.directory)),
          "mkdir -p " + context_.encoding().from_outside(path_.directory));
      return;
    }
    const bool writable = access(path_.directory.c_str(), W_OK | X_OK) == 0;
    add("directory", writable, writable ? tr("files can be made there") : std::string(std::strerror(errno)),
        tr("it belongs to {}: run as that user, or choose another", user_name(directory.st_uid)));
  }

  // In use, an orphan, or key files that a reboot left.
  void check_existing() {
    std::vector<Object> objects = objects_of(path_);
    std::erase_if(objects, [&](const Object& each) { return leads_elsewhere(each); });
    const bool segment = std::any_of(objects.begin(), objects.end(), [](const Object& each) {
      return each.kind == ObjectKind::segment && each.id >= 0;
    });
    const bool used =
        std::any_of(objects.begin(), objects.end(), [](const Object& each) { return each.attachments > 0; });
    const auto holder = exclusive_file_lock_holder(path_);
    result_.exists = segment || used || holder;
    if (holder) {
      add("database", false, tr("process {} holds the file lock of {}", *holder, shown_),
          tr("it makes the database just now, or keeps others out: wait for it"));
    } else if (result_.exists) {
      add("database", false,
          used ? tr("{} is there already, and in use", shown_) : tr("{} is there already, an orphan", shown_),
          used ? tr("choose another name; to see who uses it: zt ps {}", shown_)
               : tr("to remove it: zt rm {}", shown_));
    }
    for (const Object& each : objects) check_owner(each);
  }

  void check_owner(const Object& each) {
    if (!each.has_key_file || each.file_owner == geteuid() || geteuid() == 0) return;
    const std::string file = context_.encoding().from_outside(each.key_file);
    add("key file", false, tr("{} belongs to {}", file, user_name(each.file_owner)),
        tr("remove it: rm {}", file));
  }

  // A key file whose number leads to another database's segment: the library refuses it.
  bool leads_elsewhere(const Object& each) {
    if (each.kind != ObjectKind::segment || !each.has_key_file) return false;
    for (const FoundDatabase& found : databases_) {
      std::error_code error;
      if (found.segment_id != each.id || !found.has_key_file ||
          std::filesystem::equivalent(each.key_file, found.path.segment_file(0), error))
        continue;
      const std::string file = context_.encoding().from_outside(each.key_file);
      add("key file", false,
          tr("{} has the key of {}", file, context_.encoding().from_outside(found.path.shown())),
          tr("remove the file, so that it gets another number: rm {}", file));
      return true;
    }
    return false;
  }

  void check_size(const Schema& schema) {
    const std::int64_t least = least_bytes(schema);
    add("size", size_bytes_ >= least && size_bytes_ <= largest_database,
        tr("{} bytes, of {} to {}", size_bytes_, least, largest_database),
        size_bytes_ < least ? tr("the tables and one row do not fit: make it larger")
                            : tr("make it smaller, or make two"));
  }

  // Key files that are not there yet get their key from their number: it may be one that is taken.
  void check_keys() {
    std::set<unsigned> taken;
    for (const char* const table : {"/proc/sysvipc/shm", "/proc/sysvipc/sem"}) {
      std::ifstream lines(table);
      std::string line;
      std::getline(lines, line);  // the titles
      while (std::getline(lines, line)) {
        int key = 0;
        if (std::istringstream(line) >> key && key != IPC_PRIVATE) taken.insert(static_cast<unsigned>(key));
      }
    }
    struct stat directory;
    if (stat(path_.directory.c_str(), &directory) != 0) return;
    constexpr unsigned project = 1;
    const unsigned prefix = project << 8 | (static_cast<unsigned>(directory.st_dev) & 0xff);
    const auto near =
        std::count_if(taken.begin(), taken.end(), [&](unsigned key) { return key >> 16 == prefix; });
    add("keys", near < many_keys, tr("{} of 65536 keys of this file system are taken", near),
        tr("a key that is taken makes the creation fail: remove what nobody uses: zt ls --orphans"),
        "warning");
  }

  static constexpr std::ptrdiff_t many_keys = 6554;  // a tenth

  const Context& context_;
  const BasePath& path_;
  std::string shown_;
  std::int64_t size_bytes_;
  const std::vector<FoundDatabase> databases_ = databases_of_host();
  Preflight result_;
};

}  // namespace

bool Preflight::passed() const {
  return std::none_of(diagnoses.begin(), diagnoses.end(),
                      [](const Diagnosis& each) { return each.state == "fault"; });
}

Preflight preflight(const Context& context, const BasePath& path, std::int64_t size_bytes,
                    const Schema& schema) {
  return Checks(context, path, size_bytes).run(schema);
}

std::int64_t segments_for(std::int64_t size_bytes) {
  return size_bytes / cachet::segment_bytes + (size_bytes % cachet::segment_bytes != 0);
}

}  // namespace zt
