#include "inspect/processes.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <vector>

#include "inspect/attachment.h"

namespace cachet::inspect {

namespace {

constexpr int looks_at_attachments = 5;
constexpr useconds_t pause_between_looks_us = 2000;

std::string file_of(int pid, const char* name) {
  return "/proc/" + std::to_string(pid) + "/" + name;
}

std::string contents(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// The fields of /proc/PID/stat behind the name, which may hold blanks and brackets: state first.
std::vector<std::string> stat_fields(int pid, std::string* name = nullptr) {
  const std::string text = contents(file_of(pid, "stat"));
  const std::size_t open = text.find('(');
  const std::size_t close = text.rfind(')');
  if (open == std::string::npos || close == std::string::npos || close < open) return {};
  if (name != nullptr) *name = text.substr(open + 1, close - open - 1);
  std::istringstream rest(text.substr(close + 1));
  return {std::istream_iterator<std::string>(rest), {}};
}

std::time_t boot_time() {
  std::ifstream file("/proc/stat");
  for (std::string line; std::getline(file, line);) {
    if (line.rfind("btime ", 0) == 0) return std::atol(line.c_str() + 6);
  }
  return 0;
}

std::time_t start_time(const std::vector<std::string>& fields) {
  constexpr std::size_t start_ticks = 19;
  if (fields.size() <= start_ticks) return 0;
  static const std::time_t boot = boot_time();
  return boot + std::atol(fields[start_ticks].c_str()) / sysconf(_SC_CLK_TCK);
}

// How often a process has the segment mapped: the mappings' inode is the segment's id, each attachment begins at
// offset 0.
int mappings_of(int pid, const std::string& segment_id) {
  std::ifstream maps(file_of(pid, "maps"));
  int count = 0;
  for (std::string line; std::getline(maps, line);) {
    if (line.find("/SYSV") == std::string::npos) continue;
    std::istringstream words(line);
    std::string range, rights, offset, device, inode;
    words >> range >> rights >> offset >> device >> inode;
    if (inode == segment_id && offset.find_first_not_of('0') == std::string::npos) ++count;
  }
  return count;
}

ino_t namespace_of(const std::string& pid, const char* kind) {
  struct stat status;
  return stat(("/proc/" + pid + "/ns/" + kind).c_str(), &status) == 0 ? status.st_ino : 0;
}

std::map<int, int> seen_attachments(int segment_id) {
  const ino_t own_namespace = namespace_of("self", "ipc");
  const std::string id = std::to_string(segment_id);
  std::map<int, int> times_by_pid;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
    const std::string name = entry.path().filename();
    int pid = 0;
    const auto [end, fault] = std::from_chars(name.data(), name.data() + name.size(), pid);
    if (fault != std::errc{} || *end != '\0' || namespace_of(name, "ipc") != own_namespace) continue;
    if (const int times = mappings_of(pid, id); times > 0) times_by_pid[pid] = times;
  }
  return times_by_pid;
}

Attached look(int segment_id) {
  Attached attached;
  attached.times_by_pid = seen_attachments(segment_id);
  const auto status = status_of_segment(segment_id);
  attached.unseen = status ? static_cast<long>(status->shm_nattch) : 0;
  const ino_t own_namespace = namespace_of("self", "pid");
  for (const auto& [pid, times] : attached.times_by_pid) {
    attached.unseen -= times;
    if (namespace_of(std::to_string(pid), "pid") != own_namespace) ++attached.renumbered;
  }
  attached.unseen = std::max(0L, attached.unseen);
  attached.times_by_pid.erase(getpid());
  return attached;
}

}  // namespace

Life life_of(int pid) {
  if (pid <= 0 || (kill(pid, 0) != 0 && errno == ESRCH)) return Life::dead;
  const auto fields = stat_fields(pid);
  return !fields.empty() && fields.front() == "Z" ? Life::zombie : Life::alive;
}

std::string user_name(uid_t uid) {
  const passwd* const entry = getpwuid(uid);
  return entry != nullptr ? entry->pw_name : std::to_string(uid);
}

Process process(int pid) {
  Process found;
  found.pid = pid;
  struct stat status;
  if (pid <= 0 || stat(file_of(pid, "").c_str(), &status) != 0) return found;
  found.user = user_name(status.st_uid);
  std::string name;
  found.started = start_time(stat_fields(pid, &name));
  found.command = contents(file_of(pid, "cmdline"));
  while (!found.command.empty() && found.command.back() == '\0') found.command.pop_back();
  std::replace(found.command.begin(), found.command.end(), '\0', ' ');
  if (found.command.empty()) found.command = "[" + name + "]";
  return found;
}

Attached attached_to(int segment_id) {
  Attached attached = look(segment_id);
  for (int i = 1; i < looks_at_attachments && attached.unseen > 0; ++i) {
    usleep(pause_between_looks_us);
    attached = look(segment_id);
  }
  return attached;
}

}  // namespace cachet::inspect
