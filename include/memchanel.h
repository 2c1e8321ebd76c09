// Cztmemchanel: a request box and an answer box in shared memory, between an isolated client and its manager.
//
// Each box is a segment of its own with room for one frame, guarded by a spin lock, and a semaphore for a reader that
// waits:
//
//   0        4       8                              8 + memsize
//   +--------+-------+------------------------------+
//   | lock   | state | frame: 10-byte head, body    |
//   +--------+-------+------------------------------+
//     state: 0 = empty, 1 = a frame is in it, 2 = empty and a reader waits on the semaphore
//
// A box has one putter and one getter at a time; a frame that nobody has taken is replaced by the next one. Nothing
// that the other side writes makes this side read or write outside of its message and the segment.
#ifndef CACHET_MEMCHANEL_H
#define CACHET_MEMCHANEL_H

#include <sys/types.h>

#include "cachet.h"
#include "spinlock.h"
#include "vemroprotocol.h"
#include "ztmem.h"
#include "ztsema.h"

class CACHET_API Cztmemchanel {
 public:
  Cztmemchanel();
  // Closes and deletes, whichever side this is. An object that was never opened removes nothing, and in a child made by
  // fork one that the parent opened only detaches.
  virtual ~Cztmemchanel();
  Cztmemchanel(const Cztmemchanel&) = delete;
  Cztmemchanel& operator=(const Cztmemchanel&) = delete;

  // The manager's side: makes both boxes with room for frames of `memsize` bytes (8202 for every frame there is) and
  // their semaphores. `name`: at most 190 bytes, the start of four key files' names. On failure it prints one line that
  // names the object, and leaves what it made.
  bool Create(const char* name, int keyid, int memsize, int semacount);
  // The client's side: opens what Create made.
  bool Open(const char* name, int keyid);

  // Puts a frame, sealed, into the box, over one that is there. False for a frame that does not fit the message or the
  // box, without a box, and when the box's lock stays held by a side that is gone.
  bool PutRequest(_VEMROMSG* msg);
  bool PutAnswer(_VEMROMSG* msg);

  // Takes the frame out of the box, waiting at most `ms` milliseconds (-1: without limit) for one. The box is empty
  // afterwards.
  //   1: a good frame, in host order.
  //   0: no frame; errno is EAGAIN when the time ran out, EINVAL when the semaphore is gone.
  //  -1: with errno EBADMSG a frame that failed its check, its version or its length; `msg` has its head, and its body
  //      unless the length was wrong. With any other errno (EINTR: interrupted) there was no frame.
  int GetRequest(_VEMROMSG* msg, int ms);
  int GetAnswer(_VEMROMSG* msg, int ms);

  // Whether another process was attached to the boxes once, as seen by this call and earlier ones, and none is now.
  bool OtherSideLeft();

  // Detaches both boxes and removes the semaphores, which ends the other side's waits.
  void Close();
  // Removes what is left in the system: boxes that nobody is attached to, semaphores, key files.
  void Delete();

  Cztshamem m_shmem_r;
  Cztshamem m_shmem_a;
  Cztsema m_sema_r;
  Cztsema m_sema_a;
  Cspinlock m_lock_r;
  Cspinlock m_lock_a;

 private:
  pid_t m_opener;     // the process that opened it; 0 for none
  bool m_seen_other;  // the other side was attached at some time
};

#endif
