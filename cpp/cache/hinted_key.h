// A searched key and the hints of its index (accelerate_hints.h): taking one, proving it, learning what a search has
// found.
//
// A hint must never show in a result. So it counts for keys alone that can be equal to one node's only; that node is
// compared with the key; and a place is kept only behind the validation of the read that found it. What a hint names
// lies inside the memory: it did when it was learnt, and a handle's memory keeps its size.
#ifndef CACHET_CPP_CACHE_HINTED_KEY_H
#define CACHET_CPP_CACHE_HINTED_KEY_H

#include "accelerate/prefetch.h"
#include "base/features.h"
#include "cache/compare_keys.h"
#include "cache/key_hash.h"

namespace cachet {

class HintedKey {
 public:
  // `key` outlives it. Asks for the hint's cache line.
  [[gnu::always_inline]] HintedKey(Rb_base* base, const ZtTable& table, std::size_t indexid,
                                   const ZtIndexItem* key) noexcept
      : base_(base), head_(table.indexs[indexid]), key_(key) {
    KeyHash hash;
    if (!features::hints || hint_limit() == 0 || !hash_exact_key(table, indexid, *key, hash)) return;
    hints_ = &table.hints[indexid];
    hash_ = hash.value();
    if (const void* const line = hints_->place_of(hash_)) prefetch(line);
  }

  // The node that holds the key, if a hint leads to it; null when there is none, or it does not hold.
  [[gnu::always_inline]] Rb_node find() noexcept {
    take_hint();
    return prove();
  }

  // `find` in its two steps, so that many keys can take them together: the first asks for what the hint names.
  [[gnu::always_inline]] void take_hint() noexcept {
    if (hints_ == nullptr) return;
    era_ = Era::of(base_, head_);
    taken_ = hints_->find(era_, hash_);
    if (taken_ == nullptr) return;
    fetch_leaf(node_at(base_, taken_->node_number));
    fetch_row(address_of(base_, FlatOffset{taken_->key_offset}));
  }
  [[gnu::always_inline]] Rb_node prove() const noexcept {
    if (taken_ == nullptr) return nullptr;
    const Rb_node node = node_at(base_, taken_->node_number);
    const bool is_leaf = (status_of(node) & (RB_INTERNAL | RB_HEAD)) == 0;
    if (!is_leaf || key_offset_of(node) != taken_->key_offset) return nullptr;
    const void* const item = address_of(base_, FlatOffset{taken_->key_offset});
    const bool holds =
        checks_links(base_) ? equal_keys<true>(base_, *key_, item) : equal_keys<false>(base_, *key_, item);
    return holds ? node : nullptr;
  }

  // What a search that has found the key teaches.
  LearntHint learn(Rb_node node) const noexcept {
    if (hints_ == nullptr) return {};
    const std::int64_t key_offset = key_offset_of(node);
    if (!is_data(base_, key_offset, sizeof(ZtIndexItem))) return {};
    return {hints_, era_, {hash_, value_of(node_number_of(base_, node)), key_offset}};
  }

 private:
  // The leaf's entry mostly lies in the slot in front of it.
  static void fetch_leaf(Rb_node leaf) noexcept {
    prefetch(leaf);
    prefetch(reinterpret_cast<const char*>(leaf) - slot_bytes);
  }
  // A key, its fields in front of it, and the record, which lies behind the items of its keys.
  static void fetch_row(const char* item) noexcept {
    prefetch(item - sizeof(ZtIndexField));
    prefetch(item + 48);
    prefetch(item + 112);
  }

  Rb_base* base_;
  Rb_node head_;
  const ZtIndexItem* key_;
  HintTable* hints_ = nullptr;   // null: not a key for hints
  const Hint* taken_ = nullptr;  // a hint for the key's hash
  Era era_;                      // as `take_hint` has seen it
  std::uint32_t hash_ = 0;
};

}  // namespace cachet

#endif
