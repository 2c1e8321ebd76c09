// Who is calling: process and kernel thread id, asked for once per thread and again in a forked child.
#ifndef CACHET_CPP_BASE_THREAD_IDENTITY_H
#define CACHET_CPP_BASE_THREAD_IDENTITY_H

namespace cachet {

struct ThreadIdentity {
  int pid;
  int tid;
  bool operator==(const ThreadIdentity&) const = default;
};

const ThreadIdentity& this_thread();

// True when no process has this id any more. A zombie, and a process that may not be signalled, still count
// as there.
bool is_gone(unsigned long pid);

}  // namespace cachet

#endif
