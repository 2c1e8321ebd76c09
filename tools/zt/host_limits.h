// The kernel's limits of System V objects, how much of them is taken, and the memory of this host.
#ifndef CACHET_TOOLS_ZT_HOST_LIMITS_H
#define CACHET_TOOLS_ZT_HOST_LIMITS_H

#include <cstdint>
#include <optional>
#include <string>

#include "zt/translation.h"

namespace zt {

struct SegmentLimits {
  std::uint64_t most_bytes = 0;  // of one segment: kernel.shmmax
  std::uint64_t pages = 0, most_pages = 0;
  std::uint64_t segments = 0, most_segments = 0;
};

struct SemaphoreLimits {
  std::uint64_t sets = 0, most_sets = 0;
  std::uint64_t semaphores = 0, most_semaphores = 0;
  std::uint64_t most_in_set = 0;
};

struct HostMemory {
  std::uint64_t total_kib = 0, available_kib = 0;
  std::uint64_t swap_total_kib = 0, swap_free_kib = 0;
  // What is promised, and what may be promised when the kernel overcommits nothing.
  std::uint64_t committed_kib = 0, commit_limit_kib = 0;
  bool overcommits = true;
};

// What a database takes besides its own memory.
inline constexpr std::uint64_t semaphore_sets_of_database = 4;
inline constexpr std::uint64_t semaphores_of_set = 10;

// None when the kernel does not tell.
std::optional<SegmentLimits> segment_limits();
std::optional<SemaphoreLimits> semaphore_limits();
std::optional<HostMemory> host_memory();
// A whole number below /proc/sys/.
std::optional<std::uint64_t> kernel_setting(const char* name);

// Room for the sets of one more database.
bool has_room_for_semaphores(const SemaphoreLimits& limits);
inline std::string remedy_for_semaphores() {
  return tr("a database needs 4 sets of 10: sysctl -w kernel.sem=\"250 32000 100 1024\"");
}

}  // namespace zt

#endif
