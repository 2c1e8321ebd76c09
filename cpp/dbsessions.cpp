#include "dbsessions.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <span>
#include <string>

#include "shared_word.h"

namespace {

constexpr int session_key_id = 1;
constexpr int container_bytes = 0x400000;
constexpr std::size_t entries_per_type = 1024;
constexpr int in_use = 1;

using SidText = std::array<char, 49>;
using TimeText = std::array<char, sizeof(TransInfo::info)>;

std::string container_name(const char* name) {
  return std::string(name) + "_session_shmname";
}

std::span<MemBlock> area_of(const DBSessions& sessions, int type) {
  MemBlock* const areas[] = {sessions.wtread_ssions_, sessions.inread_ssions_, sessions.wtwrite_ssions_,
                             sessions.inwrite_ssions_};
  if (type < WTREAD || type > INWRITE || sessions.shm_base_addr_ == nullptr) return {};
  return {areas[type], entries_per_type};
}

bool is_used(const MemBlock& entry) {
  return cachet::load_acquire<int>(&entry.status) == in_use;
}

SidText sid_of_caller() {
  SidText sid{};
  std::snprintf(sid.data(), sid.size(), "%024lu%024lu", static_cast<unsigned long>(getpid()),
                static_cast<unsigned long>(syscall(SYS_gettid)));
  return sid;
}

TimeText local_time() {
  TimeText text{};
  const time_t now = std::time(nullptr);
  tm parts{};
  localtime_r(&now, &parts);
  std::strftime(text.data(), text.size(), "%Y%m%d%H%M%S", &parts);
  return text;
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

bool DBSessions::InsertSession(SessionType type) {
  if (db_session_mode_ == 0) return true;
  for (MemBlock& entry : area_of(*this, type)) {
    if (is_used(entry)) continue;
    GetCurSid(entry.trans.sid);
    const TimeText now = local_time();
    std::memcpy(entry.trans.info, now.data(), now.size());
    cachet::store_release<int>(&entry.status, in_use);
    return true;
  }
  std::printf("DBSessions::InsertSession: Error, session out of limit.\n");
  return false;
}

bool DBSessions::EraseSession(SessionType type, char* sid) {
  if (db_session_mode_ == 0) return true;
  const SidText own = sid_of_caller();
  const char* const wanted = sid != nullptr ? sid : own.data();
  for (MemBlock& entry : area_of(*this, type)) {
    if (!is_used(entry) || std::memcmp(entry.trans.sid, wanted, sizeof entry.trans.sid) != 0) continue;
    entry.trans = TransInfo{};
    cachet::store_release<int>(&entry.status, 0);
    return true;
  }
  std::printf("DBSessions::EraseSession: Error, session doesnot exist.\n");
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
  const SidText own = sid_of_caller();
  std::memcpy(sid, own.data(), sizeof TransInfo::sid);
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
