// Search. One descent serves the three key families; they differ in how a key is compared with a stored one.
//
// A handle that a writer may overtake (read-only, isolated) checks every link against the fronts before it
// follows it and gives up after 128 levels, which no balanced tree reaches: a search that races a rotation or
// a reset ends, maybe at a wrong place, and never leaves the segments. The caller's validation notices.
#include <cstring>

#include "base/fatal.h"
#include "rb.h"
#include "rb/node.h"

namespace cachet {

namespace {

constexpr int max_depth = 128;

struct Place {
  Rb_node node;
  bool found;
};

// `compare(node)` compares the searched key with an external node's.
template <bool checked, class Compare>
Place descend(Rb_base* base, Rb_node head, const Compare& compare) {
  const auto follow = [base](std::uint32_t link) { return !checked || is_node(base, link); };
  const std::uint32_t root = root_of(head);
  const std::uint32_t last = blink_of(head);
  if (!follow(root) || !follow(last)) return {head, false};
  if (node_at(base, root) == head) return {head, false};

  const Rb_node last_node = node_at(base, last);
  const int against_last = compare(last_node);
  if (against_last == 0) return {last_node, true};
  if (against_last > 0) return {head, false};

  Rb_node node = node_at(base, root);
  for (int depth = 0; is(node, RB_INTERNAL); ++depth) {
    const std::uint32_t lext = lext_of(node);
    if (checked && (depth == max_depth || !is_node(base, lext))) return {node, false};
    const Rb_node greatest_left = node_at(base, lext);
    const int order = compare(greatest_left);
    if (order == 0) return {greatest_left, true};
    const std::uint32_t child = child_of(node, order < 0);
    if (!follow(child)) return {node, false};
    node = node_at(base, child);
  }
  return {node, false};
}

template <class Compare>
Rb_node find(Rb_base* base, Rb_node head, int* found, const char* misuse, const Compare& compare) {
  *found = 0;
  if (!is(head, RB_HEAD)) fatal::tree_misuse(misuse, head);
  const Place place =
      checks_links(base) ? descend<true>(base, head, compare) : descend<false>(base, head, compare);
  *found = place.found ? 1 : 0;
  return place.node;
}

}  // namespace

}  // namespace cachet

using namespace cachet;

Rb_node rb_find_gkey_n(Rb_base* base, Rb_node head, void* key, Rb_compare compare, int* found) {
  // The text variant's message, on purpose.
  return find(base, head, found, fatal::find_key_on_non_head, [=](Rb_node node) {
    const std::int64_t stored = key_offset_of(node);
    if (checks_links(base) && !is_data(base, stored, 1)) return -1;
    return compare(base, key, address_of(base, FlatOffset{stored}));
  });
}

Rb_node rb_find_gkey(Rb_base* base, Rb_node head, void* key, Rb_compare compare) {
  int found = 0;
  return rb_find_gkey_n(base, head, key, compare, &found);
}

Rb_node rb_find_key_n(Rb_base* base, Rb_node head, char* key, int* found) {
  return find(base, head, found, fatal::find_key_on_non_head,
              [=](Rb_node node) { return std::strcmp(key, rb_key(base, node)); });
}

Rb_node rb_find_key(Rb_base* base, Rb_node head, char* key) {
  int found = 0;
  return rb_find_key_n(base, head, key, &found);
}

Rb_node rb_find_ikey_n(Rb_base* base, Rb_node head, int key, int* found) {
  return find(base, head, found, fatal::find_ikey_on_non_head, [=](Rb_node node) {
    const int stored = load_unaligned<int>(bytes_of(node) + offsetof(srb_node, k));
    return (key > stored) - (key < stored);
  });
}

Rb_node rb_find_ikey(Rb_base* base, Rb_node head, int key) {
  int found = 0;
  return rb_find_ikey_n(base, head, key, &found);
}
