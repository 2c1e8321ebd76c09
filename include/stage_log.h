// The log of staged changes: two records, of which one word names the current one. It lies in the lock page;
// the trees and lists write it (rb_stage.h).
#ifndef CACHET_STAGE_LOG_H
#define CACHET_STAGE_LOG_H

#include <cstddef>
#include <cstdint>

namespace cachet {

// One store: where in the flat space, and the final value. `width_bytes` is 1 or 4.
struct StagedStore {
  std::int64_t offset;
  std::uint32_t value;
  std::uint32_t width_bytes;
};
static_assert(sizeof(StagedStore) == 16);

struct StageRecord {
  static constexpr int max_stores = 14;
  // In place of a count: one recolouring round at `resume_at`, whose final colours follow from the links alone.
  static constexpr std::uint16_t round = 0xffff;
  std::uint16_t count;
  std::uint16_t step;       // which part of the whole work this belongs to: the index, for an insert
  std::uint32_t resume_at;  // node that recolouring goes on from; 0 = nothing is left of this step
  StagedStore stores[max_stores];
};
static_assert(sizeof(StageRecord) == 8 + 14 * 16);

struct StageLog {
  std::uint32_t current;  // 0 = none, 1 or 2 = that record
  std::uint32_t unused;
  StageRecord records[2];
};
static_assert(sizeof(StageLog) == 8 + 2 * sizeof(StageRecord) && offsetof(StageLog, records) == 8);

}  // namespace cachet

#endif
