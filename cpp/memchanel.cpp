// The mailbox's System V objects, their life, and its four ways; what happens in a box is in memchanel/box.cpp.
//
// Only the process that opened a channel removes something: m_opener says which one that is.
#include "memchanel.h"

#include <sys/shm.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>

#include "memchanel/box.h"
#include "vemroprotocol/frame.h"

using namespace cachet;

namespace {

constexpr int box_head_bytes = 8;
constexpr int semaphore_number = 1;

// "<name><suffix>", which must fit a segment's name.
class ObjectName {
 public:
  ObjectName(const char* name, const char* suffix)
      : fits_(name != nullptr &&
              std::snprintf(text_, sizeof text_, "%s%s", name, suffix) < int{sizeof text_}) {}

  bool fits() const { return fits_; }
  operator const char*() const { return text_; }

 private:
  char text_[sizeof Cztshamem::m_name] = {};
  bool fits_;
};

// The four objects' names.
struct Names {
  explicit Names(const char* name)
      : answer(name, ".asha"),
        request(name, ".rsha"),
        answer_reader(name, ".a"),
        request_reader(name, ".r") {}

  bool fit() const { return answer.fits(); }

  ObjectName answer;
  ObjectName request;
  ObjectName answer_reader;
  ObjectName request_reader;
};

bool create_fails(const char* name) {
  std::printf("create %s fail\n", name);
  return false;
}

// A new segment is all zeros: the lock is free, the box empty. The name of one that was not made may be another
// channel's, and is forgotten.
bool create_segment(Cztshamem& segment, const char* name, int keyid, int memsize) {
  if (segment.Create(name, keyid, memsize + box_head_bytes, false)) return true;
  segment.m_name[0] = 0;
  return create_fails(name);
}

bool create_semaphore(Cztsema& semaphore, const char* name, int keyid, int semacount) {
  return semaphore.Create(name, keyid, semaphore_number, semacount) || create_fails(name);
}

int room_of(const Cztshamem& segment) {
  const long room = segment.bytes() - box_head_bytes;
  return room < 0 ? 0 : room > INT_MAX ? INT_MAX : static_cast<int>(room);
}

// Leaves the segment to others, and forgets it.
void detach_segment(Cztshamem& segment) {
  if (segment.m_p != nullptr) shmdt(segment.m_p);
  segment.m_p = nullptr;
  segment.m_shamemid = -1;
  segment.m_name[0] = 0;
}

void forget(Cztsema& semaphore) {
  semaphore.m_sempid = -1;
  semaphore.m_name.clear();
}

// Whoever is attached to the segment keeps its memory.
void remove_segment(Cztshamem& segment, int id) {
  if (id >= 0) shmctl(id, IPC_RMID, nullptr);
  segment.Delete();
  segment.m_name[0] = 0;
}

void remove_semaphore(Cztsema& semaphore) {
  semaphore.Close();
  semaphore.Delete();
  semaphore.m_name.clear();
}

int checked(int result, bool (*open_frame)(_VEMROMSG*), _VEMROMSG* msg) {
  if (result != 1 || open_frame(msg)) return result;
  errno = EBADMSG;
  return -1;
}

}  // namespace

Cztmemchanel::Cztmemchanel() : m_opener(0), m_seen_other(false) {}

Cztmemchanel::~Cztmemchanel() {
  Close();
  Delete();
}

bool Cztmemchanel::Create(const char* name, int keyid, int memsize, int semacount) {
  Close();
  m_opener = getpid();
  const Names names(name);
  if (!names.fit() || memsize < VEMRO_HEAD_BYTES || memsize > INT_MAX - box_head_bytes) {
    return create_fails(names.answer);
  }
  if (!create_segment(m_shmem_a, names.answer, keyid, memsize)) return false;
  m_known_a.segment = m_shmem_a.m_shamemid;
  if (!create_segment(m_shmem_r, names.request, keyid, memsize)) return false;
  m_known_r.segment = m_shmem_r.m_shamemid;
  if (!create_semaphore(m_sema_a, names.answer_reader, keyid, semacount)) return false;
  if (!create_semaphore(m_sema_r, names.request_reader, keyid, semacount)) return false;
  bind();
  return true;
}

