// A searched key and the hints of its index (accelerate_hints.h): taking one, proving it, learning what a search has
// found.
//
// A hint must never show in a result. So it counts for keys alone that can be equal to one node's only; that node is
// compared with the key; and a place is kept only behind the validation of the read that found it. What a hint names
// lies inside the memory: it did when it was learnt, and a handle's memory keeps its size.
//
// Only on handles whose segments lie side by side, as they do but where no room for that was left.
#ifndef CACHET_CPP_CACHE_HINTED_KEY_H
#define CACHET_CPP_CACHE_HINTED_KEY_H

#include "accelerate/prefetch.h"
#include "base/features.h"
#include "cache/entry.h"
#include "cache/equal_keys.h"
#include "cache/key_hash.h"

namespace cachet {

// Asks for the leaf, whose entry mostly lies in the slot in front of it; for the key, with its field in front of it; and
// for the record, which mostly lies as far behind the key as others do.
[[gnu::always_inline]] inline void fetch_hinted(const FlatSpace& space, const Hint& hint,
                                                std::int32_t to_record, int record_bytes) noexcept {
  constexpr std::int64_t field_bytes = 16;
  const char* const leaf = reinterpret_cast<const char*>(space.node(hint.node_number));
  const char* const item = space.at(hint.key_offset);
  prefetch(leaf);
  prefetch(leaf - slot_bytes);
  prefetch(item - field_bytes);
  prefetch(item + sizeof(ZtIndexItem) - 1);
  prefetch(item + to_record);
  prefetch(item + to_record + record_bytes - 1);
}

// Whether the hint's node is still the leaf that it was.
[[gnu::always_inline]] inline bool leads_to_leaf(const FlatSpace& space, const Hint& hint) noexcept {
  const srb_node* const node = space.node(hint.node_number);
  return (status_of(node) & (RB_INTERNAL | RB_HEAD)) == 0 && key_offset_of(node) == hint.key_offset;
}

class HintedKey {
 public:
  // `key` outlives it. Asks for the hint's cache line.
  HintedKey(Rb_base* base, const ZtTable& table, std::size_t indexid, const ZtIndexItem* key) noexcept
      : base_(base),
        space_(base),
        head_(table.indexs[indexid]),
        key_(key),
        record_bytes_(stored_bytes(table)) {
    if (!features::hints || hint_limit() == 0 || !space_) return;
    exact_ = exact_key(table, indexid, *key);
    if (!exact_.is_exact) return;
    hints_ = &table.hints[indexid];
    if (const void* const line = hints_->place_of(exact_.hash)) prefetch(line);
  }

  // In two steps, so that many keys can take them together. The first asks for what the hint names.
  void take_hint() noexcept {
    if (hints_ == nullptr) return;
    era_ = Era::of(base_, head_);
    taken_ = hints_->find(era_, exact_.hash);
    if (taken_ == nullptr) return;
    fetch_hinted(space_, *taken_, hints_->keys.to_record, record_bytes_);
  }
  // The second gives the node that holds the key; null when there was no hint, or it does not hold. `checked` is
  // checks_links(base).
  template <bool checked>
  Rb_node prove() const noexcept {
    if (taken_ == nullptr || !leads_to_leaf(space_, *taken_)) return nullptr;
    const bool holds =
        equal_keys<checked>(base_, *key_, exact_, space_.at(taken_->key_offset), record_bytes_);
    return holds ? space_.node(taken_->node_number) : nullptr;
  }

  // What a search that has found the key teaches.
  LearntHint learn(Rb_node node) const noexcept {
    if (hints_ == nullptr) return {};
    const std::int64_t key_offset = key_offset_of(node);
    if (!is_data(base_, key_offset, sizeof(ZtIndexItem))) return {};
    return {hints_,
            era_,
            {exact_.hash, value_of(node_number_of(base_, node)), key_offset},
            to_record(key_offset)};
  }

 private:
  // 0 when it has none.
  std::int32_t to_record(std::int64_t key_offset) const noexcept {
    const std::uint32_t first =
        CurrentList::head(reinterpret_cast<const ZtIndexItem*>(space_.at(key_offset)));
    return is_node(base_, first)
               ? static_cast<std::int32_t>(record_offset_of(entry_at(base_, first)) - key_offset)
               : 0;
  }

  Rb_base* base_;
  FlatSpace space_;
  Rb_node head_;
  const ZtIndexItem* key_;
  int record_bytes_;
  ExactKey exact_;
  HintTable* hints_ = nullptr;   // null: not a key for hints
  const Hint* taken_ = nullptr;  // a hint for the key's hash
  Era era_;                      // as `take_hint` has seen it
};

}  // namespace cachet

#endif
