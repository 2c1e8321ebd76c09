#include <algorithm>

#include "rb_stage.h"

namespace cachet {

namespace {

[[gnu::always_inline]] inline void carry_out(char* address, const StagedStore& store) {
  if (store.width_bytes == 1) {
    store_release<std::uint8_t>(address, static_cast<std::uint8_t>(store.value));
  } else {
    store_release_unaligned<std::uint32_t>(address, store.value);
  }
}

bool is_sound(const Rb_base* base, const StageRecord& record) {
  if (record.count == StageRecord::round) return is_node(base, record.resume_at);
  if (record.count > StageRecord::max_stores) return false;
  for (int index = 0; index < record.count; ++index) {
    const StagedStore& store = record.stores[index];
    const auto width = static_cast<std::int64_t>(store.width_bytes);
    if (store.offset < static_cast<std::int64_t>(sizeof(Rb_memory)) ||
        store.offset > base->attached_bytes - width) {
      return false;
    }
  }
  return record.resume_at == 0 || is_node(base, record.resume_at);
}

}  // namespace

// The idle record gets everything before one store makes it the current one.
void Stage::publish(StageLog& log, std::uint32_t resume_at) const {
  const std::uint32_t idle = log.current == 1 ? 2 : 1;
  StageRecord& record = log.records[idle - 1];
  record.count = static_cast<std::uint16_t>(count_);
  record.step = base_->stage_step;
  record.resume_at = resume_at;
  std::copy(stores_, stores_ + count_, record.stores);
  store_release<std::uint32_t>(&log.current, idle);
}

void Stage::run(std::uint32_t resume_at) {
  if (base_->stages != nullptr) publish(*base_->stages, resume_at);
  const FlatSpace space(base_);
  for (int index = 0; index < count_; ++index) {
    const StagedStore& store = stores_[index];
    carry_out(space ? space.at(store.offset) : address_of(base_, FlatOffset{store.offset}), store);
  }
}

std::optional<int> redo_current_step(Rb_base* base) {
  const std::uint32_t current = load_acquire<std::uint32_t>(&base->stages->current);
  if (current != 1 && current != 2) return std::nullopt;
  const StageRecord record = base->stages->records[current - 1];
  if (!is_sound(base, record)) return std::nullopt;
  base->stage_step = record.step;
  const bool in_round = record.count == StageRecord::round;
  for (int index = 0; !in_round && index < record.count; ++index) {
    const StagedStore& store = record.stores[index];
    carry_out(address_of(base, FlatOffset{store.offset}), store);
  }
  if (record.resume_at != 0) resume_recolouring(base, record.resume_at, in_round);
  return record.step;
}

}  // namespace cachet
