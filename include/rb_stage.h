// Stages: how a structure in shared memory changes so that a process may die between any two stores.
//
// The stores of one step (a leaf linked, one recolouring round, one rotation, a list append, an unlink) are
// collected first. With a log they are written, as final values, into the idle one of its two records; one
// store makes that record the current one; then they are carried out in order. Whoever takes over from a dead
// writer carries the current record out again, which changes nothing that was done already, and goes on where
// the record says. Without a log (no lock page, or somebody else's work in it) the stores are carried out
// directly.
#ifndef CACHET_RB_STAGE_H
#define CACHET_RB_STAGE_H

#include <cstdint>
#include <optional>

#include "rb.h"
#include "stage_log.h"

namespace cachet {

class Stage {
 public:
  explicit Stage(const Rb_base* base) : base_(base) {}

  // Adds a store of a 4-byte link, or of a status byte, at an address of the flat space.
  void link(const void* address, std::uint32_t value) { add(address, value, 4); }
  void status(const void* address, std::uint8_t value) { add(address, value, 1); }

  // Publishes what was added, and carries it out.
  void run(std::uint32_t resume_at = 0);

 private:
  void add(const void* address, std::uint32_t value, std::uint32_t width_bytes) {
    stores_[count_++] = {value_of(offset_of(base_, address)), value, width_bytes};
  }
  void publish(StageLog& log, std::uint32_t resume_at) const;

  const Rb_base* base_;
  int count_ = 0;
  StagedStore stores_[StageRecord::max_stores];
};

// Publishes that the recolouring round at the node is under way. Its stores are few, and most frequent: they are not
// written out.
inline void announce_round(const Rb_base* base, std::uint32_t node_number) noexcept {
  if (base->stages == nullptr) return;
  StageLog& log = *base->stages;
  const std::uint32_t idle = log.current == 1 ? 2 : 1;
  StageRecord& record = log.records[idle - 1];
  record.count = StageRecord::round;
  record.step = base->stage_step;
  record.resume_at = node_number;
  store_release<std::uint32_t>(&log.current, idle);
}

// Carries the log's current record out once more and finishes its step; none when there is no current record,
// or when its stores do not lie in the flat space.
CACHET_API std::optional<int> redo_current_step(Rb_base* base);

// Goes on with an insertion that was interrupted behind a stage, or (`in_round`) inside a recolouring round.
void resume_recolouring(Rb_base* base, std::uint32_t node_number, bool in_round);

}  // namespace cachet

#endif
