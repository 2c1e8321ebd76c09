#include "dbsessions.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>

#include "dbsessions/session_texts.h"
#include "shared_word.h"

namespace {

constexpr int session_key_id = 1;
constexpr int container_bytes = 0x400000;
constexpr std::size_t entries_per_type = 1024;
constexpr int in_use = 1;
constexpr std::size_t sid_digits = 24;
constexpr std::size_t slot_byte = sizeof(TransInfo::info) - 1;  // behind the time's own terminator

std::string container_name(const char* name) {
  return std::string(name) + "_session_shmname";
}

std::span<MemBlock> area_of(const DBSessions& sessions, int type) {
  MemBlock* const areas[] = {sessions.wtread_ssions_, sessions.inread_ssions_, sessions.wtwrite_ssions_,
                             sessions.inwrite_ssions_};
  if (type < WTREAD || type > INWRITE || sessions.shm_base_addr_ == nullptr) return {};
  return {areas[type], entries_per_type};
}

int number_of(int type, std::size_t index) {
  return type * static_cast<int>(entries_per_type) + static_cast<int>(index);
}

bool is_used(const MemBlock& entry) {
  return cachet::load_acquire<int>(&entry.status) == in_use;
}

bool has_sid(const MemBlock& entry, const char* sid) {
  return std::memcmp(entry.trans.sid, sid, sizeof entry.trans.sid) == 0;
}

std::atomic_ref<int> status_of(MemBlock& entry) {
  return cachet::shared_word<int>(&entry.status);
}

void bind_areas(DBSessions& sessions) {
  sessions.shm_base_addr_ = sessions.container_shm_.m_p;
  auto* const first = reinterpret_cast<MemBlock*>(sessions.shm_base_addr_);
  sessions.wtread_ssions_ = first + WTREAD * entries_per_type;
  sessions.inread_ssions_ = first + INREAD * entries_per_type;
  sessions.wtwrite_ssions_ = first + WTWRITE * entries_per_type;
  sessions.inwrite_ssions_ = first + INWRITE * entries_per_type;
}

}  // namespace

DBSessions::DBSessions()
    : wtread_ssions_(nullptr),
      inread_ssions_(nullptr),
      wtwrite_ssions_(nullptr),
      inwrite_ssions_(nullptr),
      shm_base_addr_(nullptr),
      db_session_mode_(0) {}

bool DBSessions::CreateContainer(const char* name, int mode) {
  const std::string segment = container_name(name);
  if (!container_shm_.Create(segment.c_str(), session_key_id, container_bytes, false)) {
    std::printf("%s DBSessions create error.\n", segment.c_str());
    return false;
  }
  // A new segment is all zeros, and stays sparse if it is not written.
  bind_areas(*this);
  db_session_mode_ = mode;
  return true;
}

bool DBSessions::OpenContainer(const char* name, int mode) {
  const std::string segment = container_name(name);
  const bool opened = container_shm_.Open(segment.c_str(), session_key_id, false);
  if (!opened || container_shm_.bytes() < container_bytes) {
    if (opened) container_shm_.Close(false);
    std::printf("%s DBSessions open error.\n", segment.c_str());
    return false;
  }
  bind_areas(*this);
  db_session_mode_ = mode;
  return true;
}

// An entry on its way in or out carries the thread that moves it: neither free nor in use, and its heir's to
// finish.
int DBSessions::FreeEntry(SessionType type) const {
  const auto area = area_of(*this, type);
  for (std::size_t index = 0; index < area.size(); ++index) {
    if (cachet::load_acquire<int>(&area[index].status) == 0) return number_of(type, index);
  }
  return -1;
}

bool DBSessions::ClaimEntry(int entry, int slot) {
  MemBlock& block = wtread_ssions_[entry];
  int free = 0;
  if (!status_of(block).compare_exchange_strong(free, -cachet::this_thread().tid)) return false;
  const cachet::SidText& sid = cachet::sid_of(cachet::this_thread());
  std::memcpy(block.trans.sid, sid.data(), sid.size());
  const cachet::TimeText& now = cachet::local_time();
  std::memcpy(block.trans.info, now.data(), now.size());
  block.trans.info[slot_byte] = static_cast<char>(slot);
  status_of(block).store(in_use, std::memory_order_release);
  return true;
}

