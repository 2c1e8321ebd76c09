// The protocol of a slot. All words of a slot change under its spin lock, which is never held across a wait.
//
//   write    nobody holds or waits to write: W1 += 1, in
//            else: W2 += 1, sleep on the writer semaphore until W1 = 0; W2 -= 1, W1 += 1, in
//   read     nobody holds to write: W3 += 1, in
//            else: W4 += 1, sleep on the reader semaphore until W1 = 0, and either no writer waits or an
//            unlock has let the readers go since; W4 -= 1, W3 += 1, in
//   unlock   W1 -= 1; a writer waits: one post for writers; else one post for each waiting reader
//
// A wake-up is only a hint. Posts are made before the spin lock is given back, so no releaser can die between
// the two; waits end after at most 200 ms to look again, so no lost post, dead waiter or removed semaphore
// blocks for ever. A waiting writer that leaves a free slot alone for ten slices is taken for dead by a
// reader.
#include "rwspinlock.h"

#include <sys/shm.h>

#include <cerrno>
#include <cstddef>
#include <ctime>
#include <string>
#include <string_view>

#include "base/messages.h"
#include "shared_word.h"

namespace {

constexpr char page_suffix[] = ".lk";
constexpr int lock_key_id = 1;
constexpr int lock_semaphore_id = 1;
constexpr int lock_semaphore_max = 100;
constexpr int page_bytes = 8192;
constexpr int slot_count = 2;
constexpr std::ptrdiff_t slot_bytes = 20;
constexpr std::ptrdiff_t word_bytes = 4;
constexpr int read_level = 0;
constexpr int write_level = 1;
constexpr int slice_ms = 200;
constexpr int slices_for_a_dead_writer = 10;
constexpr long pause_without_semaphore_ns = 2'000'000;

// The words of a slot, and behind both slots the library's own bookkeeping.
//
//   byte   0        20       40     64                            72      80               8192
//          +--------+--------+------+-----------------------------+-------+ - - - - - - - -+
//          | slot 0 | slot 1 | free | reader releases of slot 0, 1| epoch |      free      |
//          +--------+--------+------+-----------------------------+-------+ - - - - - - - -+
constexpr int releases_at = 64;
constexpr int epoch_at = 72;

class Slot {
 public:
  Slot(char* page, int lockid)
      : words_(page + lockid * slot_bytes), releases_(page + releases_at + lockid * word_bytes) {}

  auto writers_holding() const { return word(1); }
  auto writers_waiting() const { return word(2); }
  auto readers_holding() const { return word(3); }
  auto readers_waiting() const { return word(4); }
  // Raised by every unlock that lets the waiting readers go.
  auto reader_releases() const { return cachet::shared_word<std::int32_t>(releases_); }

 private:
  std::atomic_ref<std::int32_t> word(int index) const {
    return cachet::shared_word<std::int32_t>(words_ + index * word_bytes);
  }
  char* words_;
  char* releases_;
};

class SpinGuard {
 public:
  explicit SpinGuard(Cspinlock& lock) : lock_(lock) { lock_.Lock(); }
  ~SpinGuard() { lock_.Unlock(); }
  SpinGuard(const SpinGuard&) = delete;
  SpinGuard& operator=(const SpinGuard&) = delete;

