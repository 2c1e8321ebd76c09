// The limits of this host against what one more database takes.
#include <unistd.h>

#include <algorithm>

#include "lock_page.h"
#include "rb.h"
#include "zt/host_limits.h"
#include "zt/preflight.h"

namespace zt {
namespace {

constexpr std::uint64_t session_table_bytes = 4 << 20;
constexpr std::uint64_t other_segments = 2;  // lock page and session table
constexpr std::uint64_t kib = 1024;

std::uint64_t pages(std::uint64_t bytes) {
  const auto page = static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
  return (bytes + page - 1) / page;
}

void add(Diagnoses& diagnoses, std::string check, bool well, std::string detail, std::string remedy,
         const char* otherwise = "fault") {
  diagnoses.push_back(
      {std::move(check), well ? "ok" : otherwise, std::move(detail), well ? "" : std::move(remedy)});
}

void check_segments(Diagnoses& diagnoses, std::int64_t size_bytes) {
  const auto limits = segment_limits();
  if (!limits) return;
  const auto size = static_cast<std::uint64_t>(size_bytes);
  const auto largest = std::min<std::uint64_t>(size, cachet::segment_bytes);
  add(diagnoses, "kernel.shmmax", limits->most_bytes >= largest,
      tr("{} bytes needed, {} bytes for one segment", largest, limits->most_bytes),
      tr("sysctl -w kernel.shmmax={}", largest));
  const std::uint64_t needed_pages =
      pages(size) + pages(session_table_bytes) + pages(cachet::lock_page_bytes);
  add(diagnoses, "kernel.shmall", limits->most_pages >= limits->pages + needed_pages,
      tr("{} pages needed, {} of {} are taken", needed_pages, limits->pages, limits->most_pages),
      tr("sysctl -w kernel.shmall={}, or remove what nobody uses: zt ls --orphans",
         limits->pages + needed_pages));
  const std::uint64_t needed = static_cast<std::uint64_t>(segments_for(size_bytes)) + other_segments;
  add(diagnoses, "kernel.shmmni", limits->most_segments >= limits->segments + needed,
      tr("{} segments needed, {} of {} exist", needed, limits->segments, limits->most_segments),
      tr("sysctl -w kernel.shmmni={}, or remove what nobody uses: zt ls --orphans",
         limits->segments + needed));
}

void check_semaphores(Diagnoses& diagnoses) {
  const auto limits = semaphore_limits();
  if (!limits) return;
  add(diagnoses, "kernel.sem", has_room_for_semaphores(*limits),
      tr("{} sets of {} needed, {} of {} sets and {} of {} semaphores exist", semaphore_sets_of_database,
         semaphores_of_set, limits->sets, limits->most_sets, limits->semaphores, limits->most_semaphores),
      remedy_for_semaphores());
}

void check_memory(Diagnoses& diagnoses, std::int64_t size_bytes) {
  const auto memory = host_memory();
  if (!memory) return;
  const std::uint64_t needed = static_cast<std::uint64_t>(size_bytes) / kib;
  const std::uint64_t all = memory->total_kib + memory->swap_total_kib;
  const std::uint64_t free = memory->available_kib + memory->swap_free_kib;
  const bool promised = memory->overcommits || memory->committed_kib + needed <= memory->commit_limit_kib;
  const std::string detail =
      tr("{} MiB needed when it is full, {} MiB of {} MiB are free", needed / kib, free / kib, all / kib);
  if (needed > all || !promised) {
    add(diagnoses, "memory", false, detail,
        promised ? tr("it could never be filled: make it smaller, or add memory or swap")
                 : tr("the kernel promises no more: make it smaller, add swap, or sysctl -w "
                      "vm.overcommit_memory=0"));
  } else {
    add(diagnoses, "memory", needed <= free, detail,
        tr("whoever fills it dies for want of memory: end something, or add swap"), "warning");
  }
}

}  // namespace

void examine_limits(Diagnoses& diagnoses, std::int64_t size_bytes) {
  check_segments(diagnoses, size_bytes);
  check_semaphores(diagnoses);
  check_memory(diagnoses, size_bytes);
}

}  // namespace zt
