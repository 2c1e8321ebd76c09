// The allocator: node slots, data blocks and tree heads. Only the one writer calls it. A block is zeroed
// before its front is published, so whoever sees the new front sees zeros and not what a reset left there.
#include <cstring>

#include "accelerate/prefetch.h"
#include "base/fatal.h"
#include "rb.h"
#include "rb/node.h"
#include "rb_fronts.h"

using namespace cachet;

// What the next inserts write is asked for while this one is under way: on either side a few rows' worth.
constexpr std::int64_t ahead_bytes = 1024;

char* Rb_node_malloc(Rb_base* base) {
  Fronts fronts = Fronts::of(base);
  const std::int64_t slot = fronts.take_node();
  if (slot < 0) fatal::out_of_shared_memory("Rb_node_malloc");
  char* const address = address_of(base, FlatOffset{slot});
  prefetch(address + ahead_bytes);
  std::memset(address, 0, slot_bytes);
  store_release<ZTINT8>(&base->memory->nodeoffset, fronts.node);
  return address;
}

char* Rb_data_malloc(Rb_base* base, int size, int aligsize, bool alig) {
  Fronts fronts = Fronts::of(base);
  const std::int64_t block = fronts.take_data(size, aligsize, alig);
  if (block < 0) fatal::out_of_shared_memory("Rb_data_malloc");
  char* const address = address_of(base, FlatOffset{block});
  prefetch(address - ahead_bytes);
  std::memset(address, 0, static_cast<std::size_t>(round_up(size, 8)));
  store_release<ZTINT8>(&base->memory->dataoffset, fronts.data);
  return address;
}

// An empty tree: the head is its own first and last node and its own root. A reset makes heads where heads
// lie, under the eyes of readers: the slot is not zeroed first, so that it is a head at every moment.
Rb_node make_rb_ext(Rb_base* base) {
  Fronts fronts = Fronts::of(base);
  const std::int64_t slot = fronts.take_node();
  if (slot < 0) fatal::out_of_shared_memory("Rb_node_malloc");
  const Rb_node head = reinterpret_cast<Rb_node>(address_of(base, FlatOffset{slot}));
  const std::uint32_t self = value_of(node_number_of(base, head));
  store_release<std::uint8_t>(bytes_of(head) + offsetof(srb_node, s), RB_HEAD);
  set_flink(head, self);
  set_blink(head, self);
  set_root(head, self);
  std::memset(bytes_of(head) + offsetof(srb_node, k), 0, slot_bytes - offsetof(srb_node, k));
  store_release<ZTINT8>(&base->memory->nodeoffset, fronts.node);
  base->memory->rb_count += 1;
  return head;
}

Rb_node make_rb(Rb_base* base) {
  if (!base->exist) return make_rb_ext(base);
  const std::int64_t slot = next_node_slot(base->nodeoffset);
  base->nodeoffset = slot + slot_bytes;
  base->rb_count += 1;
  return reinterpret_cast<Rb_node>(address_of(base, FlatOffset{slot}));
}
