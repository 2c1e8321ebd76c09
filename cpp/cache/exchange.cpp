#include "cache/exchange.h"

#include <sys/shm.h>
#include <sys/socket.h>

#include <cerrno>
#include <csignal>
#include <cstring>

#include "base/gbk_text.h"
#include "cache/error.h"

namespace cachet {

namespace {

// How long a manager that died can go unnoticed.
constexpr int slice_ms = 200;

enum class Taken { frame, nothing_yet, nothing_ever };

Taken take_answer(Cztmemchanel& mailbox, _VEMROMSG& message, int ms) {
  const int result = mailbox.GetAnswer(&message, ms);
  if (result == 1 || (result == -1 && errno == EBADMSG)) return Taken::frame;
  const bool may_come = errno == EINTR || (result == 0 && errno == EAGAIN);
  return may_come ? Taken::nothing_yet : Taken::nothing_ever;
}

bool is_closed_by_peer(const VemroTcpChanel& chanel) {
  char byte;
  const ssize_t there = recv(chanel.m_socket, &byte, sizeof byte, MSG_PEEK | MSG_DONTWAIT);
  return there == 0 || (there < 0 && errno != EAGAIN && errno != EINTR);
}

bool is_creator_gone(const Cztshamem& box) {
  shmid_ds status;
  return shmctl(box.m_shamemid, IPC_STAT, &status) == 0 && kill(status.shm_cpid, 0) != 0 && errno == ESRCH;
}

// Children of this process have inherited the boxes, and look like the other side there. So a manager has also left when
// its process is no more and the connection is closed; either alone is a manager's good right.
bool has_manager_left(Rb_base& base) {
  return base.memchanel.OtherSideLeft() ||
         (is_closed_by_peer(base.chanel) && is_creator_gone(base.memchanel.m_shmem_r));
}

// Waits for as long as the manager is there, or has yet to come.
bool await_answer(Rb_base& base, _VEMROMSG& message) {
  Cztmemchanel& mailbox = base.memchanel;
  Taken taken;
  do {
    taken = take_answer(mailbox, message, slice_ms);
  } while (taken == Taken::nothing_yet && !has_manager_left(base));
  // It may have answered with its last breath.
  if (taken != Taken::frame) taken = take_answer(mailbox, message, 0);
  return taken == Taken::frame;
}

bool communication_failed(ZtDbHandle database) {
  return report(database, ZT_ERR_GENERAL, message::communication_failed);
}

// Of a "%" in the text only "%%" means something, one "%".
void unescape(char* text) {
  char* to = text;
  for (const char* from = text; *from != 0; *to++ = *from++) {
    if (from[0] == '%' && from[1] == '%') ++from;
  }
  *to = 0;
}

bool report_refusal(ZtDbHandle database, const _ERRORMSG& error) {
  char text[sizeof error.errmsg + 1] = {};
  std::memcpy(text, error.errmsg, sizeof error.errmsg);
  unescape(text);
  return report(database, error.errcode, message::verbatim, text);
}

}  // namespace

void begin_request(_VEMROMSG& message, char command, int body_bytes) {
  message.head = {};
  message.head.cmd = command;
  message.head.length = body_bytes;
}

bool exchange(ZtDbHandle database, _VEMROMSG& message, char success, Refusal refusal) {
  if (!database->base.memchanel.PutRequest(&message)) return communication_failed(database);
  // What a short answer leaves out is zero, not a rest of the request.
  std::memset(&message, 0, sizeof message.head + sizeof message.body.error);
  if (!await_answer(database->base, message)) return communication_failed(database);
  if (message.head.cmd == success) return true;
  if (refusal == Refusal::mismatch) return report(database, ZT_ERR_GENERAL, message::mismatched_command);
  return report_refusal(database, message.body.error);
}

bool exchange_over_tcp(ZtDbHandle database, _VEMROMSG& message) {
  VemroTcpChanel& chanel = database->base.chanel;
  return (chanel.Send(&message) && chanel.Recv(&message)) || communication_failed(database);
}

}  // namespace cachet