 private:
  Cspinlock& lock_;
};

// A count that a dead process left behind may be taken back twice; it never goes below zero.
void take_one_off(std::atomic_ref<std::int32_t> count) {
  if (count.load() > 0) count.fetch_sub(1);
}

// True when a post came, false when it is time to look without one.
bool wait_for_hint(Cztsema& semaphore) {
  if (semaphore.Wait(slice_ms) == 1) return true;
  if (errno != EAGAIN && errno != EINTR) {
    const timespec pause{0, pause_without_semaphore_ns};
    nanosleep(&pause, nullptr);
  }
  return false;
}

// Sleeps, with the spin lock released, until `may_enter(posted)` holds under it.
template <class MayEnter>
void wait_until(Cspinlock& spin, Cztsema& semaphore, const MayEnter& may_enter) {
  bool posted = false;
  do {
    spin.Unlock();
    posted = wait_for_hint(semaphore);
    spin.Lock();
  } while (!may_enter(posted));
}

bool segment_exists(int id) {
  struct shmid_ds status;
  return shmctl(id, IPC_STAT, &status) == 0;
}

std::string semaphore_name(const char* name, int lockid, const char* kind) {
  return std::string(name) + "." + std::to_string(lockid + 1) + "." + kind + ".s";
}

template <class Each>
bool for_each_semaphore(Crwspinlock& lock, const char* name, const Each& each) {
  for (int id = 0; id < slot_count; ++id) {
    if (!each(lock.m_r_sema[id], semaphore_name(name, id, "r"))) return false;
    if (!each(lock.m_w_sema[id], semaphore_name(name, id, "w"))) return false;
  }
  return true;
}

void bind_slots(Crwspinlock& lock) {
  for (int id = 0; id < slot_count; ++id) lock.m_lock[id].Set(lock.m_lockpage.m_p + id * slot_bytes);
}

bool is_slot(int lockid) {
  return lockid >= 0 && lockid < slot_count;
}

// Also those that this process never opened, since it may have failed before: nobody else is left to do it.
void remove_semaphores(Crwspinlock& lock) {
  std::string name = lock.m_lockpage.m_name;
  name.resize(name.size() - std::string_view(page_suffix).size());
  for_each_semaphore(lock, name.c_str(), [](Cztsema& semaphore, const std::string& semaphore_name) {
    if (semaphore.m_sempid < 0) semaphore.Open(semaphore_name.c_str(), lock_key_id, lock_semaphore_id);
    semaphore.Close();
    semaphore.Delete();
    return true;
  });
}

}  // namespace

Crwspinlock::Crwspinlock() = default;

bool Crwspinlock::Create(char* name, int dbsesion_mode) {
  const std::string page = std::string(name) + page_suffix;
  if (!m_lockpage.Create(page.c_str(), lock_key_id, page_bytes, false)) return false;
  bind_slots(*this);
  if (!m_dbsessions.CreateContainer(name, dbsesion_mode)) {
    cachet::message::print_line(cachet::message::create_sessions_failed, name);
    return false;
  }
  m_open = for_each_semaphore(*this, name, [](Cztsema& semaphore, const std::string& semaphore_name) {
    return semaphore.Create(semaphore_name.c_str(), lock_key_id, lock_semaphore_id, lock_semaphore_max);
  });
  return m_open;
}

bool Crwspinlock::Open(char* name, int dbsesion_mode) {
  const std::string page = std::string(name) + page_suffix;
  if (!m_lockpage.Open(page.c_str(), lock_key_id, false)) return false;
  if (m_lockpage.bytes() < page_bytes) return false;
  bind_slots(*this);
  if (!m_dbsessions.OpenContainer(name, dbsesion_mode)) {
    cachet::message::print_line(cachet::message::open_sessions_failed, name);
    return false;
  }
  m_open = for_each_semaphore(*this, name, [](Cztsema& semaphore, const std::string& semaphore_name) {
    return semaphore.Open(semaphore_name.c_str(), lock_key_id, lock_semaphore_id);
  });
  return m_open;
}

bool Crwspinlock::IsCurrent() const {
  return m_open && m_lockpage.is_named();
}

bool Crwspinlock::IsOpen() const {
  return m_open;
}

bool Crwspinlock::WriterHolds(int lockid) const {
  return m_open && is_slot(lockid) && Slot(m_lockpage.m_p, lockid).writers_holding().load() > 0;
}

std::uint64_t Crwspinlock::Epoch() const {
  return m_open ? cachet::load_acquire<std::uint64_t>(m_lockpage.m_p + epoch_at) : 0;
}

void Crwspinlock::RaiseEpoch() {
  if (m_open) cachet::shared_word<std::uint64_t>(m_lockpage.m_p + epoch_at).fetch_add(2);
}

void Crwspinlock::MakeEpochOdd() {
  if (m_open) cachet::shared_word<std::uint64_t>(m_lockpage.m_p + epoch_at).fetch_or(1);
}

void Crwspinlock::MakeEpochEven() {
  if (m_open && Epoch() % 2 != 0) cachet::shared_word<std::uint64_t>(m_lockpage.m_p + epoch_at).fetch_add(1);
}

