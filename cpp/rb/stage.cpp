#include "rb_stage.h"

namespace cachet {

namespace {

void carry_out(const Rb_base* base, const StageRecord& record) {
  for (int index = 0; index < record.count; ++index) {
    const StagedStore& store = record.stores[index];
    char* const address = address_of(base, FlatOffset{store.offset});
    if (store.width_bytes == 1) {
      store_release<std::uint8_t>(address, static_cast<std::uint8_t>(store.value));
    } else {
      store_release_unaligned<std::uint32_t>(address, store.value);
    }
  }
}

// The idle record gets everything before one store makes it the current one.
void publish(StageLog& log, const StageRecord& record) {
  const std::uint32_t idle = log.current == 1 ? 2 : 1;
  StageRecord& target = log.records[idle - 1];
  target.count = record.count;
  target.step = record.step;
  target.resume_at = record.resume_at;
  for (int index = 0; index < record.count; ++index) {
    target.stores[index] = record.stores[index];
  }
  store_release<std::uint32_t>(&log.current, idle);
}

bool is_sound(const Rb_base* base, const StageRecord& record) {
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

void Stage::run(std::uint32_t resume_at) {
  record_.resume_at = resume_at;
  record_.step = base_->stage_step;
  if (base_->stages != nullptr) publish(*base_->stages, record_);
  carry_out(base_, record_);
}

std::optional<int> redo_current_step(Rb_base* base) {
  const std::uint32_t current = load_acquire<std::uint32_t>(&base->stages->current);
  if (current != 1 && current != 2) return std::nullopt;
  const StageRecord record = base->stages->records[current - 1];
  if (!is_sound(base, record)) return std::nullopt;
  base->stage_step = record.step;
  carry_out(base, record);
  if (record.resume_at != 0) resume_recolouring(base, record.resume_at);
  return record.step;
}

}  // namespace cachet
