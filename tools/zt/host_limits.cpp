#include "zt/host_limits.h"

#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include <array>
#include <fstream>
#include <sstream>
#include <string>

namespace zt {

std::optional<SegmentLimits> segment_limits() {
  shminfo limits{};
  shm_info used{};
  if (shmctl(0, IPC_INFO, reinterpret_cast<shmid_ds*>(&limits)) < 0 ||
      shmctl(0, SHM_INFO, reinterpret_cast<shmid_ds*>(&used)) < 0) {
    return std::nullopt;
  }
  return SegmentLimits{limits.shmmax, used.shm_tot, limits.shmall, static_cast<std::uint64_t>(used.used_ids),
                       limits.shmmni};
}

std::optional<SemaphoreLimits> semaphore_limits() {
  seminfo limits{}, used{};
  if (semctl(0, 0, IPC_INFO, &limits) < 0 || semctl(0, 0, SEM_INFO, &used) < 0) return std::nullopt;
  const auto count = [](int number) { return static_cast<std::uint64_t>(number); };
  return SemaphoreLimits{count(used.semusz), count(limits.semmni), count(used.semaem), count(limits.semmns),
                         count(limits.semmsl)};
}

std::optional<HostMemory> host_memory() {
  HostMemory memory;
  struct Line {
    const char* name;
    std::uint64_t* kib;
  };
  const auto wanted = std::to_array<Line>({{"MemTotal:", &memory.total_kib},
                                           {"MemAvailable:", &memory.available_kib},
                                           {"SwapTotal:", &memory.swap_total_kib},
                                           {"SwapFree:", &memory.swap_free_kib},
                                           {"Committed_AS:", &memory.committed_kib},
                                           {"CommitLimit:", &memory.commit_limit_kib}});
  std::ifstream table("/proc/meminfo");
  for (std::string line; std::getline(table, line);) {
    std::istringstream words(line);
    std::string name;
    std::uint64_t kib = 0;
    words >> name >> kib;
    for (const Line& each : wanted) {
      if (name == each.name) *each.kib = kib;
    }
  }
  constexpr std::uint64_t never = 2;
  memory.overcommits = kernel_setting("vm/overcommit_memory") != never;
  return memory.total_kib > 0 ? std::optional(memory) : std::nullopt;
}

std::optional<std::uint64_t> kernel_setting(const char* name) {
  std::ifstream file(std::string("/proc/sys/") + name);
  std::uint64_t value = 0;
  return file >> value ? std::optional(value) : std::nullopt;
}

bool has_room_for_semaphores(const SemaphoreLimits& limits) {
  return limits.sets + semaphore_sets_of_database <= limits.most_sets &&
         limits.semaphores + semaphore_sets_of_database * semaphores_of_set <= limits.most_semaphores &&
         limits.most_in_set >= semaphores_of_set;
}

}  // namespace zt
