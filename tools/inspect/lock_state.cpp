#include "inspect/lock_state.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <tuple>

#include "inspect/attachment.h"
#include "inspect/translate.h"

namespace cachet::inspect {

namespace {

constexpr int entries_of_a_type = 1024;
constexpr int types = 4;
constexpr std::size_t id_digits = 24;

// Copies the first bytes of a segment; true when its last regular user left meanwhile.
bool copy_of(const std::string& key_file, char* destination, std::size_t bytes) {
  Attachment segment(key_file);
  if (segment.bytes() < static_cast<std::int64_t>(bytes)) {
    throw Damaged(tr("{}: the segment has only {} bytes", key_file, segment.bytes()));
  }
  std::memcpy(destination, segment.data(), bytes);
  return segment.detach();
}

int number_in(const char* digits) {
  unsigned long number = 0;
  const auto [end, fault] = std::from_chars(digits, digits + id_digits, number);
  const bool whole = fault == std::errc{} && end == digits + id_digits && number <= 0x7fffffff;
  return whole ? static_cast<int>(number) : 0;
}

std::time_t time_in(const char* info) {
  std::tm local{};
  const std::string text(info, strnlen(info, 14));
  const char* const end = strptime(text.c_str(), "%Y%m%d%H%M%S", &local);
  local.tm_isdst = -1;
  return end != nullptr && *end == '\0' && text.size() == 14 ? std::mktime(&local) : 0;
}

std::vector<Session> sessions_in(const std::vector<MemBlock>& entries) {
  std::vector<Session> sessions;
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const MemBlock& entry = entries[i];
    if (entry.status == 0) continue;
    Session session;
    session.type = static_cast<SessionType>(i / entries_of_a_type);
    session.pid = number_in(entry.trans.sid);
    session.tid = number_in(entry.trans.sid + id_digits);
    session.slot = entry.trans.info[sizeof entry.trans.info - 1] == 1 ? 1 : 0;
    session.since = time_in(entry.trans.info);
    session.moving = entry.status != 1;
    sessions.push_back(session);
  }
  std::sort(sessions.begin(), sessions.end(), [](const Session& a, const Session& b) {
    return std::tuple(a.slot, !holds(a.type), a.since, a.pid) <
           std::tuple(b.slot, !holds(b.type), b.since, b.pid);
  });
  return sessions;
}

}  // namespace

LockState read_lock_state(const BasePath& path) {
  LockState state{};
  std::array<char, sizeof(LockPage)> page;
  state.left_alone = copy_of(path.lock_page_file(), page.data(), page.size());
  std::memcpy(&state.page, page.data(), page.size());
  std::vector<MemBlock> entries(std::size_t{types} * entries_of_a_type);
  state.left_alone = copy_of(path.session_file(), reinterpret_cast<char*>(entries.data()),
                             entries.size() * sizeof(MemBlock)) ||
                     state.left_alone;
  state.sessions = sessions_in(entries);
  return state;
}

bool holds(SessionType type) {
  return type == INREAD || type == INWRITE;
}

const char* state_name(SessionType type) {
  switch (type) {
    case WTREAD:
      return "waits to read";
    case INREAD:
      return "reads";
    case WTWRITE:
      return "waits to write";
    case INWRITE:
      return "writes";
  }
  return "";
}

const char* work_name(std::int32_t kind) {
  static constexpr std::array<const char*, 6> names{"none",     "an insert", "a change of a key's lists",
                                                    "a commit", "a reset",   "a load"};
  return kind >= 0 && kind < static_cast<std::int32_t>(names.size()) ? names[static_cast<std::size_t>(kind)]
                                                                     : "unknown work";
}

}  // namespace cachet::inspect
