// One box of a mailbox, with the order in which its two sides touch it. The layout is drawn in include/memchanel.h.
//
//   put   1 take the lock   2 copy the frame   3 state 1   4 give the lock back   5 the state was 2: post the semaphore
//   get   1 wait awake for state 1   2 take the lock   3 state 1: copy the frame, state 0, give the lock back, done
//         4 otherwise state 2, give the lock back, sleep on the semaphore, again from 2
//
// A post is only a hint: it may be left over from a getter whose time ran out while the putter was between 3 and 5, and
// it never comes from a putter that died there. So whatever ends a getter's sleep, it looks at the state under the lock;
// and it sleeps in slices. It leaves without a frame only after it has seen, under the lock, that there is none.
#ifndef CACHET_CPP_MEMCHANEL_BOX_H
#define CACHET_CPP_MEMCHANEL_BOX_H

#include "memchanel.h"

namespace cachet::mailbox {

class Deadline;

// A view, made for one call.
class Box {
 public:
  Box(Cztmemchanel& channel, Cztshamem& segment, Cztsema& reader, Cspinlock& lock, Cztmemchanel::Known& known)
      : channel_(channel), memory_(segment.m_p), reader_(reader), lock_(lock), known_(known) {}

  // Whether the frame of a message, in whatever order, fits the message and the box.
  bool has_room_for(_VEMROMSG* msg) const;
  // Puts the frame of a sealed message. False without a box, or when the lock cannot be had.
  bool put(_VEMROMSG* msg);
  // Takes a frame as it lies there. The results are those of Cztmemchanel's Get, before the frame's check.
  int get(_VEMROMSG* msg, int ms);

 private:
  enum class Locked { yes, out_of_time, holder_gone };

  std::int32_t* state() const;
  char* slot() const;
  Locked lock(Deadline& deadline);
  Locked lock_patiently(Deadline& deadline);
  int take(_VEMROMSG* msg);
  int sleep(Deadline& deadline);

  Cztmemchanel& channel_;
  char* memory_;
  Cztsema& reader_;
  Cspinlock& lock_;
  Cztmemchanel::Known& known_;
};

}  // namespace cachet::mailbox

#endif
