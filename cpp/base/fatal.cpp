#include "base/fatal.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace cachet::fatal {

void out_of_heap(int line) {
  std::printf("no memory,line=%d\n", line);
  std::exit(0);
}

void out_of_shared_memory(const char* allocator) {
  std::printf("%s: nodeoffset > dataoffset, shm out of memory!\n", allocator);
  std::exit(0);
}

void tree_misuse(const char* format, const void* node) {
  std::fprintf(stderr, format, static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(node)));
  std::exit(1);
}

void remote_change_failed() {
  std::exit(0);
}

void refused_by_callback() {
  std::exit(-1);
}

}  // namespace cachet::fatal
