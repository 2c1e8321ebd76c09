// What of databases exists on this host: their segments, found among all segments by what their headers say, and the
// System V objects and key files of one database.
#ifndef CACHET_TOOLS_INSPECT_HOST_H
#define CACHET_TOOLS_INSPECT_HOST_H

#include <sys/types.h>

#include <ctime>
#include <string>
#include <vector>

#include "inspect/base_path.h"
#include "inspect/raw_database.h"

namespace cachet::inspect {

// A database as its first segment shows it.
struct FoundDatabase {
  BasePath path;              // by the header; a relative one is completed where its key file was found
  bool has_key_file = false;  // the key file leads to this very segment
  bool sound = false;         // the header's numbers make sense
  int segment_id = -1;
  unsigned long attachments = 0;
  int creator_pid = 0;  // 0: of another pid namespace
  uid_t owner = 0;
  std::time_t created = 0;
  std::string version;
  Fill fill;
};

// Every database in this IPC namespace whose first segment may be attached, by path. Attaches each for a moment;
// `left_alone` takes the paths of those whose last regular user left in that moment.
std::vector<FoundDatabase> databases_of_host(std::vector<std::string>* left_alone = nullptr);

enum class ObjectKind { segment, lock_page, sessions, store, semaphores };
const char* kind_name(ObjectKind kind);

// A key file, its System V object, or both.
struct Object {
  ObjectKind kind = ObjectKind::segment;
  std::string key_file;
  bool has_key_file = false;
  int id = -1;  // of the segment or the semaphore set; -1 = there is none
  std::int64_t bytes = 0;
  unsigned long attachments = 0;  // of a segment
  uid_t file_owner = 0;
  mode_t file_mode = 0;
  int store_pid = 0;  // whose rollback store it is
};

// Everything that belongs to the database: segments 0, 1, ... as far as there are key files or objects, lock page,
// sessions, stores, and the four semaphore sets. A first segment without its key file is found by its header.
std::vector<Object> objects_of(const BasePath& path);

}  // namespace cachet::inspect

#endif
