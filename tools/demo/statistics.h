// How often something was done and how long it took: a histogram of fixed size that fits into shared memory.
//
// Buckets grow with the value (kPerPower to each power of two), so a percentile is off by 3 % at most.
#ifndef CACHET_TOOLS_DEMO_STATISTICS_H
#define CACHET_TOOLS_DEMO_STATISTICS_H

#include <array>
#include <atomic>
#include <bit>
#include <chrono>
#include <cstdint>

namespace demo {

using Clock = std::chrono::steady_clock;

class Latencies {
 public:
  void add(Clock::duration duration) {
    const int64_t ns = std::chrono::duration_cast<std::chrono::nanoseconds>(duration).count();
    ++buckets_[bucket_of(static_cast<uint64_t>(ns))];
    count_.fetch_add(1, std::memory_order_relaxed);
  }

  int64_t count() const { return count_.load(std::memory_order_relaxed); }

  // The duration that `share` (0 to 1) of all stayed below; 0 when there was none.
  double percentile_us(double share) const {
    const double wanted = share * static_cast<double>(count());
    int64_t below = 0;
    for (size_t bucket = 0; bucket < buckets_.size(); ++bucket) {
      below += buckets_[bucket];
      if (below > 0 && static_cast<double>(below) >= wanted) {
        return static_cast<double>(upper_end_ns(bucket)) / 1000.0;
      }
    }
    return 0;
  }

 private:
  static size_t bucket_of(uint64_t ns) {
    if (ns < kPerPower) return ns;
    const unsigned power = static_cast<unsigned>(std::bit_width(ns)) - 6;  // the width of the power's buckets
    const size_t bucket = kPerPower * power + (ns >> power);
    return bucket < kBuckets ? bucket : kBuckets - 1;
  }
  static uint64_t upper_end_ns(size_t bucket) {
    if (bucket < 2 * kPerPower) return bucket;
    const size_t power = bucket / kPerPower - 1;
    return ((bucket - kPerPower * power + 1) << power) - 1;
  }

  static constexpr size_t kPerPower = 32;
  static constexpr size_t kBuckets = kPerPower * 36;
  std::array<int64_t, kBuckets> buckets_{};
  std::atomic<int64_t> count_{0};  // others watch it while the owner adds
};

}  // namespace demo

#endif
