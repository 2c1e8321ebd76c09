// Insertion and balancing. Only the one writer calls it; readers may search and walk meanwhile.
//
// Publication order of an insertion, which readers rely on (docs/concurrency.md):
//   1. the new leaf's key and value, then its own list links;
//   2. the predecessor's flink, then the successor's blink: the leaf is in the list;
//   3. the new internal node, complete, then the link in its parent: the leaf is in the tree;
//   4. recolouring and rotations, each link one store; a search that races them may end at a wrong place.
#include "accelerate/separator.h"
#include "base/features.h"
#include "rb.h"
#include "rb/node.h"
#include "rb_insert.h"
#include "rb_stage.h"

namespace cachet {

namespace {

Rb_node parent_node(const Rb_base* base, Rb_node node) {
  return node_at(base, parent_of(node));
}
std::uint32_t number_of(const Rb_base* base, Rb_node node) {
  return value_of(node_number_of(base, node));
}

std::uint8_t with_bits(Rb_node node, unsigned bits, bool on) {
  const unsigned now = status_of(node);
  return static_cast<std::uint8_t>(on ? now | bits : now & ~bits);
}

// The word that holds a node's link to its child, or a head's to the root.
const char* child_link(Rb_node node, bool left) {
  return bytes_of(node) + (left ? 0 : 4);
}
const char* parent_link(Rb_node node) {
  return bytes_of(node) + 8;
}
const char* status_byte(Rb_node node) {
  return bytes_of(node) + offsetof(srb_node, s);
}

enum class Colours { keep, swap };

// Adds the rotation that lifts y's child x on the given side into y's place; with `swap` x becomes black and
// y red.
void add_rotation(Stage& stage, const Rb_base* base, Rb_node y, bool left, Colours colours) {
  const Rb_node x = node_at(base, child_of(y, left));
  const std::uint32_t inner = child_of(x, !left);
  const Rb_node inner_node = node_at(base, inner);
  const Rb_node above = parent_node(base, y);
  const bool y_was_root = is(y, RB_ROOT);
  const bool y_was_left = is(y, RB_LEFT);

  unsigned y_status = with_bits(y, RB_LEFT, !left);
  unsigned x_status = y_was_root ? with_bits(x, RB_ROOT, true) : with_bits(x, RB_LEFT, y_was_left);
  if (y_was_root) y_status &= ~unsigned{RB_ROOT | RB_HEAD};
  if (colours == Colours::swap) {
    y_status |= RB_RED;
    x_status &= ~unsigned{RB_RED};
  }

  stage.status(status_byte(inner_node), with_bits(inner_node, RB_LEFT, left));
  stage.link(parent_link(inner_node), number_of(base, y));
  stage.link(child_link(y, left), inner);
  stage.status(status_byte(y), static_cast<std::uint8_t>(y_status));
  stage.link(parent_link(y), number_of(base, x));
  stage.link(child_link(x, !left), number_of(base, y));
  stage.link(parent_link(x), number_of(base, above));
  stage.status(status_byte(x), static_cast<std::uint8_t>(x_status));
  stage.link(y_was_root ? parent_link(above) : child_link(above, y_was_left), number_of(base, x));
}

void make_black(Rb_node node) {
  set_bits(node, RB_RED, false);
}

// One recolouring round: x's parent and its sibling become black, their parent red. It depends on no colour, so
// that it can be repeated. Returns the new red node.
Rb_node pass_red_up(const Rb_base* base, Rb_node x) {
  const Rb_node parent = parent_node(base, x);
  const Rb_node grand = parent_node(base, parent);
  make_black(parent);
  make_black(node_at(base, child_of(grand, !is(parent, RB_LEFT))));
  set_bits(grand, RB_RED, true);
  return grand;
}

// Restores the colours above a new red node x. Every round is one stage; blackening the root at the end needs
// none, since whoever resumes does it again.
void recolour(const Rb_base* base, Rb_node x) {
  for (;;) {
    if (is(x, RB_ROOT)) return make_black(x);
    const Rb_node parent = parent_node(base, x);
    if (!is(parent, RB_RED)) return;
    if (is(parent, RB_ROOT)) return make_black(parent);

    const Rb_node grand = parent_node(base, parent);
    const Rb_node sibling = node_at(base, child_of(grand, !is(parent, RB_LEFT)));
    if (is(sibling, RB_RED)) {
      announce_round(base, number_of(base, x));
      x = pass_red_up(base, x);
      continue;
    }
    Stage stage(base);
    if (is(x, RB_LEFT) != is(parent, RB_LEFT)) {
      // x takes its parent's place and side; the round goes on from the former parent, now below it.
      add_rotation(stage, base, parent, is(x, RB_LEFT), Colours::keep);
      stage.run(number_of(base, parent));
      x = parent;
    } else {
      add_rotation(stage, base, grand, is(parent, RB_LEFT), Colours::swap);
      stage.run();
      return;
    }
  }
}

// The nearest ancestor that has `leaf` as the least of its right subtree, or the head.
Rb_node ancestor_before(const Rb_base* base, Rb_node leaf) {
  Rb_node node = leaf;
  while (!is(node, RB_ROOT) && is(node, RB_LEFT)) node = parent_node(base, node);
  return parent_node(base, node);
}

// A red internal node over (left, right), complete but not reachable yet, for the place where `replaced`
// hangs.
Rb_node make_internal(Rb_base* base, Rb_node left, Rb_node right, Rb_node replaced,
                      const Separator& separator) {
  const Rb_node node = reinterpret_cast<Rb_node>(Rb_node_malloc(base));
  const Rb_node parent = parent_node(base, replaced);
  set_bits(node, RB_INTERNAL | RB_RED, true);
  set_bits(node, is(parent, RB_HEAD) ? RB_ROOT : RB_LEFT, is(parent, RB_HEAD) || is(replaced, RB_LEFT));
  set_child(node, true, number_of(base, left));
  set_child(node, false, number_of(base, right));
  set_lext(node, number_of(base, left));
  set_rext(node, number_of(base, right));
  set_parent(node, number_of(base, parent));
  if constexpr (features::separators) write_separator(node, separator);
  return node;
}

// Puts the leaf and its neighbour, the leaf that the search ended at, under a new internal node.
void link_beside(Rb_base* base, Stage& stage, Rb_node leaf, Rb_node neighbour, bool leaf_first,
                 const Separator& separator) {
  const Rb_node parent = parent_node(base, neighbour);
  const bool neighbour_was_left = is(neighbour, RB_LEFT);
  const Rb_node internal = leaf_first ? make_internal(base, leaf, neighbour, neighbour, separator)
                                      : make_internal(base, neighbour, leaf, neighbour, separator);
  const std::uint32_t number = number_of(base, internal);
  set_bits(leaf, RB_LEFT, leaf_first);
  set_parent(leaf, number);

  unsigned status = with_bits(neighbour, RB_LEFT, !leaf_first);
  status &= ~unsigned{RB_ROOT | RB_HEAD};
  stage.status(status_byte(neighbour), static_cast<std::uint8_t>(status));
  if (leaf_first) {
    // The leaf is the new least of the right subtree whose least was its neighbour.
    const Rb_node ancestor = ancestor_before(base, neighbour);
    if (!is(ancestor, RB_HEAD)) stage.link(bytes_of(ancestor) + offsetof(srb_node, v), number_of(base, leaf));
  }
  stage.link(parent_link(neighbour), number);
  stage.link(is(parent, RB_HEAD) ? parent_link(parent) : child_link(parent, neighbour_was_left), number);
  stage.run(number);
  recolour(base, internal);
}

Rb_node insert_leaf(Rb_base* base, Rb_node successor, std::int64_t key, std::int64_t value,
                    const Separator& separator) {
  const Rb_node leaf = reinterpret_cast<Rb_node>(Rb_node_malloc(base));
  store_unaligned<std::int64_t>(bytes_of(leaf) + offsetof(srb_node, v), value);
  store_unaligned<std::int64_t>(bytes_of(leaf) + offsetof(srb_node, k), key);
  const std::uint32_t number = number_of(base, leaf);
  const Rb_node predecessor = node_at(base, blink_of(successor));
  set_blink(leaf, blink_of(successor));
  set_flink(leaf, number_of(base, successor));

  Stage stage(base);
  stage.link(child_link(predecessor, true), number);  // flink
  stage.link(child_link(successor, false), number);   // blink
  const bool at_end = is(successor, RB_HEAD);
  if (at_end && predecessor == successor) {
    set_parent(leaf, number_of(base, successor));
    set_bits(leaf, RB_ROOT, true);
    stage.link(parent_link(successor), number);  // the head's root
    stage.run();
  } else {
    link_beside(base, stage, leaf, at_end ? predecessor : successor, !at_end, separator);
  }
  return leaf;
}

}  // namespace

}  // namespace cachet

void cachet::resume_recolouring(Rb_base* base, std::uint32_t node_number, bool in_round) {
  const Rb_node node = node_at(base, node_number);
  recolour(base, in_round ? pass_red_up(base, node) : node);
}

Rb_node cachet::insert_before(Rb_base* base, Rb_node node, void* key, void* value,
                              const Separator& separator) {
  return insert_leaf(base, node, value_of(offset_of(base, key)), value_of(offset_of(base, value)), separator);
}

using namespace cachet;

// Keys of any order of their own: no separator.
Rb_node rb_insert_b(Rb_base* base, Rb_node node, void* key, void* value) {
  return insert_before(base, node, key, value, Separator{});
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
                     value_of(offset_of(base, value)), Separator{});
}
