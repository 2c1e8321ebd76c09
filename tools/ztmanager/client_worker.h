// ClientWorker: the thread of one client, from its accepted login to its end: it opens the client's handle, makes its
// mailbox, answers the login, and then one request after the other.
//
// All of its database work is done on its own thread. Another thread calls hang_up when the client is gone, or is to go:
// the mailbox is removed at once, whatever the worker is doing, and the worker rolls back and ends as soon as the
// database lets it. The object outlives its thread: it may be deleted when ended() is true.
#ifndef CACHET_TOOLS_ZTMANAGER_CLIENT_WORKER_H
#define CACHET_TOOLS_ZTMANAGER_CLIENT_WORKER_H

#include <atomic>
#include <functional>
#include <mutex>
#include <optional>

#include "baseclass.h"
#include "tcpchanel.h"
#include "ztmanager/descriptor.h"
#include "ztmanager/folder.h"
#include "ztmanager/mailboxes.h"
#include "ztmanager/session.h"

namespace manager {

// What all workers share.
struct Service {
  Database& database;
  const Mailboxes& mailboxes;
  const Folder& folder;
};

class ClientWorker : public Cmodule {
 public:
  // `socket`: the client's connection. `notice`: called on the worker's thread as its last act.
  ClientWorker(int number, Service service, Descriptor socket, _CONNECT login, std::function<void()> notice);

  int Run() override;
  bool Terminate() override;

  // Any thread; more than once does no harm.
  void hang_up();
  bool ended() const { return ended_.load(std::memory_order_acquire); }

  int number() const { return number_; }
  // To be watched: readable when the client closes, or sends what it should not; readable when its process ends, or -1.
  int socket() const { return channel_.m_socket; }
  int process() const { return process_.get(); }

 private:
  bool log_in();
  void refuse_login(int code, const char* text);
  void serve();
  bool take_request(_VEMROMSG& message);
  bool answer(_VEMROMSG& message);

  const int number_;
  const Service service_;
  const _CONNECT login_;
  const std::function<void()> notice_;
  VemroTcpChanel channel_;
  Descriptor process_;
  std::optional<Session> session_;
  std::atomic<bool> ended_{false};

  // Who may touch the mailbox: the worker while it is in use, that is from an answer to the next request; otherwise
  // whoever has the mutex. A worker that is gone does not begin to use it again.
  std::mutex mutex_;
  Mailbox mailbox_;
  bool in_use_ = false;
  bool gone_ = false;
};

// Answers a login over TCP with the reason why it is refused.
void send_refusal(VemroTcpChanel& channel, int code, const char* text);

}  // namespace manager

#endif
