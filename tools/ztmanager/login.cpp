#include "ztmanager/login.h"

#include <sys/socket.h>

#include <cerrno>

namespace manager {

namespace {

constexpr int login_bytes = VEMRO_HEAD_BYTES + static_cast<int>(sizeof(_CONNECT));

// Until so many bytes are there, the socket does not count as readable.
bool wake_from(int socket, int bytes) {
  return setsockopt(socket, SOL_SOCKET, SO_RCVLOWAT, &bytes, sizeof bytes) == 0;
}

}  // namespace

Login::Login(Descriptor socket, Clock::time_point deadline) : deadline_(deadline) {
  channel_.AttachSocket(socket.release(), true);
  wake_from(channel_.m_socket, VEMRO_HEAD_BYTES);
}

// The head is judged before the rest is waited for, and a frame is received only when it is there as a whole.
Login::State Login::look(_CONNECT& request) {
  _VEMROMSG message;
  const ssize_t there = recv(channel_.m_socket, &message, login_bytes, MSG_PEEK | MSG_DONTWAIT);
  if (there < VEMRO_HEAD_BYTES) return there < 0 && errno == EAGAIN ? State::incomplete : State::broken;
  const bool is_login = message.head.cmd == CMD_CONNECT && VemroGetMsgLen(&message) == sizeof(_CONNECT);
  if (!is_login) return State::broken;
  if (there < login_bytes)
    return wake_from(channel_.m_socket, login_bytes) ? State::incomplete : State::broken;
  // The channel receives in pieces, and waits for each.
  if (!wake_from(channel_.m_socket, 1) || !channel_.Recv(&message)) return State::broken;
  request = message.body.connect;
  return State::complete;
}

Descriptor Login::release() {
  Descriptor socket(channel_.m_socket);
  channel_.m_socket = -1;
  return socket;
}

}  // namespace manager
