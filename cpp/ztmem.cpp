#include "ztmem.h"

#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/file.h"

namespace {

constexpr std::size_t least_bytes = 4096;

// False when the name does not fit.
bool keep_name(char (&kept)[200], const char* name) {
  const std::size_t length = std::strlen(name);
  if (length >= sizeof kept) return false;
  std::memcpy(kept, name, length + 1);
  return true;
}

unsigned long attachments_of(int id) {
  struct shmid_ds status;
  return shmctl(id, IPC_STAT, &status) == 0 ? status.shm_nattch : 0;
}

// Removes a segment that a dead process left under this key. False when somebody is attached to it.
bool clear_leftover(key_t key, const char* name) {
  const int id = shmget(key, least_bytes, 0666);
  if (id < 0) return true;
  if (attachments_of(id) != 0) {
    std::printf("sha name=%s exist=%d\n", name, id);
    return false;
  }
  shmctl(id, IPC_RMID, nullptr);
  return true;
}

char* attach(int id) {
  void* const address = shmat(id, nullptr, 0);
  return address == reinterpret_cast<void*>(-1) ? nullptr : static_cast<char*>(address);
}

}  // namespace

Cztshamem::Cztshamem() : m_shamemid(-1), m_name{}, m_hfile(-1), m_p(nullptr), m_keyid(0) {}
Cztshamem::~Cztshamem() = default;

bool Cztshamem::Create(const char* name, int keyid, int size, bool /*portable_shm*/) {
  if (!keep_name(m_name, name)) return false;
  if (!cachet::create_key_file(name, true, 0600)) return false;
  m_keyid = keyid;
  const key_t key = ftok(name, keyid);
  if (key == -1 || !clear_leftover(key, name)) return false;

  m_shamemid = shmget(key, static_cast<std::size_t>(size), IPC_CREAT | IPC_EXCL | 0666);
  if (m_shamemid < 0) {
    std::printf("create2 sha name=%s,errno=%d\n", name, errno);
    Delete();
    return false;
  }
  m_p = attach(m_shamemid);
  if (m_p == nullptr) {
    std::printf("create3 sha name=%s,errno=%d\n", name, errno);
    Close(false);
    Delete();
    return false;
  }
  return true;
}

bool Cztshamem::Open(const char* name, int keyid, bool /*portable_shm*/) {
  if (!keep_name(m_name, name)) return false;
  // Held open until the segment is attached, so that its inode, and with it the key, is nobody else's meanwhile.
  const cachet::Descriptor key_file = cachet::open_key_file(name, O_RDONLY | O_EXCL | O_NOCTTY);
  if (!key_file) return false;
  m_keyid = keyid;
  const key_t key = ftok(name, keyid);
  if (key == -1) return false;
  m_shamemid = shmget(key, least_bytes, 0666);
  if (m_shamemid < 0) return false;
  m_p = attach(m_shamemid);
  if (m_p == nullptr || !is_named()) {
    Close(false);
    return false;
  }
  return true;
}

long Cztshamem::bytes() const {
  struct shmid_ds status;
  return m_shamemid >= 0 && shmctl(m_shamemid, IPC_STAT, &status) == 0 ? static_cast<long>(status.shm_segsz)
                                                                       : 0;
}

bool Cztshamem::is_named() const {
  const key_t key = m_shamemid >= 0 ? ftok(m_name, m_keyid) : -1;
  return key != -1 && shmget(key, 0, 0) == m_shamemid;
}

int Cztshamem::usercount() {
  return m_shamemid < 0 ? 0 : static_cast<int>(attachments_of(m_shamemid));
}

void Cztshamem::Close(bool /*portable_shm*/) {
  if (m_p != nullptr) shmdt(m_p);
  m_p = nullptr;
  struct shmid_ds status;
  if (m_shamemid >= 0 && shmctl(m_shamemid, IPC_STAT, &status) == 0 && status.shm_nattch == 0) {
    shmctl(m_shamemid, IPC_RMID, nullptr);
    Delete();
  }
  m_shamemid = -1;
}

void Cztshamem::Delete() {
  if (m_name[0] != 0) unlink(m_name);
}
