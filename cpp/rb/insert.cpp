// Insertion and balancing. Only the one writer calls it; readers may search and walk meanwhile.
//
// Publication order of an insertion, which readers rely on (docs/concurrency.md):
//   1. the new leaf's key and value, then its own list links;
//   2. the predecessor's flink, then the successor's blink: the leaf is in the list;
//   3. the new internal node, complete, then the link in its parent: the leaf is in the tree;
//   4. recolouring and rotations, each link one store; a search that races them may end at a wrong place.
#include "rb.h"
#include "rb/node.h"

namespace cachet {

namespace {

Rb_node parent_node(const Rb_base* base, Rb_node node) {
  return node_at(base, parent_of(node));
}
std::uint32_t number_of(const Rb_base* base, Rb_node node) {
  return value_of(node_number_of(base, node));
}

// A child's parent and side, without the parent's own link to it.
void hang_below(const Rb_base* base, Rb_node child, Rb_node parent, bool left) {
  set_bits(child, RB_LEFT, left);
  set_parent(child, number_of(base, parent));
}

// Lifts y's child on the given side into y's place.
void rotate(const Rb_base* base, Rb_node y, bool left) {
  const Rb_node x = node_at(base, child_of(y, left));
  const std::uint32_t above = parent_of(y);
  const bool y_was_root = is(y, RB_ROOT);
  const bool y_was_left = is(y, RB_LEFT);

  const std::uint32_t inner = child_of(x, !left);
  hang_below(base, node_at(base, inner), y, left);
  set_child(y, left, inner);

  hang_below(base, y, x, !left);
  set_child(x, !left, number_of(base, y));

  set_parent(x, above);
  if (y_was_root) {
    set_bits(y, RB_ROOT | RB_HEAD, false);
    set_bits(x, RB_ROOT, true);
    set_root(node_at(base, above), number_of(base, x));
  } else {
    set_bits(x, RB_LEFT, y_was_left);
    set_child(node_at(base, above), y_was_left, number_of(base, x));
  }
}

// Restores the colours above a new red node x.
void recolour(const Rb_base* base, Rb_node x) {
  for (;;) {
    if (is(x, RB_ROOT)) return set_bits(x, RB_RED, false);
    const Rb_node parent = parent_node(base, x);
    if (!is(parent, RB_RED)) return;
    if (is(parent, RB_ROOT)) return set_bits(parent, RB_RED, false);

    const Rb_node grand = parent_node(base, parent);
    const Rb_node sibling = node_at(base, child_of(grand, !is(parent, RB_LEFT)));
    if (is(sibling, RB_RED)) {
      set_bits(parent, RB_RED, false);
      set_bits(sibling, RB_RED, false);
      set_bits(grand, RB_RED, true);
      x = grand;
      continue;
    }

    Rb_node top = parent;
    if (is(x, RB_LEFT) != is(parent, RB_LEFT)) {
      rotate(base, parent, is(x, RB_LEFT));
      top = x;  // x has taken parent's place and side
    }
    rotate(base, grand, is(top, RB_LEFT));
    set_bits(top, RB_RED, false);
    set_bits(grand, RB_RED, true);
    return;
  }
}

// Puts a red internal node over (left, right) where `replaced`, one of the two and a leaf of the tree, hung.
void insert_internal(Rb_base* base, Rb_node left, Rb_node right, Rb_node replaced) {
  const Rb_node parent = parent_node(base, replaced);
  const bool is_left = is(replaced, RB_LEFT);
  const Rb_node node = reinterpret_cast<Rb_node>(Rb_node_malloc(base));
  set_bits(node, RB_INTERNAL | RB_RED, true);
  set_child(node, true, number_of(base, left));
  set_child(node, false, number_of(base, right));
  set_lext(node, number_of(base, left));
  set_rext(node, number_of(base, right));
  set_parent(node, number_of(base, parent));
  hang_below(base, left, node, true);
  hang_below(base, right, node, false);
  if (is(parent, RB_HEAD)) {
    set_bits(node, RB_ROOT, true);
    set_root(parent, number_of(base, node));
  } else {
    set_bits(node, RB_LEFT, is_left);
    set_child(parent, is_left, number_of(base, node));
  }
  recolour(base, node);
}

// The nearest ancestor that has `leaf` in its right subtree and no leaf before it there, or the head.
Rb_node ancestor_before(const Rb_base* base, Rb_node leaf) {
  Rb_node node = leaf;
  while (!is(node, RB_ROOT) && is(node, RB_LEFT)) node = parent_node(base, node);
  return parent_node(base, node);
}

void link_into_list(const Rb_base* base, Rb_node leaf, Rb_node successor) {
  const std::uint32_t before = blink_of(successor);
  set_blink(leaf, before);
  set_flink(leaf, number_of(base, successor));
  set_flink(node_at(base, before), number_of(base, leaf));
  set_blink(successor, number_of(base, leaf));
}

Rb_node insert_leaf(Rb_base* base, Rb_node successor, std::int64_t key, std::int64_t value) {
  const Rb_node leaf = reinterpret_cast<Rb_node>(Rb_node_malloc(base));
  store_unaligned<std::int64_t>(bytes_of(leaf) + offsetof(srb_node, v), value);
  store_unaligned<std::int64_t>(bytes_of(leaf) + offsetof(srb_node, k), key);
  const bool at_end = is(successor, RB_HEAD);
  const bool was_empty = at_end && node_at(base, blink_of(successor)) == successor;
  link_into_list(base, leaf, successor);

  if (was_empty) {
    set_parent(leaf, number_of(base, successor));
    set_bits(leaf, RB_ROOT, true);
    set_root(successor, number_of(base, leaf));
    return leaf;
  }

  // The leaf joins its neighbour under a new internal node: the last leaf when it goes to the end.
  const Rb_node neighbour = at_end ? node_at(base, blink_of(leaf)) : successor;
  set_bits(neighbour, RB_ROOT | RB_HEAD, false);
  if (at_end) {
    insert_internal(base, neighbour, leaf, neighbour);
  } else {
    insert_internal(base, leaf, neighbour, neighbour);
  }
  // The leaf is the new least of the right subtree whose least was its neighbour. A leaf at the end is the
  // greatest of no left subtree.
  if (!at_end) {
    const Rb_node ancestor = ancestor_before(base, leaf);
    if (!is(ancestor, RB_HEAD)) set_rext(ancestor, number_of(base, leaf));
  }
  return leaf;
}

}  // namespace

}  // namespace cachet

using namespace cachet;

Rb_node rb_insert_b(Rb_base* base, Rb_node node, void* key, void* value) {
  return insert_leaf(base, node, value_of(offset_of(base, key)), value_of(offset_of(base, value)));
}

Rb_node rb_insert_a(Rb_base* base, Rb_node node, void* key, void* value) {
  return rb_insert_b(base, rb_next(base, node), key, value);
}

Rb_node rb_insertg(Rb_base* base, Rb_node head, void* key, void* value, Rb_compare compare) {
  return rb_insert_b(base, rb_find_gkey(base, head, key, compare), key, value);
}

Rb_node rb_insert(Rb_base* base, Rb_node head, char* key, void* value) {
  return rb_insert_b(base, rb_find_key(base, head, key), key, value);
}

// The integer itself is the key, in the first 4 of the 8 key bytes.
Rb_node rb_inserti(Rb_base* base, Rb_node head, int key, void* value) {
  return insert_leaf(base, rb_find_ikey(base, head, key), static_cast<std::uint32_t>(key),
                     value_of(offset_of(base, value)));
}
