// Shared<T>: a value that forked children share with their parent, zeroed at first; and a patient look at it.
#ifndef CACHET_TESTS_SUPPORT_SHARED_H
#define CACHET_TESTS_SUPPORT_SHARED_H

#include <poll.h>
#include <sched.h>
#include <sys/mman.h>

#include <new>

namespace cachet::test {

template <class T>
class Shared {
 public:
  Shared()
      : value_(new (mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
                   T()) {}
  ~Shared() { munmap(value_, sizeof(T)); }
  Shared(const Shared&) = delete;
  Shared& operator=(const Shared&) = delete;
  T* operator->() const { return value_; }
  T& operator*() const { return *value_; }

 private:
  T* value_;
};

// Looks again and again, giving the processor away in between; false when `condition` never came true.
template <class Condition>
bool eventually(Condition condition) {
  for (int look = 0; look < 60000; ++look) {
    if (condition()) return true;
    look < 1000 ? sched_yield() : poll(nullptr, 0, 1);
  }
  return false;
}

}  // namespace cachet::test

#endif
