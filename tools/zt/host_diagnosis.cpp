// What of this host keeps databases from being made, or takes them away: limits of shared memory and semaphores, and
// who removes what nobody is attached to.
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "zt/diagnosis.h"
#include "zt/host_limits.h"

namespace zt {
namespace {

constexpr double nearly_all = 0.9;
constexpr std::uint64_t whole_segment_bytes = 1u << 30;
constexpr std::uint64_t last_system_user = 999;

void add(Diagnoses& diagnoses, std::string check, bool well, const char* otherwise, std::string detail,
         std::string remedy) {
  diagnoses.push_back(
      {std::move(check), well ? "ok" : otherwise, std::move(detail), well ? "" : std::move(remedy)});
}

void examine_segments(Diagnoses& diagnoses) {
  const auto limits = segment_limits();
  if (!limits) return;
  add(diagnoses, "kernel.shmmax", limits->most_bytes >= whole_segment_bytes, "warning",
      tr("{} bytes for one segment", limits->most_bytes),
      tr("a database of 1 GiB or more needs it: sysctl -w kernel.shmmax={}", whole_segment_bytes));
  add(diagnoses, "kernel.shmall",
      static_cast<double>(limits->pages) < nearly_all * static_cast<double>(limits->most_pages), "fault",
      tr("{} of {} pages are taken", limits->pages, limits->most_pages),
      tr("raise it (sysctl -w kernel.shmall=PAGES), or remove what nobody uses: zt ls --orphans"));
  add(diagnoses, "kernel.shmmni",
      static_cast<double>(limits->segments) < nearly_all * static_cast<double>(limits->most_segments),
      "fault", tr("{} of {} segments exist", limits->segments, limits->most_segments),
      tr("raise it (sysctl -w kernel.shmmni=NUMBER), or remove what nobody uses: zt ls --orphans"));
}

void examine_semaphores(Diagnoses& diagnoses) {
  const auto limits = semaphore_limits();
  if (!limits) return;
  add(diagnoses, "kernel.sem", has_room_for_semaphores(*limits), "fault",
      tr("{} of {} sets, {} of {} semaphores, at most {} in a set", limits->sets, limits->most_sets,
         limits->semaphores, limits->most_semaphores, limits->most_in_set),
      remedy_for_semaphores());
}

void examine_removal(Diagnoses& diagnoses) {
  if (const auto forced = kernel_setting("kernel/shm_rmid_forced")) {
    add(diagnoses, "kernel.shm_rmid_forced", *forced == 0, "fault", std::to_string(*forced),
        tr("with 1 the kernel removes what nobody is attached to, also after a crash: sysctl -w "
           "kernel.shm_rmid_forced=0"));
  }
  if (const auto pids = kernel_setting("kernel/pid_max")) {
    constexpr std::uint64_t plenty = 1u << 20;
    add(diagnoses, "kernel.pid_max", *pids >= plenty, "warning", std::to_string(*pids),
        tr("a process id that is used again hides a dead session: sysctl -w kernel.pid_max=4194304"));
  }
}

// The last RemoveIPC= of the files that logind reads; "yes" by default.
std::string remove_ipc() {
  std::vector<std::filesystem::path> files{"/etc/systemd/logind.conf"};
  for (const char* const folder :
       {"/usr/lib/systemd/logind.conf.d", "/run/systemd/logind.conf.d", "/etc/systemd/logind.conf.d"}) {
    std::error_code error;
    std::vector<std::filesystem::path> parts;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error))
      parts.push_back(entry.path());
    std::sort(parts.begin(), parts.end());
    files.insert(files.end(), parts.begin(), parts.end());
  }
  std::string value = "yes";
  for (const auto& file : files) {
    std::ifstream lines(file);
    for (std::string line; std::getline(lines, line);) {
      if (line.rfind("RemoveIPC=", 0) == 0) value = line.substr(line.find('=') + 1);
    }
  }
  return value;
}

void examine_logind(Diagnoses& diagnoses) {
  std::error_code error;
  if (!std::filesystem::exists("/run/systemd/system", error)) return;
  const std::string value = remove_ipc();
  const bool kept = value == "no" || value == "false" || value == "0" || value == "off";
  add(diagnoses, "logind RemoveIPC", kept || geteuid() <= last_system_user, "fault", value,
      tr("logind removes this user's databases at log-out: RemoveIPC=no in /etc/systemd/logind.conf, or a "
         "system user"));
}

void examine_memory(Diagnoses& diagnoses) {
  const auto memory = host_memory();
  if (!memory) return;
  constexpr std::uint64_t share = 10;
  add(diagnoses, "memory", memory->available_kib >= memory->total_kib / share, "warning",
      tr("{} MiB of {} MiB are available", memory->available_kib / 1024, memory->total_kib / 1024),
      tr("the memory of a database is taken when it is first touched: end something, or add swap"));
}

}  // namespace

void examine_host(Diagnoses& diagnoses) {
  examine_segments(diagnoses);
  examine_semaphores(diagnoses);
  examine_removal(diagnoses);
  examine_logind(diagnoses);
  examine_memory(diagnoses);
}

}  // namespace zt
