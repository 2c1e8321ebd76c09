#include "memchanel/box.h"

#include <sched.h>
#include <sys/shm.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "memchanel/wait.h"
#include "shared_word.h"
#include "vemroprotocol/frame.h"

namespace cachet::mailbox {

namespace {

enum State : std::int32_t { empty = 0, full = 1, awaited = 2 };

constexpr int state_at = 4;
constexpr int frame_at = 8;

// A lock is held while a frame is copied. Whoever does not get it in so many tries has met a holder without a
// processor, or without a life.
constexpr int hasty_tries = 50;
constexpr int microseconds_between_patient_tries = 1000;
// So many of those later the held lock itself tells that the other side was there, if only to die.
constexpr int tries_before_doubt = 100;

// Nobody holds a lock that long who means well.
constexpr int longest_put_ms = 10'000;

// How long a lost post can delay a getter.
constexpr int slice_ms = 200;

constexpr int without_limit = -1;

int failure(int error, int result) {
  errno = error;
  return result;
}

// Taken out of the system under this side's feet: it lasts only as long as somebody is attached.
bool is_removed(int segment) {
  shmid_ds status;
  return shmctl(segment, IPC_STAT, &status) != 0 || (status.shm_perm.mode & SHM_DEST) != 0;
}

}  // namespace

std::int32_t* Box::state() const {
  return reinterpret_cast<std::int32_t*>(memory_ + state_at);
}

char* Box::slot() const {
  return memory_ + frame_at;
}

bool Box::has_room_for(_VEMROMSG* msg) const {
  const int length = VemroGetMsgLen(msg);
  return frame::is_body_length(length) && VEMRO_HEAD_BYTES + length <= known_.room;
}

bool Box::put(_VEMROMSG* msg) {
  Deadline deadline(longest_put_ms);
  if (memory_ == nullptr || lock(deadline) != Locked::yes) return false;
  std::memcpy(slot(), msg, static_cast<std::size_t>(frame::bytes_of(msg)));
  const std::int32_t before = load_relaxed<std::int32_t>(state());
  store_relaxed<std::int32_t>(state(), full);
  lock_.Unlock();
  if (before == awaited) reader_.Release();
  return true;
}

int Box::get(_VEMROMSG* msg, int ms) {
  if (memory_ == nullptr) return failure(EINVAL, 0);
  if (ms < without_limit) ms = 0;
  if (ms != 0) wait_awake(state(), full, known_.habit);
  Deadline deadline(ms);
  int result = ms == 0 ? failure(EAGAIN, 0) : 1;  // of the sleep; 1: there is time for another one
  for (;;) {
    const int error = errno;
    const Locked locked = lock(deadline);
    if (locked == Locked::holder_gone) return failure(EOWNERDEAD, -1);
    if (locked == Locked::out_of_time) return failure(EAGAIN, 0);
    if (load_relaxed<std::int32_t>(state()) == full) return take(msg);
    store_relaxed<std::int32_t>(state(), result == 1 ? awaited : empty);
    lock_.Unlock();
    if (result != 1) return failure(error, result);
    result = sleep(deadline);
  }
}

// With the lock held, which it gives back. The other side may write all the same: what counts is the copy.
int Box::take(_VEMROMSG* msg) {
  std::memcpy(&msg->head, slot(), sizeof msg->head);
  std::atomic_signal_fence(std::memory_order_seq_cst);
  const bool fits = has_room_for(msg);
  if (fits) {
    std::memcpy(msg->body.buffer, slot() + VEMRO_HEAD_BYTES, static_cast<std::size_t>(VemroGetMsgLen(msg)));
  }
  store_relaxed<std::int32_t>(state(), empty);
  lock_.Unlock();
  channel_.m_seen_other.store(true, std::memory_order_relaxed);
  return fits ? 1 : failure(EBADMSG, -1);
}

// 1 for a wake-up, or the end of a slice with time left; otherwise the failed wait's result, with its errno.
int Box::sleep(Deadline& deadline) {
  const int rest_ms = deadline.rest_ms();
  if (rest_ms == 0) return failure(EAGAIN, 0);
  const bool is_last = rest_ms > 0 && rest_ms <= slice_ms;
  const int result = reader_.Wait(is_last ? rest_ms : slice_ms);
  return result == 0 && errno == EAGAIN && !is_last ? 1 : result;
}

Box::Locked Box::lock(Deadline& deadline) {
  for (int i = 0; i < hasty_tries; ++i) {
    if (lock_.TryLock()) return Locked::yes;
    sched_yield();
  }
  return lock_patiently(deadline);
}

Box::Locked Box::lock_patiently(Deadline& deadline) {
  for (int tries = 0; !lock_.TryLock(); ++tries) {
    if (tries >= tries_before_doubt) {
      channel_.m_seen_other.store(true, std::memory_order_relaxed);
      if (channel_.OtherSideLeft() || is_removed(known_.segment)) return Locked::holder_gone;
    }
    if (deadline.has_passed()) return Locked::out_of_time;
    usleep(microseconds_between_patient_tries);
  }
  return Locked::yes;
}

}  // namespace cachet::mailbox
