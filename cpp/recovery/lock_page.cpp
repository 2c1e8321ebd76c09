#include "lock_page.h"

namespace cachet {

namespace {

bool make_robust(pthread_mutex_t& mutex) {
  pthread_mutexattr_t attributes;
  if (pthread_mutexattr_init(&attributes) != 0) return false;
  const bool made = pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED) == 0 &&
                    pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST) == 0 &&
                    pthread_mutex_init(&mutex, &attributes) == 0;
  pthread_mutexattr_destroy(&attributes);
  return made;
}

}  // namespace

bool prepare(LockPage& page) {
  for (SlotSection& section : page.sections) {
    if (!make_robust(section.mutex)) return false;
    section.record.claimed = -1;
    section.record.erased = -1;
  }
  if (!make_robust(page.cleaner)) return false;
  store_release<std::uint64_t>(&page.magic, lock_page_magic);
  return true;
}

}  // namespace cachet