bool Crwspinlock::Lock(int lockid, int locklevel) {
  if (!m_open || !is_slot(lockid) || (locklevel != read_level && locklevel != write_level)) return false;
  const Slot slot(m_lockpage.m_p, lockid);
  Cspinlock& spin = m_lock[lockid];
  const SpinGuard guard(spin);

  if (locklevel == write_level) {
    if (slot.writers_waiting().load() > 0 || slot.writers_holding().load() > 0) {
      slot.writers_waiting().fetch_add(1);
      m_dbsessions.InsertSession(WTWRITE);
      wait_until(spin, m_w_sema[lockid], [&](bool) { return slot.writers_holding().load() == 0; });
      take_one_off(slot.writers_waiting());
      m_dbsessions.EraseSession(WTWRITE, nullptr);
    }
    slot.writers_holding().fetch_add(1);
    m_dbsessions.InsertSession(INWRITE);
    return true;
  }

  if (slot.writers_holding().load() > 0) {
    slot.readers_waiting().fetch_add(1);
    m_dbsessions.InsertSession(WTREAD);
    const std::int32_t releases_before = slot.reader_releases().load();
    int free_slices = 0;
    wait_until(spin, m_r_sema[lockid], [&](bool posted) {
      const bool is_free = slot.writers_holding().load() == 0;
      if (!posted) free_slices = is_free ? free_slices + 1 : 0;
      return is_free &&
             (slot.writers_waiting().load() == 0 || slot.reader_releases().load() != releases_before ||
              free_slices >= slices_for_a_dead_writer);
    });
    take_one_off(slot.readers_waiting());
    m_dbsessions.EraseSession(WTREAD, nullptr);
  }
  slot.readers_holding().fetch_add(1);
  m_dbsessions.InsertSession(INREAD);
  return true;
}

void Crwspinlock::Unlock(int lockid, int locklevel, int stype, char* sid) {
  if (!m_open || !is_slot(lockid) || (locklevel != read_level && locklevel != write_level)) return;
  const Slot slot(m_lockpage.m_p, lockid);
  const SpinGuard guard(m_lock[lockid]);

  if (stype == WTWRITE) {
    take_one_off(slot.writers_waiting());
    m_dbsessions.EraseSession(WTWRITE, sid);
  } else if (stype == WTREAD) {
    take_one_off(slot.readers_waiting());
    m_dbsessions.EraseSession(WTREAD, sid);
  } else if (locklevel == read_level) {
    take_one_off(slot.readers_holding());
    m_dbsessions.EraseSession(INREAD, sid);
  } else {
    take_one_off(slot.writers_holding());
    m_dbsessions.EraseSession(INWRITE, sid);
    if (slot.writers_waiting().load() > 0) {
      m_w_sema[lockid].Release();
    } else if (const std::int32_t waiting = slot.readers_waiting().load(); waiting > 0) {
      slot.reader_releases().fetch_add(1);
      for (std::int32_t i = 0; i < waiting; ++i) m_r_sema[lockid].Release();
    }
  }
}

// The semaphores go before the page while this is its only user: until the page is gone no creator gets in that would
// take them for its own. Two that leave together both see the other; who detached last is asked again afterwards.
void Crwspinlock::Close() {
  m_open = false;
  if (m_lockpage.m_p == nullptr) return;
  const int page_id = m_lockpage.m_shamemid;
  const bool only_user = m_lockpage.usercount() == 1;
  if (only_user) remove_semaphores(*this);
  m_lockpage.Close(false);
  m_dbsessions.Close();
  for (Cspinlock& lock : m_lock) lock.Set(nullptr);
  if (!only_user && !segment_exists(page_id)) remove_semaphores(*this);
}

void Crwspinlock::Delete() {
  for (int id = 0; id < slot_count; ++id) {
    m_r_sema[id].Delete();
    m_w_sema[id].Delete();
  }
  m_lockpage.Delete();
  m_dbsessions.Delete();
}

bool Crwspinlock::GetSessions(std::vector<TransInfo>& sessions, int stype) {
  return m_dbsessions.GetSessions(sessions, stype);
}
