// Links and status of a tree node, read and written in place.
//
// Link words lie aligned and are atomics: a writer publishes a node by the one release store that makes it
// reachable, and a reader follows links with acquire loads. `k` and `v` of a node are written before the node
// is reachable, except v.rext, which only writers read.
#ifndef CACHET_CPP_RB_NODE_H
#define CACHET_CPP_RB_NODE_H

#include "rb.h"

namespace cachet {

inline char* bytes_of(Rb_node node) noexcept {
  return reinterpret_cast<char*>(node);
}

// The words of a node by name. `left` and `flink` share the first word, `right` and `blink` the second.
inline std::uint32_t left_of(Rb_node node) noexcept {
  return load_acquire<std::uint32_t>(bytes_of(node));
}
inline std::uint32_t right_of(Rb_node node) noexcept {
  return load_acquire<std::uint32_t>(bytes_of(node) + 4);
}
inline std::uint32_t parent_of(Rb_node node) noexcept {
  return load_acquire<std::uint32_t>(bytes_of(node) + 8);
}
inline std::uint32_t root_of(Rb_node head) noexcept {
  return parent_of(head);
}
inline std::uint32_t lext_of(Rb_node node) noexcept {
  return load_acquire_unaligned<std::uint32_t>(bytes_of(node) + offsetof(srb_node, k));
}

inline void set_flink(Rb_node node, std::uint32_t to) noexcept {
  store_release<std::uint32_t>(bytes_of(node), to);
}
inline void set_blink(Rb_node node, std::uint32_t to) noexcept {
  store_release<std::uint32_t>(bytes_of(node) + 4, to);
}
inline void set_parent(Rb_node node, std::uint32_t to) noexcept {
  store_release<std::uint32_t>(bytes_of(node) + 8, to);
}
inline void set_root(Rb_node head, std::uint32_t to) noexcept {
  set_parent(head, to);
}
inline void set_child(Rb_node node, bool left, std::uint32_t to) noexcept {
  store_release<std::uint32_t>(bytes_of(node) + (left ? 0 : 4), to);
}
// Without a branch: which way a search goes nobody can foretell.
inline std::uint32_t child_of(Rb_node node, bool left) noexcept {
  return load_acquire<std::uint32_t>(bytes_of(node) + (left ? 0 : sizeof(std::uint32_t)));
}

// 4 bytes each: the rest of the two 8-byte fields of an internal node stays zero.
inline void set_lext(Rb_node node, std::uint32_t to) noexcept {
  store_release_unaligned<std::uint32_t>(bytes_of(node) + offsetof(srb_node, k), to);
}
inline void set_rext(Rb_node node, std::uint32_t to) noexcept {
  store_release_unaligned<std::uint32_t>(bytes_of(node) + offsetof(srb_node, v), to);
}

inline bool is(Rb_node node, unsigned bits) noexcept {
  return (status_of(node) & bits) != 0;
}
inline void set_bits(Rb_node node, unsigned bits, bool on) noexcept {
  const unsigned now = status_of(node);
  store_release<std::uint8_t>(bytes_of(node) + offsetof(srb_node, s),
                              static_cast<std::uint8_t>(on ? now | bits : now & ~bits));
}

}  // namespace cachet

#endif
