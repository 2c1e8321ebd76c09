// The real manager in a process of its own, and Peer, a client that speaks to it frame by frame.
#ifndef CACHET_TESTS_SUPPORT_MANAGER_H
#define CACHET_TESTS_SUPPORT_MANAGER_H

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "support/child_process.h"
#include "support/mailbox.h"
#include "support/schema.h"
#include "tcpchanel.h"

namespace cachet::test {

// Where a service tells that it is ready.
class NotifySocket {
 public:
  explicit NotifySocket(const std::string& path)
      : path_(path), socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  }
  ~NotifySocket() {
    close(socket_);
    unlink(path_.c_str());
  }
  NotifySocket(const NotifySocket&) = delete;
  NotifySocket& operator=(const NotifySocket&) = delete;

  const std::string& path() const { return path_; }
  std::string message() const {
    char text[256] = {};
    pollfd waiting{socket_, POLLIN, 0};
    if (poll(&waiting, 1, 60000) == 1) recv(socket_, text, sizeof text - 1, 0);
    return text;
  }

 private:
  std::string path_;
  int socket_;
};

class Manager {
 public:
  explicit Manager(const TempDirectory& directory, std::vector<std::string> options = {})
      : directory_(directory.path()),
        notified_(directory.path() + "/notify"),
        process_([&](Gate&) { return execute(options); }) {
    const std::string message = notified_.message();
    const std::size_t at = message.rfind("port ");
    EXPECT_TRUE(message.starts_with("READY=1\n") && at != std::string::npos) << message;
    if (at != std::string::npos) port_ = std::atoi(message.c_str() + at + 5);
  }

  int port() const { return port_; }
  Child& process() { return process_; }
  int terminate() {
    kill(process_.pid(), SIGTERM);
    return process_.exit_status();
  }

  Database open(int mode = ZT_MODE_READ_WRITE) const {
    Database db;
    db.opened = ZtOpenDb(db.out(), directory_.c_str(), "d", version_text, mode, port_, true, 0, 0, 1);
    if (db.opened) finish_open(db);
    return db;
  }

  // The key files of the mailboxes there are.
  std::vector<std::string> mailboxes() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory_)) {
      const std::string name = entry.path().filename();
      if (name.find(".mailbox-") != std::string::npos) names.push_back(name);
    }
    return names;
  }

  // How many segments there are that the process made.
  int segments() const {
    std::ifstream list("/proc/sysvipc/shm");
    std::string line;
    int count = 0;
    for (std::getline(list, line); std::getline(list, line);) {
      std::istringstream words(line);
      std::string word;
      for (int column = 0; column < 5; ++column) words >> word;
      count += word == std::to_string(process_.pid());
    }
    return count;
  }

 private:
  int execute(const std::vector<std::string>& options) const {
    setenv("NOTIFY_SOCKET", notified_.path().c_str(), 1);
    std::vector<std::string> words{
        CACHET_ZTMANAGER, directory_, "d", "--version-text", version_text, "--port", "0",
        "--log-level",    "off"};
    words.insert(words.end(), options.begin(), options.end());
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    execv(CACHET_ZTMANAGER, arguments.data());
    return 127;
  }

  std::string directory_;
  NotifySocket notified_;
  Child process_;
  int port_ = 0;
};

class Peer {
 public:
  explicit Peer(const Manager& manager) {
    static char host[] = "127.0.0.1";
    EXPECT_TRUE(chanel.Create(true) && chanel.Connect(host, static_cast<short>(manager.port())));
  }
  Peer(const Manager& manager, int mode) : Peer(manager) { EXPECT_TRUE(log_in(mode)); }

  bool log_in(int mode) {
    set(CMD_CONNECT, ints({getpid(), mode}));
    if (!chanel.Send(&message) || !chanel.Recv(&message)) return false;
    const _CONNECT_OK welcome = message.body.connectok;
    return message.head.cmd == CMD_CONNECT_OK && mailbox.Open(welcome.name, welcome.keyid);
  }

  void set(int command, const std::string& body) { fill(message, static_cast<char>(command), body); }

  // The command of the answer, which is in `message`; -1 for none.
  int ask(int command, const std::string& body = "") {
    set(command, body);
    return mailbox.PutRequest(&message) ? answer() : -1;
  }
  int answer() {
    message = {};
    return mailbox.GetAnswer(&message, 60000) == 1 ? int{message.head.cmd} : -1;
  }
  // The same, as the error that came; code 0 for success.
  Error refusal(int command, const std::string& body = "") {
    if (ask(command, body) != CMD_ERROR) return {};
    return {message.body.error.errcode, message.body.error.errmsg};
  }

  VemroTcpChanel chanel;
  Cztmemchanel mailbox;
  _VEMROMSG message{};
};

}  // namespace cachet::test

#endif
