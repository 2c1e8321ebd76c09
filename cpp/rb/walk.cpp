// Walking the threaded leaves, and the two diagnostics.
#include "base/fatal.h"
#include "rb.h"
#include "rb/node.h"

using namespace cachet;

Rb_node rb_first(Rb_base* base, Rb_node head) {
  return node_at(base, flink_of(head));
}
Rb_node rb_last(Rb_base* base, Rb_node head) {
  return node_at(base, blink_of(head));
}
Rb_node rb_next(Rb_base* base, Rb_node node) {
  return node_at(base, flink_of(node));
}
Rb_node rb_prev(Rb_base* base, Rb_node node) {
  return node_at(base, blink_of(node));
}
bool rb_empty(Rb_base* base, Rb_node head) {
  return rb_first(base, head) == head;
}

char* rb_key(Rb_base* base, Rb_node node) {
  return address_of(base, FlatOffset{key_offset_of(node)});
}
char* rb_val(Rb_base* base, Rb_node node) {
  return address_of(base, FlatOffset{value_offset_of(node)});
}

namespace {

template <class Counts>
int count_upward(Rb_base* base, Rb_node leaf, const char* misuse, const Counts& counts) {
  if (is(leaf, RB_INTERNAL | RB_HEAD)) fatal::tree_misuse(misuse, leaf);
  int count = 0;
  for (Rb_node node = leaf; !is(node, RB_HEAD); node = node_at(base, parent_of(node))) {
    if (counts(node)) ++count;
  }
  return count;
}

}  // namespace

int rb_nblack(Rb_base* base, Rb_node node) {
  return count_upward(base, node, fatal::nblack_of_non_external,
                      [](Rb_node each) { return !is(each, RB_RED); });
}

int rb_plength(Rb_base* base, Rb_node node) {
  return count_upward(base, node, fatal::plength_of_non_external, [](Rb_node) { return true; });
}