bool Cztmemchanel::Open(const char* name, int keyid) {
  Close();
  const Names names(name);
  if (!names.fit() || !m_shmem_a.Open(names.answer, keyid, false) ||
      !m_shmem_r.Open(names.request, keyid, false) ||
      !m_sema_a.Open(names.answer_reader, keyid, semaphore_number) ||
      !m_sema_r.Open(names.request_reader, keyid, semaphore_number)) {
    detach();
    return false;
  }
  m_opener = getpid();
  bind();
  OtherSideLeft();
  return true;
}

void Cztmemchanel::bind() {
  m_known_r = {m_shmem_r.m_shamemid, room_of(m_shmem_r), {}};
  m_known_a = {m_shmem_a.m_shamemid, room_of(m_shmem_a), {}};
  m_lock_r.Set(m_shmem_r.m_p);
  m_lock_a.Set(m_shmem_a.m_p);
}

bool Cztmemchanel::is_mine() const {
  return m_opener == getpid();
}

mailbox::Box Cztmemchanel::request_box() {
  return {*this, m_shmem_r, m_sema_r, m_lock_r, m_known_r};
}

mailbox::Box Cztmemchanel::answer_box() {
  return {*this, m_shmem_a, m_sema_a, m_lock_a, m_known_a};
}

bool Cztmemchanel::PutRequest(_VEMROMSG* msg) {
  mailbox::Box box = request_box();
  return box.has_room_for(msg) && frame::seal_wire(msg) && box.put(msg);
}

bool Cztmemchanel::PutAnswer(_VEMROMSG* msg) {
  mailbox::Box box = answer_box();
  return box.has_room_for(msg) && frame::seal_host(msg) && box.put(msg);
}

int Cztmemchanel::GetRequest(_VEMROMSG* msg, int ms) {
  return checked(request_box().get(msg, ms), frame::open_wire, msg);
}

int Cztmemchanel::GetAnswer(_VEMROMSG* msg, int ms) {
  return checked(answer_box().get(msg, ms), frame::open_host, msg);
}

bool Cztmemchanel::OtherSideLeft() {
  const bool is_here = m_shmem_r.usercount() > 1 || m_shmem_a.usercount() > 1;
  if (is_here) m_seen_other.store(true, std::memory_order_relaxed);
  return !is_here && m_seen_other.load(std::memory_order_relaxed);
}

// Without removing anything.
void Cztmemchanel::detach() {
  m_lock_r.Set(nullptr);
  m_lock_a.Set(nullptr);
  detach_segment(m_shmem_r);
  detach_segment(m_shmem_a);
  forget(m_sema_r);
  forget(m_sema_a);
  m_known_r = m_known_a = {};
  m_opener = 0;
  m_seen_other.store(false, std::memory_order_relaxed);
}

void Cztmemchanel::Close() {
  if (!is_mine()) {
    detach();
    return;
  }
  m_lock_r.Set(nullptr);
  m_lock_a.Set(nullptr);
  m_known_r.room = m_known_a.room = 0;
  m_shmem_r.Close(false);
  m_shmem_a.Close(false);
  m_sema_r.Close();
  m_sema_a.Close();
  m_seen_other.store(false, std::memory_order_relaxed);
}

void Cztmemchanel::Delete() {
  if (!is_mine()) return;
  remove_segment(m_shmem_r, m_known_r.segment);
  remove_segment(m_shmem_a, m_known_a.segment);
  remove_semaphore(m_sema_r);
  remove_semaphore(m_sema_a);
  m_known_r.segment = m_known_a.segment = -1;
}