int DBSessions::EntryOf(SessionType type, const cachet::ThreadIdentity& owner, int slot) const {
  const cachet::SidText& sid = cachet::sid_of(owner);
  const auto area = area_of(*this, type);
  for (std::size_t index = 0; index < area.size(); ++index) {
    if (is_used(area[index]) && has_sid(area[index], sid.data()) && SlotOf(area[index].trans) == slot) {
      return number_of(type, index);
    }
  }
  return -1;
}

void DBSessions::ClearEntry(int entry, const cachet::ThreadIdentity& owner, int slot, int mover) {
  if (entry < 0 || shm_base_addr_ == nullptr) return;
  MemBlock& block = wtread_ssions_[entry];
  int status = cachet::load_acquire<int>(&block.status);
  if (status == in_use && has_sid(block, cachet::sid_of(owner).data()) && SlotOf(block.trans) == slot &&
      status_of(block).compare_exchange_strong(status, -mover)) {
    status = -mover;
  }
  if (status != -mover) return;
  block.trans = TransInfo{};
  status_of(block).store(0, std::memory_order_release);
}

int DBSessions::SlotOf(const TransInfo& session) {
  return session.info[slot_byte];
}

cachet::ThreadIdentity DBSessions::OwnerOf(const char* sid) {
  const auto number = [](const char* digits) {
    return static_cast<int>(std::strtoul(std::string(digits, sid_digits).c_str(), nullptr, 10));
  };
  return {number(sid), number(sid + sid_digits)};
}

void DBSessions::ReportFull() {
  std::printf("DBSessions::InsertSession: Error, session out of limit.\n");
}
void DBSessions::ReportMissing() {
  std::printf("DBSessions::EraseSession: Error, session doesnot exist.\n");
}

bool DBSessions::InsertSession(SessionType type) {
  if (db_session_mode_ == 0) return true;
  for (int entry = FreeEntry(type); entry >= 0; entry = FreeEntry(type)) {
    if (ClaimEntry(entry, 0)) return true;
  }
  ReportFull();
  return false;
}

bool DBSessions::EraseSession(SessionType type, char* sid) {
  if (db_session_mode_ == 0) return true;
  const cachet::SidText& own_sid = cachet::sid_of(cachet::this_thread());
  const char* const wanted = sid != nullptr ? sid : own_sid.data();
  for (MemBlock& entry : area_of(*this, type)) {
    if (!is_used(entry) || !has_sid(entry, wanted)) continue;
    entry.trans = TransInfo{};
    cachet::store_release<int>(&entry.status, 0);
    return true;
  }
  ReportMissing();
  return false;
}

bool DBSessions::GetSessions(std::vector<TransInfo>& sessions, int stype) {
  const auto area = area_of(*this, stype);
  for (const MemBlock& entry : area) {
    if (is_used(entry)) sessions.push_back(entry.trans);
  }
  return !area.empty();
}

void DBSessions::GetCurSid(char* sid) {
  const cachet::SidText& own_sid = cachet::sid_of(cachet::this_thread());
  std::memcpy(sid, own_sid.data(), own_sid.size());
}

void DBSessions::PrintSession() {
  for (int type = WTREAD; type <= INWRITE; ++type) {
    std::printf("No %d sessions: ---------------------\n", type);
    for (const MemBlock& entry : area_of(*this, type)) {
      if (!is_used(entry)) continue;
      std::printf("sid: %.48s  info: %.16s\n", entry.trans.sid, entry.trans.info);
    }
  }
}

bool DBSessions::ProcessIsAlive(unsigned long pid) {
  return kill(static_cast<pid_t>(pid), 0) == 0;
}

void DBSessions::Close() {
  container_shm_.Close(false);
  shm_base_addr_ = nullptr;
}

void DBSessions::Delete() {
  container_shm_.Delete();
}
