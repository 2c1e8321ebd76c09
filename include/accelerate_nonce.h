// The nonce of a tree: a random number in its head that stays as long as the tree's nodes do.
//
// What a process keeps in its own memory about a tree (hints, packed levels) names nodes by number. Nodes are
// never freed, but a reset or a loaded image abandons them all, and their numbers come to mean others. So such
// knowledge counts only while the head still has the nonce under which it was gathered. The nonce takes the last
// eight bytes of the head's slot, which the tree leaves unused and clears whenever it makes a head:
//
//   byte    0            4           8      12  13            21      24            32
//           +------------+-----------+------+---+-------------+-------+-------------+
//   head    | first node | last node | root | s | 0           | 0     | nonce (8)   |
//           +------------+-----------+------+---+-------------+-------+-------------+
//
// 0 says that the tree has none: nothing is kept about it. Two writers that give one at the same time are no
// harm, since whoever has seen the first forgets what it knows at the sight of the second.
#ifndef CACHET_ACCELERATE_NONCE_H
#define CACHET_ACCELERATE_NONCE_H

#include <cstdint>

#include "rb.h"

namespace cachet {

enum class Nonce : std::uint64_t { none = 0 };

inline constexpr std::size_t nonce_at = 24;
static_assert(nonce_at + sizeof(Nonce) == slot_bytes);
static_assert(nonce_at > offsetof(srb_node, v), "the key field of a head stays zero");

inline Nonce nonce_of(const srb_node* head) noexcept {
  return Nonce{load_acquire<std::uint64_t>(reinterpret_cast<const char*>(head) + nonce_at)};
}

// When a tree was looked at: under which nonce, and how far the node area reached.
struct Era {
  Nonce nonce = Nonce::none;
  std::int64_t node_front = 0;

  [[gnu::always_inline]] static Era of(const Rb_base* base, const srb_node* head) noexcept {
    return {nonce_of(head), load_acquire<ZTINT8>(&base->memory->nodeoffset)};
  }
  // Whether what was known in this era counts in a later one, and moves it on. The node area never shrinks while the
  // nodes stay: a program that knows no nonces may have loaded an image that has this very one.
  bool goes_on_as(const Era& later) noexcept {
    if (later.nonce != nonce || later.node_front < node_front) return false;
    node_front = later.node_front;
    return true;
  }
};

// Gives the head another nonce; none in a build that keeps nothing about trees, or when the system has no random
// number for us. By a writer, or by whoever makes the head.
void renew_nonce(Rb_node head) noexcept;

// Gives the head a nonce if it has none.
inline void provide_nonce(Rb_node head) noexcept {
  if (nonce_of(head) == Nonce::none) [[unlikely]]
    renew_nonce(head);
}

}  // namespace cachet

#endif
