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
//
// Whoever dies inside a section is undone by the next one in it: before its first change a holder announces
// the counts, and the session entries, as they are to be when it neither holds nor waits
// (lock_section.h).
#include "rwspinlock.h"

#include <sys/ipc.h>
#include <sys/shm.h>

#include <cerrno>
#include <cstddef>
#include <ctime>
#include <string>
#include <string_view>
#include <utility>

#include "base/messages.h"
#include "base/thread_identity.h"
#include "base/thread_sanitizer.h"
#include "lock_page.h"
#include "lock_section.h"

using namespace cachet;

namespace {

constexpr char page_suffix[] = ".lk";
constexpr int lock_key_id = 1;
constexpr int lock_semaphore_id = 1;
constexpr int lock_semaphore_max = 100;
constexpr int read_level = 0;
constexpr int write_level = 1;
constexpr int slice_ms = 200;
constexpr int slices_for_a_dead_writer = 10;
constexpr long pause_without_semaphore_ns = 2'000'000;
constexpr int no_entry = -1;

LockPage& page_of(const Crwspinlock& lock) {
  return *reinterpret_cast<LockPage*>(lock.m_lockpage.m_p);
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

// Lets the waiters of a slot look again: a writer first, else every reader.
void post(Crwspinlock& lock, int lockid) {
  LockPage& page = page_of(lock);
  const SlotWords& words = page.slots[lockid];
  if (words.writers_waiting > 0) {
    lock.m_w_sema[lockid].Release();
  } else if (words.readers_waiting > 0) {
    shared_word<std::int32_t>(&page.reader_releases[lockid]).fetch_add(1);
    for (std::int32_t i = 0; i < words.readers_waiting; ++i) lock.m_r_sema[lockid].Release();
  }
}

class Heir final : public SlotHeir {
 public:
  explicit Heir(Crwspinlock& lock) : lock_(lock) {}

  void finish(int lockid, const SectionRecord& record) override {
    SlotWords& words = words_of(lockid);
    store_release<std::int32_t>(&words.writers_holding, record.writers_holding);
    store_release<std::int32_t>(&words.writers_waiting, record.writers_waiting);
    store_release<std::int32_t>(&words.readers_holding, record.readers_holding);
    store_release<std::int32_t>(&words.readers_waiting, record.readers_waiting);
    DBSessions& sessions = lock_.m_dbsessions;
    sessions.ClearEntry(record.claimed, {record.pid, record.tid}, lockid, record.tid);
    sessions.ClearEntry(record.erased, {record.erased_pid, record.erased_tid}, lockid, record.tid);
  }

  void wake(int lockid) override {
    if (words_of(lockid).writers_holding == 0) post(lock_, lockid);
  }

 private:
  SlotWords& words_of(int lockid) { return page_of(lock_).slots[lockid]; }

  Crwspinlock& lock_;
};

// One slot of the lock, inside its section. Counts are plain words here: only the holder of the section
// changes them.
class SlotWork {
 public:
  SlotWork(Crwspinlock& lock, int lockid)
      : lock_(lock),
        lockid_(lockid),
        self_(this_thread()),
        words_(page_of(lock).slots[lockid]),
        heir_(lock),
        section_(page_of(lock), lockid, lock.m_lock[lockid], heir_) {
    tell_taken(lock.m_lockpage.m_shamemid, lockid);
  }
  ~SlotWork() { tell_given_back(lock_.m_lockpage.m_shamemid, lockid_); }
  SlotWork(const SlotWork&) = delete;
  SlotWork& operator=(const SlotWork&) = delete;

  void lock_for_writing() {
    if (words_.writers_waiting > 0 || words_.writers_holding > 0) {
      enter(words_.writers_waiting, WTWRITE);
      do {
        wait(lock_.m_w_sema[lockid_]);
      } while (words_.writers_holding > 0);
      take_off(WTWRITE, nullptr);
    }
    enter(words_.writers_holding, INWRITE);
  }

  void lock_for_reading() {
    if (words_.writers_holding > 0) {
      enter(words_.readers_waiting, WTREAD);
      wait_for_turn_to_read();
      take_off(WTREAD, nullptr);
    }
    enter(words_.readers_holding, INREAD);
  }

  // Takes one holder or waiter off, with its session (48 characters; null: the calling thread's).
  void take_off(SessionType type, char* sid) {
    const ThreadIdentity owner = sid != nullptr ? DBSessions::OwnerOf(sid) : self_;
    int entry = no_entry;
    const bool tracks = lock_.m_dbsessions.Tracks();
    if (tracks || sid != nullptr) entry = lock_.m_dbsessions.EntryOf(type, owner, lockid_);
    if (tracks && entry == no_entry) DBSessions::ReportMissing();
    take_off_entry(type, entry, owner);
  }

  // The same for an entry of a dead thread, if it is still its own.
  bool take_off_of_dead(SessionType type, const TransInfo& session) {
    const ThreadIdentity owner = DBSessions::OwnerOf(session.sid);
    const int entry = lock_.m_dbsessions.EntryOf(type, owner, lockid_);
    if (entry == no_entry) return false;
    take_off_entry(type, entry, owner);
    return true;
  }

 private:
  std::int32_t& count_of(SessionType type) {
    switch (type) {
      case WTREAD:
        return words_.readers_waiting;
      case INREAD:
        return words_.readers_holding;
      case WTWRITE:
        return words_.writers_waiting;
      case INWRITE:
        break;
    }
    return words_.writers_holding;
  }

  std::int32_t reader_releases() const {
    return load_acquire<std::int32_t>(&page_of(lock_).reader_releases[lockid_]);
  }

  // The caller's record: the counts as they are, and no entry of anybody's.
  SectionRecord as_now() const {
    SectionRecord record{};
    record.pid = self_.pid;
    record.tid = self_.tid;
    record.writers_holding = words_.writers_holding;
    record.writers_waiting = words_.writers_waiting;
    record.readers_holding = words_.readers_holding;
    record.readers_waiting = words_.readers_waiting;
    record.claimed = record.erased = no_entry;
    return record;
  }

  // Adds the caller to a count, and to the sessions of the type. Its heir leaves both as they were.
  void enter(std::int32_t& count, SessionType type) {
    SectionRecord record = as_now();
    DBSessions& sessions = lock_.m_dbsessions;
    do {
      record.claimed = sessions.Tracks() ? sessions.FreeEntry(type) : no_entry;
      section_.announce(record);
    } while (record.claimed != no_entry && !sessions.ClaimEntry(record.claimed, lockid_));
    if (record.claimed == no_entry && sessions.Tracks()) DBSessions::ReportFull();
    store_release<std::int32_t>(&count, count + 1);
    section_.done();
  }

  // Its heir completes it.
  void take_off_entry(SessionType type, int entry, const ThreadIdentity& owner) {
    std::int32_t& count = count_of(type);
    SectionRecord record = as_now();
    std::int32_t& after = type == WTREAD    ? record.readers_waiting
                          : type == INREAD  ? record.readers_holding
                          : type == WTWRITE ? record.writers_waiting
                                            : record.writers_holding;
    if (after > 0) --after;  // taken back twice, maybe; never below zero
    record.erased = entry;
    record.erased_pid = owner.pid;
    record.erased_tid = owner.tid;
    section_.announce(record);
    store_release<std::int32_t>(&count, after);
    lock_.m_dbsessions.ClearEntry(entry, owner, lockid_, self_.tid);
    if (type == INWRITE) post(lock_, lockid_);
    section_.done();
  }

  void wait_for_turn_to_read() {
    const std::int32_t releases_before = reader_releases();
    for (int free_slices = 0; free_slices < slices_for_a_dead_writer;) {
      const bool posted = wait(lock_.m_r_sema[lockid_]);
      const bool is_free = words_.writers_holding == 0;
      if (is_free && (words_.writers_waiting == 0 || reader_releases() != releases_before)) return;
      if (!posted) free_slices = is_free ? free_slices + 1 : 0;
    }
  }

  // Outside the section; true when a post came.
  bool wait(Cztsema& semaphore) {
    tell_given_back(lock_.m_lockpage.m_shamemid, lockid_);
    section_.leave();
    const bool posted = wait_for_hint(semaphore);
    section_.enter();
    tell_taken(lock_.m_lockpage.m_shamemid, lockid_);
    return posted;
  }

  Crwspinlock& lock_;
  int lockid_;
  ThreadIdentity self_;
  SlotWords& words_;
  Heir heir_;
  Section section_;
};

bool segment_exists(int id) {
  struct shmid_ds status;
  return shmctl(id, IPC_STAT, &status) == 0;
}

std::string semaphore_name(const char* name, int lockid, const char* kind) {
  return std::string(name) + "." + std::to_string(lockid + 1) + "." + kind + ".s";
}

template <class Each>
bool for_each_semaphore(Crwspinlock& lock, const char* name, const Each& each) {
  for (int id = 0; id < lock_slots; ++id) {
    if (!each(lock.m_r_sema[id], semaphore_name(name, id, "r"))) return false;
    if (!each(lock.m_w_sema[id], semaphore_name(name, id, "w"))) return false;
  }
  return true;
}

void bind_slots(Crwspinlock& lock) {
  for (int id = 0; id < lock_slots; ++id) {
    lock.m_lock[id].Set(reinterpret_cast<char*>(&page_of(lock).slots[id].spin));
  }
}

constexpr std::uint64_t no_epoch = 0;

bool is_slot(int lockid) {
  return lockid >= 0 && lockid < lock_slots;
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

Crwspinlock::Crwspinlock() : m_epoch(&no_epoch) {}

bool Crwspinlock::Create(char* name, int dbsesion_mode) {
  const std::string page = std::string(name) + page_suffix;
  if (!m_lockpage.Create(page.c_str(), lock_key_id, lock_page_bytes, false)) return false;
  if (!prepare(page_of(*this))) return false;
  bind_slots(*this);
  if (!m_dbsessions.CreateContainer(name, dbsesion_mode)) {
    cachet::message::print_line(cachet::message::create_sessions_failed, name);
    return false;
  }
  m_open = for_each_semaphore(*this, name, [](Cztsema& semaphore, const std::string& semaphore_name) {
    return semaphore.Create(semaphore_name.c_str(), lock_key_id, lock_semaphore_id, lock_semaphore_max);
  });
  if (m_open) m_epoch = &page_of(*this).epoch;
  return m_open;
}

bool Crwspinlock::Open(char* name, int dbsesion_mode) {
  const std::string page = std::string(name) + page_suffix;
  if (!m_lockpage.Open(page.c_str(), lock_key_id, false)) return false;
  if (m_lockpage.bytes() < lock_page_bytes) return false;
  bind_slots(*this);
  if (!m_dbsessions.OpenContainer(name, dbsesion_mode)) {
    cachet::message::print_line(cachet::message::open_sessions_failed, name);
    return false;
  }
  m_open = for_each_semaphore(*this, name, [](Cztsema& semaphore, const std::string& semaphore_name) {
    return semaphore.Open(semaphore_name.c_str(), lock_key_id, lock_semaphore_id);
  });
  if (m_open) m_epoch = &page_of(*this).epoch;
  return m_open;
}

bool Crwspinlock::Watch(char* name) {
  const std::string page = std::string(name) + page_suffix;
  const key_t key = ftok(page.c_str(), lock_key_id);
  const int id = key == -1 ? -1 : shmget(key, lock_page_bytes, 0);
  void* const address = id < 0 ? reinterpret_cast<void*>(-1) : shmat(id, nullptr, SHM_RDONLY);
  if (address == reinterpret_cast<void*>(-1)) return false;
  m_watched = static_cast<const LockPage*>(address);
  m_watched_name = name;
  m_epoch = &m_watched->epoch;
  return true;
}

// Who watched kept the last user from seeing that it was the last; so it becomes a user and leaves as one.
void Crwspinlock::CloseWatch() {
  m_epoch = &no_epoch;
  shmdt(std::exchange(m_watched, nullptr));
  Crwspinlock lock;
  if (lock.m_lockpage.Open((m_watched_name + page_suffix).c_str(), lock_key_id, false)) lock.Close();
}

bool Crwspinlock::IsCurrent() const {
  return m_open && m_lockpage.is_named();
}

bool Crwspinlock::IsOpen() const {
  return m_open;
}

bool Crwspinlock::WriterHolds(int lockid) const {
  return m_open && is_slot(lockid) &&
         load_acquire<std::int32_t>(&page_of(*this).slots[lockid].writers_holding) > 0;
}

void Crwspinlock::RaiseEpoch() {
  if (m_open) shared_word<std::uint64_t>(&page_of(*this).epoch).fetch_add(2);
}

void Crwspinlock::MakeEpochOdd() {
  if (m_open) shared_word<std::uint64_t>(&page_of(*this).epoch).fetch_or(1);
}

void Crwspinlock::MakeEpochEven() {
  if (m_open && Epoch() % 2 != 0) shared_word<std::uint64_t>(&page_of(*this).epoch).fetch_add(1);
}

bool Crwspinlock::Lock(int lockid, int locklevel) {
  if (!m_open || !is_slot(lockid) || (locklevel != read_level && locklevel != write_level)) return false;
  SlotWork slot(*this, lockid);
  if (locklevel == write_level) {
    slot.lock_for_writing();
  } else {
    slot.lock_for_reading();
  }
  return true;
}

void Crwspinlock::Unlock(int lockid, int locklevel, int stype, char* sid) {
  if (!m_open || !is_slot(lockid) || (locklevel != read_level && locklevel != write_level)) return;
  const bool waits = stype == WTREAD || stype == WTWRITE;
  const SessionType holds = locklevel == write_level ? INWRITE : INREAD;
  SlotWork(*this, lockid).take_off(waits ? static_cast<SessionType>(stype) : holds, sid);
}

void Crwspinlock::Settle() {
  for (int id = 0; m_open && id < lock_slots; ++id) SlotWork(*this, id);
}

bool Crwspinlock::UnlockOfDead(SessionType type, const TransInfo& session) {
  const int lockid = DBSessions::SlotOf(session);
  return m_open && is_slot(lockid) && SlotWork(*this, lockid).take_off_of_dead(type, session);
}

cachet::LockPage* Crwspinlock::RecoverablePage() const {
  return m_open && is_recoverable(page_of(*this)) ? &page_of(*this) : nullptr;
}

// The semaphores go before the page while this is its only user: until the page is gone no creator gets in that would
// take them for its own. Two that leave together both see the other; who detached last is asked again afterwards.
void Crwspinlock::Close() {
  if (m_watched != nullptr) CloseWatch();
  m_open = false;
  m_epoch = &no_epoch;
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
  for (int id = 0; id < lock_slots; ++id) {
    m_r_sema[id].Delete();
    m_w_sema[id].Delete();
  }
  m_lockpage.Delete();
  m_dbsessions.Delete();
}

bool Crwspinlock::GetSessions(std::vector<TransInfo>& sessions, int stype) {
  return m_dbsessions.GetSessions(sessions, stype);
}
