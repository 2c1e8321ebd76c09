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
// that the other side writes makes this side read or write outside of its message and the segment, and a side that
// died, whatever it held or was about to do, blocks the other one for a second or so, not for ever.
#ifndef CACHET_MEMCHANEL_H
#define CACHET_MEMCHANEL_H

#include <sys/types.h>

#include <atomic>
#include <cstdint>

#include "cachet.h"
#include "spinlock.h"
#include "vemroprotocol.h"
#include "ztmem.h"
#include "ztsema.h"

namespace cachet::mailbox {

class Box;

// What the getter of a box has learned of waiting awake.
struct Habit {
  // What it does without, until when (CLOCK_MONOTONIC), and how long that was; 0 after it has paid.
  struct Rest {
    std::int64_t end_ns = 0;
    std::int64_t length_ns = 0;
  };
  Rest from_waiting;    // it sleeps at once
  Rest from_yields;     // it does not give the processor away in between
  int hasty_waits = 0;  // so many more in which it gives the processor away almost at once
};

}  // namespace cachet::mailbox

class CACHET_API Cztmemchanel {
 public:
  Cztmemchanel();
  // Closes and deletes, whichever side this is. An object that was never opened removes nothing, and in a child made by
  // fork one that the parent opened only detaches.
  virtual ~Cztmemchanel();
  Cztmemchanel(const Cztmemchanel&) = delete;
  Cztmemchanel& operator=(const Cztmemchanel&) = delete;

  // The manager's side: makes both boxes with room for frames of `memsize` bytes (8202 for every frame there is; Open
  // finds no box with less than 4088) and their semaphores. `name`: at most 194 bytes, the start of four key files'
  // names. On failure it prints one line that names the object, and leaves what it made before until Close and Delete.
  bool Create(const char* name, int keyid, int memsize, int semacount);
  // The client's side: opens what Create made. A failed call leaves everything as it was.
  bool Open(const char* name, int keyid);

  // Puts a frame, sealed, into the box, over one that is there. False for a frame that does not fit the message or the
  // box, without a box, and when the box's lock stays held: by a side that is gone, in a box that was removed, or for
  // ten seconds. May run in one thread while another one gets.
  bool PutRequest(_VEMROMSG* msg);
  bool PutAnswer(_VEMROMSG* msg);

  // Takes the frame out of the box, waiting at most `ms` milliseconds (-1: without limit) for one. The box is empty
  // afterwards.
  //   1: a good frame, in host order.
  //   0: no frame; errno is EAGAIN when the time ran out, EINVAL when the semaphore, or this side's box, is gone.
  //  -1: with errno EBADMSG a frame that failed its check, its version or its length; `msg` has its head, and its body
  //      unless the length was wrong. With any other errno there was no frame: EINTR, the wait was interrupted; EIDRM,
  //      the other side closed meanwhile; EOWNERDEAD, the lock stays held by a side that is gone, or in a box that was
  //      removed.
  int GetRequest(_VEMROMSG* msg, int ms);
  int GetAnswer(_VEMROMSG* msg, int ms);

  // Whether somebody else was attached to the boxes once, and nobody is now. What this object can have noticed counts:
  // an attachment at Open or at a call of this function, a frame that came, a lock that stayed held. A child that the
  // other side made by fork stands for it.
  bool OtherSideLeft();

  // Detaches both boxes and removes the semaphores, which ends the other side's waits. The last side to detach removes
  // the boxes.
  void Close();
  // Removes what is left in the system: boxes (whoever is attached keeps the memory until it detaches), semaphores, key
  // files.
  void Delete();

  Cztshamem m_shmem_r;
  Cztshamem m_shmem_a;
  Cztsema m_sema_r;
  Cztsema m_sema_a;
  Cspinlock m_lock_r;
  Cspinlock m_lock_a;

 private:
  friend class cachet::mailbox::Box;

  // What this side knows about a box.
  struct Known {
    int segment = -1;  // System V id, until it is deleted
    int room = 0;      // bytes for a frame
    cachet::mailbox::Habit habit;
  };

  cachet::mailbox::Box request_box();
  cachet::mailbox::Box answer_box();
  bool is_mine() const;
  void bind();
  void detach();

  pid_t m_opener;                  // the process that opened it; 0 for none
  std::atomic<bool> m_seen_other;  // the other side was there at some time
  Known m_known_r;
  Known m_known_a;
};

#endif
