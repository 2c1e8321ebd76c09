// Who holds or waits for the database's lock, and the clearing of the dead among them.
#include <vector>

#include "ztmanager/requests/handlers.h"

namespace manager::sessions {

// The body: a type of session, and the how many-th of that type is wanted.
bool query(Client& client, const Request& request, Answer& answer) {
  struct Which {
    int type;
    int number;
  };
  const auto which = request.body<Which>();
  std::vector<TransInfo> sessions;
  const bool known =
      which.type >= WTREAD && which.type <= INWRITE &&
      client.session.handle()->lock.GetSessions(sessions, static_cast<SessionType>(which.type));
  if (!known || which.number < 0 || static_cast<std::size_t>(which.number) >= sessions.size()) {
    return client.session.refuse(ZT_ERR_GENERAL, "there is no such session");
  }
  static_assert(sizeof(_QUERYDBTRANSINFO) == sizeof(TransInfo));
  answer.set(CMD_QUERYDBTRANSINFO, sessions[static_cast<std::size_t>(which.number)]);
  return true;
}

// A session of a living process stays. Otherwise all the dead are cleared, whichever was named: that takes back what the
// table of sessions knows, where clearing a session that is not in it would spoil the lock's counts.
bool clear(Client& client, const Request& request, Answer&) {
  const auto body = request.body<_CLEARWILDTRANS>();
  const ZtDbHandle handle = client.session.handle();
  if (body.stype > INWRITE) return client.session.refuse(ZT_ERR_GENERAL, "there is no such session");
  if (handle->lock.m_dbsessions.ProcessIsAlive(body.pid)) return true;
  return ZtClearDBWildTrans(handle);
}

}  // namespace manager::sessions
