#include "ztmanager/client_worker.h"

#include <spdlog/spdlog.h>
#include <sys/syscall.h>

#include <cerrno>
#include <cstring>

#include "ztmanager/log.h"
#include "ztmanager/requests/dispatch.h"

namespace manager {

namespace {

constexpr int without_limit = -1;

char* module_name() {
  static char name[] = "client";
  return name;
}

// Also a process that a child of its own outlives, which has inherited the connection.
Descriptor watch_process(int pid) {
  return Descriptor(pid > 0 ? static_cast<int>(syscall(SYS_pidfd_open, pid, 0)) : -1);
}

}  // namespace

void send_refusal(VemroTcpChanel& channel, int code, const char* text) {
  _VEMROMSG message;
  Answer(message).set_error(code, text);
  channel.Send(&message);
}

ClientWorker::ClientWorker(int number, Service service, Descriptor socket, _CONNECT login,
                           std::function<void()> notice)
    : Cmodule(module_name()),
      number_(number),
      service_(service),
      login_(login),
      notice_(std::move(notice)),
      process_(watch_process(login.pid)) {
  channel_.AttachSocket(socket.release(), true);
}

int ClientWorker::Run() {
  try {
    if (log_in()) serve();
  } catch (const std::exception& error) {
    spdlog::error("client {}: {}", number_, error.what());
  }
  return 0;
}

// What was left by whatever way. The mailbox goes first: the rest may have to wait for others.
bool ClientWorker::Terminate() {
  hang_up();
  mailbox_.channel.reset();
  const bool rolls_back = session_.has_value() && session_->in_transaction();
  session_.reset();
  spdlog::info("client {}: gone{}", number_, rolls_back ? ", its transaction is rolled back" : "");
  const std::function<void()> notice = notice_;
  ended_.store(true, std::memory_order_release);
  notice();
  return true;
}

bool ClientWorker::log_in() {
  if (login_.mode != ZT_MODE_READ_ONLY && login_.mode != ZT_MODE_READ_WRITE) {
    refuse_login(ZT_ERR_GENERAL, "unknown access mode");
    return false;
  }
  try {
    session_.emplace(service_.database, login_.mode);
  } catch (const Refusal& refusal) {
    refuse_login(refusal.code, refusal.what());
    return false;
  }
  _VEMROMSG message;
  {
    Mailbox mailbox = service_.mailboxes.make();
    const std::lock_guard guard(mutex_);
    if (gone_) return false;
    if (mailbox.channel == nullptr) {
      refuse_login(ZT_ERR_GENERAL, "no mailbox");
      return false;
    }
    _CONNECT_OK welcome{};
    put_text(welcome.name, mailbox.name.c_str());
    welcome.keyid = mailbox.keyid;
    Answer(message).set(CMD_CONNECT_OK, welcome);
    mailbox_ = std::move(mailbox);
    in_use_ = true;
  }
  spdlog::info("client {}: process {} logged in with mode {}", number_, int{login_.pid}, int{login_.mode});
  return channel_.Send(&message);
}

void ClientWorker::refuse_login(int code, const char* text) {
  spdlog::warn("client {}: login refused: {} {}", number_, code, for_log(text));
  send_refusal(channel_, code, text);
}

void ClientWorker::serve() {
  Client client{*session_, service_.folder};
  _VEMROMSG message;
  while (take_request(message)) {
    const char command = message.head.cmd;
    if (!carry_out(client, message, message)) {
      spdlog::debug("client {}: request {} refused: {} {}", number_, int{command},
                    int{message.body.error.errcode}, for_log(message.body.error.errmsg));
    }
    if (!answer(message)) return;
  }
}

// False when the client is gone, or its mailbox of no use any more. A frame that failed its check is no request, but it
// has its answer.
bool ClientWorker::take_request(_VEMROMSG& message) {
  int result;
  do {
    result = mailbox_.channel->GetRequest(&message, without_limit);
  } while (result != 1 && errno == EINTR);
  const bool is_spoilt = result != 1 && errno == EBADMSG;
  const std::lock_guard guard(mutex_);
  in_use_ = false;
  if (gone_ || (result != 1 && !is_spoilt)) return false;
  if (is_spoilt) Answer(message).set_head(0, 0);
  return true;
}

// Without the mutex: a client that keeps the box's lock to itself holds nobody up but this worker.
bool ClientWorker::answer(_VEMROMSG& message) {
  {
    const std::lock_guard guard(mutex_);
    if (gone_) return false;
    in_use_ = true;
  }
  return mailbox_.channel->PutAnswer(&message);
}

// A mailbox in use cannot be taken away, but its objects can, and its user's sleep ends with them.
void ClientWorker::hang_up() {
  const std::lock_guard guard(mutex_);
  if (gone_) return;
  gone_ = true;
  if (mailbox_.channel == nullptr) return;
  if (in_use_) {
    mailbox_.remove_objects();
  } else {
    mailbox_.channel.reset();
  }
}

}  // namespace manager
