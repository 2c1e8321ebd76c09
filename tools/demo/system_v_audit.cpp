// Reads /proc/sysvipc, whose lines begin with an object's key in decimal.
#include "system_v_audit.h"

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace demo {
namespace {

constexpr unsigned kFilePart = 0xFF'FFFF;  // device and inode; the byte above tells a file's objects apart

std::vector<unsigned> keys_in(const std::string& name) {
  std::ifstream table("/proc/sysvipc/" + name);
  std::vector<unsigned> keys;
  std::string line;
  std::getline(table, line);  // the titles
  while (std::getline(table, line)) {
    int key = 0;
    std::istringstream(line) >> key;
    keys.push_back(static_cast<unsigned>(key));
  }
  return keys;
}

int count_of(const std::string& name, const std::set<unsigned>& file_parts) {
  int count = 0;
  for (const unsigned key : keys_in(name)) count += file_parts.contains(key & kFilePart) ? 1 : 0;
  return count;
}

}  // namespace

SystemVAudit::Found SystemVAudit::look() {
  Found found;
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(directory_, ignored)) {
    found.files.push_back(entry.path().filename());
    struct stat status;
    if (stat(entry.path().c_str(), &status) != 0) continue;
    const unsigned device = static_cast<unsigned>(status.st_dev) & 0xFF;
    keys_.insert(device << 16 | (static_cast<unsigned>(status.st_ino) & 0xFFFF));
  }
  found.segments = count_of("shm", keys_);
  found.semaphore_sets = count_of("sem", keys_);
  return found;
}

int objects_of_all_programs(const std::string& name) {
  return static_cast<int>(keys_in(name).size());
}

}  // namespace demo
