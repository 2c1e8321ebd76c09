#include "inspect/host.h"

#include <sys/sem.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>

#include "inspect/processes.h"
#include "lock_page.h"

namespace cachet::inspect {

namespace {

constexpr unsigned rights_of_segments = 0666;
constexpr unsigned to_be_destroyed = 01000;
constexpr unsigned project_shift = 24;
constexpr unsigned project_of_keys = 1;

// A line of /proc/sysvipc/shm.
struct Line {
  unsigned key = 0;
  int id = -1;
  unsigned perms = 0;
  std::int64_t bytes = 0;
};

std::vector<Line> segments_of_host() {
  std::ifstream table("/proc/sysvipc/shm");
  std::string text;
  std::getline(table, text);  // the titles
  std::vector<Line> lines;
  while (std::getline(table, text)) {
    std::istringstream words(text);
    int key = 0;
    Line line;
    words >> key >> line.id >> std::oct >> line.perms >> std::dec >> line.bytes;
    line.key = static_cast<unsigned>(key);
    if (words) lines.push_back(line);
  }
  return lines;
}

// Whether it may be a database's first segment: nobody else's segments are attached.
bool may_be_first_segment(const Line& line) {
  return line.key >> project_shift == project_of_keys && (line.perms & 0777) == rights_of_segments &&
         (line.perms & to_be_destroyed) == 0 && line.bytes >= static_cast<std::int64_t>(sizeof(Rb_memory));
}

// The base path in a header; none when it is no header.
std::optional<std::string> base_path_in(const Rb_memory& header, std::int64_t segment_size) {
  const std::string name = text_in(header.name, sizeof header.name);
  const bool fits =
      header.size >= segment_size && (segment_size == segment_bytes || header.size == segment_size);
  const bool named = name.size() < sizeof header.name && name.find("//") != std::string::npos;
  return fits && named ? std::optional(name) : std::nullopt;
}

BasePath path_of(const std::string& base_path) {
  const std::size_t at = base_path.rfind("//");
  return {base_path.substr(0, at), base_path.substr(at + 2)};
}

// A relative path is meant in the directory of whoever made it: tried in ours and in those of the attached.
bool complete(BasePath& path, int segment_id) {
  const auto leads_here = [&](const BasePath& each) {
    return segment_of_file(each.segment_file(0)) == segment_id;
  };
  if (leads_here(path)) return true;
  if (!path.directory.empty() && path.directory.front() == '/') return false;
  for (const auto& [pid, times] : attached_to(segment_id).times_by_pid) {
    std::error_code error;
    const auto directory = std::filesystem::read_symlink("/proc/" + std::to_string(pid) + "/cwd", error);
    const BasePath absolute{(directory / path.directory).lexically_normal(), path.name};
    if (!error && leads_here(absolute)) {
      path = absolute;
      return true;
    }
  }
  return false;
}

bool is_sound(const Rb_memory& header) {
  return header.nodeoffset >= static_cast<std::int64_t>(sizeof header) &&
         header.nodeoffset <= header.dataoffset && header.dataoffset <= header.size;
}

std::optional<FoundDatabase> look_at(const Line& line, std::vector<std::string>* left_alone) {
  Attachment segment(line.id);
  const auto header = load_unaligned<Rb_memory>(segment.data());
  const auto status = status_of_segment(line.id);
  const auto base_path = base_path_in(header, segment.bytes());
  const bool was_last = segment.detach();
  if (!base_path || !status) return std::nullopt;
  if (was_last && left_alone != nullptr) left_alone->push_back(path_of(*base_path).shown());
  FoundDatabase found;
  found.path = path_of(*base_path);
  found.segment_id = line.id;
  found.attachments = status->shm_nattch - 1;
  found.creator_pid = status->shm_cpid;
  found.owner = status->shm_perm.uid;
  found.created = status->shm_ctime;
  found.version = text_in(header.version, sizeof header.version);
  found.sound = is_sound(header);
  found.fill = fill_of(header);
  found.has_key_file = complete(found.path, line.id);
  return found;
}

void fill_in(Object& object) {
  struct stat file;
  if (lstat(object.key_file.c_str(), &file) == 0) {
    object.has_key_file = true;
    object.file_owner = file.st_uid;
    object.file_mode = file.st_mode;
  }
  if (object.kind == ObjectKind::semaphores) {
    object.id = semaphore_set_of_file(object.key_file);
    return;
  }
  if (object.id < 0) object.id = segment_of_file(object.key_file);
  if (const auto status = status_of_segment(object.id)) {
    object.bytes = static_cast<std::int64_t>(status->shm_segsz);
    object.attachments = status->shm_nattch;
  }
}

Object object(ObjectKind kind, std::string key_file) {
  Object made;
  made.kind = kind;
  made.key_file = std::move(key_file);
  fill_in(made);
  return made;
}

// The key files say how many segments there are; a first one without its file is looked for by its header.
void add_segments(const BasePath& path, std::vector<Object>& objects) {
  for (int i = 0; i < RB_MAX_SEGMENTS; ++i) {
    Object segment = object(ObjectKind::segment, path.segment_file(i));
    if (i == 0 && segment.id < 0) {
      for (const FoundDatabase& each : databases_of_host()) {
        if (each.path.text() == path.text()) segment.id = each.segment_id;
      }
      fill_in(segment);
    }
    if (!segment.has_key_file && segment.id < 0) break;
    objects.push_back(std::move(segment));
  }
}

void add_stores(const BasePath& path, std::vector<Object>& objects) {
  std::error_code error;
  const std::string prefix = path.store_prefix();
  for (const auto& entry : std::filesystem::directory_iterator(path.directory, error)) {
    const std::string name = entry.path().filename();
    if (name.rfind(prefix, 0) != 0) continue;
    Object store = object(ObjectKind::store, path.directory + "/" + name);
    std::from_chars(name.data() + prefix.size(), name.data() + name.size(), store.store_pid);
    objects.push_back(std::move(store));
  }
}

}  // namespace

std::vector<FoundDatabase> databases_of_host(std::vector<std::string>* left_alone) {
  std::vector<FoundDatabase> databases;
  for (const Line& line : segments_of_host()) {
    if (!may_be_first_segment(line)) continue;
    try {
      if (auto found = look_at(line, left_alone)) databases.push_back(std::move(*found));
    } catch (const std::runtime_error&) {
      // It went away meanwhile, or may not be attached.
      continue;
    }
  }
  std::sort(databases.begin(), databases.end(),
            [](const FoundDatabase& a, const FoundDatabase& b) { return a.path.text() < b.path.text(); });
  return databases;
}

const char* kind_name(ObjectKind kind) {
  static constexpr std::array<const char*, 5> names{"segment", "lock page", "sessions", "rollback store",
                                                    "semaphores"};
  return names[static_cast<std::size_t>(kind)];
}

std::vector<Object> objects_of(const BasePath& path) {
  std::vector<Object> objects;
  add_segments(path, objects);
  objects.push_back(object(ObjectKind::lock_page, path.lock_page_file()));
  objects.push_back(object(ObjectKind::sessions, path.session_file()));
  for (int slot = 0; slot < lock_slots; ++slot) {
    for (const char role : {'r', 'w'}) {
      objects.push_back(object(ObjectKind::semaphores, path.semaphore_file(slot, role)));
    }
  }
  add_stores(path, objects);
  return objects;
}

}  // namespace cachet::inspect
