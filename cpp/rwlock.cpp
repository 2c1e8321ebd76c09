#include "rwlock.h"

#include <fcntl.h>
#include <unistd.h>

#include "base/file.h"

namespace {

constexpr int open_flags = O_RDWR | O_EXCL | O_NOCTTY;

bool set_lock(int descriptor, short type, long offset) {
  struct flock request = {};
  request.l_type = type;
  request.l_whence = SEEK_SET;
  request.l_start = offset;
  request.l_len = 1;
  request.l_pid = getpid();
  return fcntl(descriptor, F_SETLKW, &request) == 0;
}

}  // namespace

RWLock::RWLock(char* name) : m_hfile(cachet::open_key_file(name, open_flags).release()) {
  if (m_hfile >= 0) return;
  cachet::create_key_file(name, false, 0666);
  m_hfile = cachet::open_key_file(name, open_flags).release();
}

RWLock::~RWLock() {
  if (m_hfile >= 0) close(m_hfile);
}

bool RWLock::lock(int level, long offset, int /*timeout*/) {
  if (level != 1 && level != 2) return false;
  return set_lock(m_hfile, level == 1 ? F_RDLCK : F_WRLCK, offset);
}

bool RWLock::unlock(long offset) {
  set_lock(m_hfile, F_UNLCK, offset);
  return true;
}
