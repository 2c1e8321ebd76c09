#include "zt/sessions.h"

#include <algorithm>
#include <set>

#include "inspect/attachment.h"

namespace zt {

using namespace cachet::inspect;

Participants participants_of(const Context& context, const BasePath& path, int segment_id) {
  Participants all;
  try {
    all.locks = read_lock_state(path);
    if (all.locks->left_alone) context.say_left_alone(path.shown());
  } catch (const std::runtime_error& error) {
    context.say(error.what());
  }
  Attached attached = attached_to(segment_id);
  all.unseen = attached.unseen;
  all.renumbered = attached.renumbered;
  std::set<int> with_session;
  if (all.locks) {
    for (const Session& session : all.locks->sessions) {
      with_session.insert(session.pid);
      all.list.push_back(
          {process(session.pid), session, attached.times_by_pid[session.pid], life_of(session.pid)});
    }
  }
  for (const auto& [pid, times] : attached.times_by_pid) {
    if (times > 0 && !with_session.contains(pid)) {
      all.list.push_back({process(pid), std::nullopt, times, life_of(pid)});
    }
  }
  return all;
}

std::string life_text(const Participant& participant, bool all_seen) {
  switch (participant.life) {
    case Life::dead:
      return "dead";
    case Life::zombie:
      return "zombie";
    case Life::alive:
      break;
  }
  return participant.attachments == 0 && all_seen ? "not attached" : "alive";
}

std::int64_t age_seconds(const Session& session) {
  return session.since == 0 ? 0 : std::max<std::int64_t>(0, std::time(nullptr) - session.since);
}

}  // namespace zt
