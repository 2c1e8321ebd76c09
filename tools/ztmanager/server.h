// Server: the main thread. It accepts connections from this host, hands complete logins to workers of their own, watches
// the clients, and ends everything when a signal asks for it. It waits for nothing but its poll, and never touches the
// database.
#ifndef CACHET_TOOLS_ZTMANAGER_SERVER_H
#define CACHET_TOOLS_ZTMANAGER_SERVER_H

#include <poll.h>

#include <list>
#include <memory>
#include <vector>

#include "ztmanager/client_worker.h"
#include "ztmanager/housekeeper.h"
#include "ztmanager/login.h"
#include "ztmanager/options.h"

namespace manager {

class Server {
 public:
  // Blocks the signals that end it (SIGTERM, SIGINT), before there is any other thread, and listens. Throws
  // std::system_error.
  Server(const Options& options, Service service);

  int port() const { return port_; }

  // Serves until a signal comes. True when every thread has ended. False when some would not in time, which wait for the
  // database then: the process is to end without touching what they use.
  bool run();

 private:
  using Clock = Login::Clock;

  struct Seat {
    std::unique_ptr<ClientWorker> worker;
    bool is_watched = true;
  };

  void listen();
  std::vector<pollfd> watched() const;
  int time_left_ms() const;
  bool serve_once();
  void accept();
  void look_at_logins(const pollfd* events);
  bool is_finished(Login& login, const pollfd& event);
  void admit(Login& login, const _CONNECT& request);
  void look_at_seats(const pollfd* events);
  void dismiss(Seat& seat);
  void clear_seats();
  bool shut_down();

  const Options options_;
  const Service service_;
  Descriptor signals_;
  std::shared_ptr<Descriptor> notice_;  // readable when a thread has ended
  VemroTcpChanel listener_;
  int port_ = 0;
  std::list<Login> logins_;
  std::list<Seat> seats_;
  std::unique_ptr<Housekeeper> housekeeper_;
  int next_number_ = 1;
  Clock::time_point accept_again_{};
};

}  // namespace manager

#endif
