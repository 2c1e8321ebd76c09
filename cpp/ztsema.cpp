#include "ztsema.h"

#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>

#include "base/file.h"

namespace {

constexpr int semaphores_per_set = 10;
constexpr int without_limit = -1;

std::string key_file_name(const char* name, int semid) {
  return std::string(name) + std::to_string(semid / semaphores_per_set) + ".sem";
}

// Makes the key file unless it is there; an existing one is left as it is.
bool ensure_key_file(const std::string& path) {
  if (cachet::open_key_file(path.c_str(), O_RDWR)) return true;
  return static_cast<bool>(cachet::create_key_file(path.c_str(), false, 0600));
}

sembuf change_by(int member, short units) {
  return sembuf{static_cast<unsigned short>(member), units, 0};
}

}  // namespace

Cztsema::Cztsema() : m_sempid(-1), m_sempno(-1) {}
Cztsema::~Cztsema() = default;

bool Cztsema::Create(const char* name, int keyid, int semid, int /*maxvalue*/) {
  m_name = key_file_name(name, semid);
  const bool has_file = ensure_key_file(m_name);
  const key_t key = has_file ? ftok(m_name.c_str(), keyid) : -1;
  if (key == -1) {
    Delete();
    return false;
  }
  m_sempid = semget(key, semaphores_per_set, IPC_CREAT | 0777);
  if (m_sempid < 0) {
    std::printf("create sema name=%s,errno=%d\n", m_name.c_str(), errno);
    Delete();
    return false;
  }
  m_sempno = semid % semaphores_per_set;
  return true;
}

bool Cztsema::Open(const char* name, int keyid, int semid) {
  m_name = key_file_name(name, semid);
  if (!ensure_key_file(m_name)) return false;
  const key_t key = ftok(m_name.c_str(), keyid);
  if (key == -1) return false;
  m_sempid = semget(key, 0, 0);
  m_sempno = semid % semaphores_per_set;
  return m_sempid >= 0;
}

int Cztsema::Wait(int ms) {
  sembuf take = change_by(m_sempno, -1);
  int result;
  if (ms == without_limit) {
    result = semop(m_sempid, &take, 1);
  } else {
    const timespec limit{ms / 1000, ms % 1000 * 1000000L};
    result = semtimedop(m_sempid, &take, 1, &limit);
  }
  if (result == 0) return 1;
  return errno == EAGAIN || errno == EINVAL ? 0 : -1;
}

bool Cztsema::Release() {
  sembuf give = change_by(m_sempno, 1);
  return semop(m_sempid, &give, 1) == 0;
}

void Cztsema::Close() {
  if (m_sempid >= 0) semctl(m_sempid, 0, IPC_RMID);
  m_sempid = -1;
}

void Cztsema::Delete() {
  if (!m_name.empty()) unlink(m_name.c_str());
}
