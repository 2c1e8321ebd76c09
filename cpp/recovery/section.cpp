#include <immintrin.h>

#include <cerrno>

#include "lock_section.h"

namespace cachet {

namespace {

constexpr std::int32_t mark = 1 << 29;
constexpr std::int32_t taken = mark + 1;
constexpr int tries_before_sleep = 100;
constexpr int pauses_before_yield = 64;

std::atomic_ref<std::int32_t> word_of(LockPage& page, int lockid) {
  return shared_word<std::int32_t>(&page.slots[lockid].spin);
}

void take_word(LockPage& page, int lockid, Cspinlock& yielding) {
  const auto word = word_of(page, lockid);
  for (int pauses = 1;; ++pauses) {
    std::int32_t free = 0;
    if (word.load(std::memory_order_relaxed) == 0 &&
        word.compare_exchange_strong(free, taken, std::memory_order_acquire)) {
      return;
    }
    _mm_pause();
    if (pauses % pauses_before_yield == 0) yielding.Snap();
  }
}

void give_word_back(LockPage& page, int lockid) {
  word_of(page, lockid).fetch_sub(taken, std::memory_order_release);
}

// Others, who know only the word, add 1 and take it off again while they try: that leaves the mark alone.
bool dead_holds_word(LockPage& page, int lockid) {
  return word_of(page, lockid).load() >= mark;
}

// The next holder of the mutex finishes what the dead one began. Every step may be repeated: if this process
// dies too, the mutex says so to the next one.
void inherit(LockPage& page, int lockid, SlotHeir& heir) {
  SlotSection& section = page.sections[lockid];
  if (load_acquire<std::int32_t>(&section.record.active) != 0) {
    heir.finish(lockid, section.record);
    store_release<std::int32_t>(&section.record.active, 0);
  }
  heir.wake(lockid);
  if (dead_holds_word(page, lockid)) give_word_back(page, lockid);
  pthread_mutex_consistent(&section.mutex);
}

}  // namespace

bool lock_robust(pthread_mutex_t& mutex) {
  for (int i = 0; i < tries_before_sleep; ++i) {
    const int result = pthread_mutex_trylock(&mutex);
    if (result != EBUSY) return result == EOWNERDEAD;
    _mm_pause();
  }
  return pthread_mutex_lock(&mutex) == EOWNERDEAD;
}

Section::Section(LockPage& page, int lockid, Cspinlock& word, SlotHeir& heir)
    : page_(page), lockid_(lockid), word_(word), heir_(heir) {
  enter();
}

Section::~Section() {
  leave();
}

void Section::enter() {
  if (!is_recoverable(page_)) {
    word_.Lock();
    return;
  }
  if (lock_robust(page_.sections[lockid_].mutex)) inherit(page_, lockid_, heir_);
  take_word(page_, lockid_, word_);
}

void Section::leave() {
  if (!is_recoverable(page_)) {
    word_.Unlock();
    return;
  }
  give_word_back(page_, lockid_);
  pthread_mutex_unlock(&page_.sections[lockid_].mutex);
}

void Section::announce(const SectionRecord& record) {
  SectionRecord& target = page_.sections[lockid_].record;
  store_release<std::int32_t>(&target.active, 0);
  target.pid = record.pid;
  target.tid = record.tid;
  target.writers_holding = record.writers_holding;
  target.writers_waiting = record.writers_waiting;
  target.readers_holding = record.readers_holding;
  target.readers_waiting = record.readers_waiting;
  target.claimed = record.claimed;
  target.erased = record.erased;
  target.erased_pid = record.erased_pid;
  target.erased_tid = record.erased_tid;
  store_release<std::int32_t>(&target.active, 1);
}

void Section::done() {
  store_release<std::int32_t>(&page_.sections[lockid_].record.active, 0);
}

}  // namespace cachet
