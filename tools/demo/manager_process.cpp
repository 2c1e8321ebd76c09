#include "manager_process.h"

#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <utility>

#include "schema.h"

namespace demo {
namespace {

constexpr int kPatienceMs = 10'000;
constexpr std::string_view kReady = "READY=1";

std::string program() {
  return std::filesystem::read_symlink("/proc/self/exe").parent_path() / "ztmanager";
}

// A port of the loopback that nobody had just now.
int free_port() {
  const int probe = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  bind(probe, reinterpret_cast<const sockaddr*>(&address), length);
  getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length);
  close(probe);
  return ntohs(address.sin_port);
}

// Where a service says that it is ready, as it does to systemd.
class NotifySocket {
 public:
  explicit NotifySocket(const std::string& directory)
      : path_(directory + "/notify"), socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path_.copy(address.sun_path, sizeof address.sun_path - 1);
    bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  }
  ~NotifySocket() {
    close(socket_);
    unlink(path_.c_str());
  }
  NotifySocket(const NotifySocket&) = delete;
  NotifySocket& operator=(const NotifySocket&) = delete;

  const std::string& path() const { return path_; }

  bool wait_until_ready() const {
    for (;;) {
      pollfd readable{socket_, POLLIN, 0};
      char text[512];
      if (poll(&readable, 1, kPatienceMs) <= 0) return false;
      const ssize_t length = recv(socket_, text, sizeof text, 0);
      if (length <= 0) return false;
      if (std::string_view(text, static_cast<size_t>(length)).find(kReady) != std::string_view::npos)
        return true;
    }
  }

 private:
  std::string path_;
  int socket_;
};

[[noreturn]] void become_manager(const std::string& directory, int port, const std::string& notify) {
  setenv("NOTIFY_SOCKET", notify.c_str(), 1);
  const std::string path = program();
  const std::string port_text = std::to_string(port);
  execl(path.c_str(), path.c_str(), directory.c_str(), kDatabaseName, "--version-text", kVersionText,
        "--port", port_text.c_str(), "--log-level", "warning", nullptr);
  _exit(127);
}

}  // namespace

bool ManagerProcess::is_built() {
  return access(program().c_str(), X_OK) == 0;
}

ManagerProcess::ManagerProcess(const std::string& directory) : port_(free_port()) {
  const NotifySocket notify(directory);
  pid_ = fork();
  if (pid_ == 0) become_manager(directory, port_, notify.path());
  ready_ = pid_ > 0 && notify.wait_until_ready();
}

bool ManagerProcess::end() {
  if (pid_ <= 0) return true;
  const pid_t pid = std::exchange(pid_, -1);
  kill(pid, SIGTERM);
  int status = 0;
  for (int waited_ms = 0; waitpid(pid, &status, WNOHANG) == 0; waited_ms += 10) {
    if (waited_ms == kPatienceMs) kill(pid, SIGKILL);
    poll(nullptr, 0, 10);
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace demo
