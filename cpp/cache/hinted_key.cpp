#include "cache/hinted_key.h"

#include "accelerate/prefetch.h"

namespace cachet {

namespace {

__extension__ typedef unsigned __int128 Product;

std::uint32_t hash_of(const KeyBytes& bytes) noexcept {
  constexpr std::uint64_t seed = 0x9E3779B97F4A7C15, factor = 0xD6E8FEB86659FD93;
  std::uint64_t hash = seed + bytes.size();
  for (unsigned at = 0; at < bytes.size(); at += sizeof(std::uint64_t)) {
    const Product product = Product{hash ^ bytes.window(at)} * factor;
    hash = static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
  }
  return static_cast<std::uint32_t>(hash >> 32);
}

}  // namespace

HintedKey::HintedKey(Rb_base* base, const ZtTable& table, std::size_t indexid, const SearchKey& key)
    : base_(base), head_(table.indexs[indexid]), key_(key) {
  if (!features::hints || hint_limit() == 0) return;
  if (!key.is_exact() || table.indexdescrible[indexid].indextype != ZT_INDEX_UNIQUE) return;
  hints_ = &table.hints[indexid];
  hash_ = hash_of(key.bytes());
}

Rb_node HintedKey::find() {
  noted_.node_number = 0;
  if (hints_ == nullptr) return nullptr;
  era_ = Era::of(base_, head_);
  const Hint* const hint = hints_->find(era_, hash_);
  if (hint == nullptr) return nullptr;
  if (!is_node(base_, hint->node_number) || !is_data(base_, hint->key_offset, sizeof(ZtIndexItem)))
    return nullptr;
  const Rb_node node = node_at(base_, hint->node_number);
  char* const item = address_of(base_, FlatOffset{hint->key_offset});
  // The record lies behind the items of its keys: all three come together.
  prefetch(node);
  prefetch(item);
  prefetch(item + 64);
  const bool is_leaf = (status_of(node) & (RB_INTERNAL | RB_HEAD)) == 0;
  if (!is_leaf || key_offset_of(node) != hint->key_offset) return nullptr;
  return ZtComp(base_, key_.item(), item) == 0 ? node : nullptr;
}

void HintedKey::note(Rb_node node) {
  if (hints_ == nullptr) return;
  noted_ = {hash_, value_of(node_number_of(base_, node)), key_offset_of(node)};
}

void HintedKey::keep() {
  if (noted_.node_number != 0) hints_->remember(era_, noted_);
}

}  // namespace cachet
