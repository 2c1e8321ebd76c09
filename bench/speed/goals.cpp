// See goals.h.
#include "goals.h"

#include <cstdio>

namespace bench {
namespace {

constexpr char subject[] = "cachet";

// At most `factor` times what `system` takes for `reference`; without a system, at most so many nanoseconds.
struct Goal {
  const char* operation;
  const char* system;
  const char* reference;
  double factor;
  double factor_when_sorted;
};

constexpr Goal goals[] = {
    {"insert", "lmdb", "insert", 0.6, 0.6},
    {"insert", "absl-btree", "insert", 1.15, 1.15},
    {"get_id", "lmdb", "get_id", 0.4, 0.4},
    {"get_id", "absl-btree", "get_id", 1.1, 1.1},
    {"get_id", subject, "get_id_tenth", 2, 2},
    {"get_name", "lmdb", "get_name", 0.4, 0.4},
    {"get_name", "absl-btree", "get_name", 0.6, 0.6},
    {"get_id_cold_2k", "lmdb", "get_id_cold_2k", 0.8, 0.8},
    {"get_id_cold_50k", "lmdb", "get_id_cold_50k", 1.5, 1.5},
    {"batch16_id", "lmdb", "get_id", 0.25, 0.25},
    {"batch16_name", "lmdb", "get_name", 0.25, 0.25},
    {"range100", "lmdb", "range100", 2.0, 2.2},
    {"full_scan", "lmdb", "full_scan", 1.9, 1.4},
    {"update", "lmdb", "update", 0.25, 0.25},
    {"rollback", "sqlite-memory", "rollback", 0.05, 0.05},
    {"two_readers", "lmdb", "two_readers", 0.4, 0.4},
    {"reader_beside_writer", subject, "reader_alone", 1.3, 1.3},
    {"reader_beside_writer_p999", "", "", 20000, 20000},
    {"roundtrip_64", "unix-socket", "roundtrip_64", 0.05, 0.05},
    {"roundtrip_64_busy", "unix-socket", "roundtrip_64_busy", 1, 1},
    {"lock_unlock", "", "", 95, 95},
};

std::string text(const char* format, double value) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, format, value);
  return buffer;
}

std::string side(const Goal& goal) {
  const bool own = goal.system == std::string(subject);
  const bool same = goal.reference == std::string(goal.operation);
  return (own ? std::string("its own") : std::string(goal.system)) +
         (same ? std::string() : " " + std::string(goal.reference));
}

}  // namespace

std::vector<Verdict> judge(const Results& results, Order order) {
  std::vector<Verdict> verdicts;
  for (const Goal& goal : goals) {
    const double factor = order == Order::sorted ? goal.factor_when_sorted : goal.factor;
    const auto ours = results.median(subject, goal.operation);
    if (!ours) continue;
    if (*goal.system == '\0') {
      verdicts.push_back(
          {goal.operation, text("%.0f ns", *ours), text("<= %.0f ns", factor), *ours <= factor});
    } else if (const auto theirs = results.median(goal.system, goal.reference)) {
      const double ratio = *ours / *theirs;
      verdicts.push_back(
          {goal.operation, text("%.3f x ", ratio) + side(goal), text("<= %g", factor), ratio <= factor});
    }
  }
  return verdicts;
}

}  // namespace bench
