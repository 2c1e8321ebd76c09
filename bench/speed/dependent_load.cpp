// See dependent_load.h.
#include "dependent_load.h"

#include <sys/mman.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <vector>

#include "clock.h"
#include "system.h"

namespace bench {
namespace {

constexpr std::size_t bytes = std::size_t{512} << 20;
constexpr int loads = 1000000;

struct alignas(64) Line {
  const Line* next;
};

class Memory {
 public:
  explicit Memory(int advice) {
    void* const memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    require(memory != MAP_FAILED, "no memory");
    madvise(memory, bytes, advice);
    lines_ = static_cast<Line*>(memory);
  }
  ~Memory() { munmap(lines_, bytes); }
  Memory(const Memory&) = delete;
  Memory& operator=(const Memory&) = delete;

  // All lines, in one random cycle.
  const Line* cycle() {
    std::vector<std::uint32_t> order(bytes / sizeof(Line));
    std::iota(order.begin(), order.end(), 0U);
    std::mt19937 random(1);
    std::shuffle(order.begin(), order.end(), random);
    for (std::size_t i = 0; i < order.size(); ++i) {
      lines_[order[i]].next = &lines_[order[(i + 1) % order.size()]];
    }
    return lines_;
  }

 private:
  Line* lines_;
};

double ns_per_load(int advice) {
  Memory memory(advice);
  const Line* line = memory.cycle();
  const Stopwatch stopwatch;
  for (int load = 0; load < loads; ++load) line = line->next;
  const double ns = stopwatch.elapsed_ns();
  require(line != nullptr, "the cycle has an end");
  return ns / loads;
}

}  // namespace

void measure_dependent_load(Results& results) {
  results.add("machine", "dependent_load", ns_per_load(MADV_NOHUGEPAGE));
  results.add("machine", "dependent_load_huge", ns_per_load(MADV_HUGEPAGE));
}

}  // namespace bench
