// Login: a connection that has not logged in yet. It is looked at when there is something to read, and never waited for.
#ifndef CACHET_TOOLS_ZTMANAGER_LOGIN_H
#define CACHET_TOOLS_ZTMANAGER_LOGIN_H

#include <chrono>

#include "tcpchanel.h"
#include "ztmanager/descriptor.h"

namespace manager {

class Login {
 public:
  using Clock = std::chrono::steady_clock;

  Login(Descriptor socket, Clock::time_point deadline);

  int socket() const { return channel_.m_socket; }
  Clock::time_point deadline() const { return deadline_; }

  enum class State { incomplete, complete, broken };
  // Reads what has come, without waiting. A complete one is in `request`.
  State look(_CONNECT& request);

  // Over to a worker.
  Descriptor release();
  VemroTcpChanel& channel() { return channel_; }

 private:
  VemroTcpChanel channel_;
  Clock::time_point deadline_;
};

}  // namespace manager

#endif
