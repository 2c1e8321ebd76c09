#include "rb_stage.h"

namespace cachet {

namespace {

void carry_out(char* address, std::uint32_t value, std::uint32_t width_bytes) {
  if (width_bytes == 1) {
    store_release<std::uint8_t>(address, static_cast<std::uint8_t>(value));
  } else {
    store_release_unaligned<std::uint32_t>(address, value);
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
  const char* const flat_begin = base_->flat_begin;  // asked once for all stores
  for (int index = 0; index < count_; ++index) {
    const Change& change = changes_[index];
    const auto* const address = static_cast<const char*>(change.address);
    record.stores[index].offset =
        flat_begin != nullptr ? address - flat_begin : value_of(offset_of(base_, address));
    record.stores[index].value = change.value;
    record.stores[index].width_bytes = change.width_bytes;
  }
  store_release<std::uint32_t>(&log.current, idle);
}

void Stage::run(std::uint32_t resume_at) {
  if (base_->stages != nullptr) publish(*base_->stages, resume_at);
  for (int index = 0; index < count_; ++index) {
    const Change& change = changes_[index];
    carry_out(const_cast<char*>(static_cast<const char*>(change.address)), change.value, change.width_bytes);
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
    carry_out(address_of(base, FlatOffset{store.offset}), store.value, store.width_bytes);
  }
  if (record.resume_at != 0) resume_recolouring(base, record.resume_at, in_round);
  return record.step;
}

}  // namespace cachet
