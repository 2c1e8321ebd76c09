#include "ztmanager/server.h"

#include <netinet/in.h>
#include <spdlog/spdlog.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <systemd/sd-daemon.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <system_error>

namespace manager {

namespace {

// Descriptors in front of those of logins and clients.
enum : std::size_t { signals_at, notice_at, listener_at, logins_at };

// A worker has two: its connection and its process.
constexpr std::size_t descriptors_of_seat = 2;

// Connections that have not logged in. Who says nothing does not keep others out: beyond this the oldest one goes.
constexpr std::size_t most_logins = 256;

constexpr auto pause_after_failed_accept = std::chrono::milliseconds(100);

[[noreturn]] void fail(const char* what, int error = errno) {
  throw std::system_error(error, std::generic_category(), what);
}

int checked(int result, const char* what) {
  if (result < 0) fail(what);
  return result;
}

Descriptor block_signals() {
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGTERM);
  sigaddset(&ends, SIGINT);
  pthread_sigmask(SIG_BLOCK, &ends, nullptr);
  return Descriptor(checked(signalfd(-1, &ends, SFD_CLOEXEC | SFD_NONBLOCK), "signalfd"));
}

// The channel lets others listen on the same port, and they would get some of the clients: only a port that nobody has is
// taken.
void require_free(int port) {
  const Descriptor probe(checked(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket"));
  const int on = 1;
  setsockopt(probe.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  checked(bind(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), "port");
}

int port_of(int socket) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  checked(getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length), "getsockname");
  return ntohs(address.sin_port);
}

bool is_loopback(const char* address) {
  return std::strncmp(address, "127.", 4) == 0;
}

pollfd reading(int descriptor) {
  return {descriptor, POLLIN | POLLRDHUP, 0};
}

std::function<void()> notify(const std::shared_ptr<Descriptor>& notice) {
  return [notice] { eventfd_write(notice->get(), 1); };
}

}  // namespace

Server::Server(const Options& options, Service service)
    : options_(options),
      service_(service),
      signals_(block_signals()),
      notice_(std::make_shared<Descriptor>(checked(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd"))) {
  listen();
}

void Server::listen() {
  require_free(options_.port);
  if (!listener_.Create(false) || !listener_.Listen(static_cast<short>(options_.port), false)) {
    fail("listen", listener_.m_errno);
  }
  port_ = port_of(listener_.m_socket);
}

bool Server::run() {
  housekeeper_ = std::make_unique<Housekeeper>(service_.database, options_.clear_interval, notify(notice_));
  housekeeper_->StartRun();
  spdlog::info("serving {} on port {}", service_.database.base_path(), port_);
  sd_notifyf(0, "READY=1\nSTATUS=Serving on port %d", port_);
  while (serve_once()) continue;
  return shut_down();
}

std::vector<pollfd> Server::watched() const {
  const bool accepts = Clock::now() >= accept_again_;
  std::vector<pollfd> events{reading(signals_.get()), reading(notice_->get()),
                             reading(accepts ? listener_.m_socket : -1)};
  for (const Login& login : logins_) events.push_back(reading(login.socket()));
  for (const Seat& seat : seats_) {
    events.push_back(reading(seat.is_watched ? seat.worker->socket() : -1));
    events.push_back(reading(seat.is_watched ? seat.worker->process() : -1));
  }
  return events;
}

// Until the next thing to do for which nobody gives a sign; -1 for nothing.
int Server::time_left_ms() const {
  const Clock::time_point now = Clock::now();
  Clock::time_point next = Clock::time_point::max();
  if (accept_again_ > now) next = accept_again_;
  for (const Login& login : logins_) next = std::min(next, login.deadline());
  if (next == Clock::time_point::max()) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(next - now).count();
  return static_cast<int>(std::clamp<long long>(left, 0, 60'000));
}

// False when a signal asks for the end.
bool Server::serve_once() {
  std::vector<pollfd> events = watched();
  if (poll(events.data(), events.size(), time_left_ms()) < 0) return errno == EINTR;
  if (events[signals_at].revents != 0) return false;
  eventfd_t ended = 0;
  if (events[notice_at].revents != 0) eventfd_read(notice_->get(), &ended);
  look_at_seats(events.data() + logins_at + logins_.size());
  look_at_logins(events.data() + logins_at);
  if (events[listener_at].revents != 0) accept();
  return true;
}

void Server::accept() {
  char address[INET_ADDRSTRLEN] = {};
  Descriptor socket(listener_.Accept(address, true));
  if (!socket) {
    if (listener_.m_errno != EAGAIN) {
      spdlog::error("accept: {}", std::strerror(listener_.m_errno));
      accept_again_ = Clock::now() + pause_after_failed_accept;
    }
  } else if (!is_loopback(address)) {
    spdlog::warn("turned {} away, which is not this host", address);
  } else {
    logins_.emplace_back(std::move(socket), Clock::now() + options_.login_time);
  }
  if (logins_.size() > most_logins) {
    spdlog::warn("turned a connection away that had not logged in, for a newer one");
    logins_.pop_front();
  }
}

void Server::look_at_logins(const pollfd* events) {
  logins_.remove_if([&](Login& login) { return is_finished(login, *events++); });
}

bool Server::is_finished(Login& login, const pollfd& event) {
  _CONNECT request{};
  const Login::State state = event.revents != 0 ? login.look(request) : Login::State::incomplete;
  if (state == Login::State::complete) {
    admit(login, request);
  } else if (state == Login::State::broken) {
    spdlog::warn("a connection ended, or sent something else than a login");
  } else if (Clock::now() >= login.deadline()) {
    spdlog::warn("a connection did not log in in time");
  } else {
    return false;
  }
  return true;
}

void Server::admit(Login& login, const _CONNECT& request) {
  if (static_cast<int>(seats_.size()) >= options_.max_clients) {
    spdlog::warn("process {} refused: {} clients are there", int{request.pid}, seats_.size());
    send_refusal(login.channel(), ZT_ERR_GENERAL, "too many clients");
    return;
  }
  seats_.push_back(
      {std::make_unique<ClientWorker>(next_number_++, service_, login.release(), request, notify(notice_))});
  try {
    seats_.back().worker->StartRun();
  } catch (const boost::thread_resource_error& error) {
    spdlog::error("no thread for process {}: {}", int{request.pid}, error.what());
    seats_.pop_back();
  }
}

// Whatever a client sends here is no request; and mostly it is the end.
void Server::look_at_seats(const pollfd* events) {
  for (Seat& seat : seats_) {
    if (events[0].revents != 0 || events[1].revents != 0) dismiss(seat);
    events += descriptors_of_seat;
  }
  clear_seats();
}

void Server::dismiss(Seat& seat) {
  seat.worker->hang_up();
  seat.is_watched = false;
}

void Server::clear_seats() {
  seats_.remove_if([](const Seat& seat) { return seat.worker->ended(); });
}

bool Server::shut_down() {
  spdlog::info("ending");
  sd_notify(0, "STOPPING=1");
  listener_.Close();
  logins_.clear();
  for (Seat& seat : seats_) dismiss(seat);
  housekeeper_->stop();
  const auto deadline = Clock::now() + options_.shutdown_time;
  for (;;) {
    clear_seats();
    if (seats_.empty() && housekeeper_->ended()) return true;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) break;
    pollfd notice = reading(notice_->get());
    poll(&notice, 1, static_cast<int>(left));
    eventfd_t ended = 0;
    eventfd_read(notice_->get(), &ended);
  }
  spdlog::error("{} threads still wait for the database", seats_.size() + !housekeeper_->ended());
  return false;
}

}  // namespace manager
