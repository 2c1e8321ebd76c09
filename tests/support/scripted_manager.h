// A manager in a process of its own that serves one isolated client as a test says, and remembers what it was asked.
#ifndef CACHET_TESTS_SUPPORT_SCRIPTED_MANAGER_H
#define CACHET_TESTS_SUPPORT_SCRIPTED_MANAGER_H

#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <functional>
#include <string>

#include "support/child_process.h"
#include "support/mailbox.h"
#include "support/schema.h"
#include "support/shared.h"
#include "tcpchanel.h"

namespace cachet::test {

class ScriptedManager {
 public:
  // Answers a request, or does not.
  using Script = std::function<void(Cztmemchanel& mailbox, const _VEMROMSG& request)>;
  // Answers the login; returns whether to serve the mailbox that it is given.
  using Login = std::function<bool(VemroTcpChanel& chanel, const std::string& mailbox_name)>;

  static constexpr int keyid = 7;

  ScriptedManager(const TempDirectory& directory, Script script, Login login = welcome)
      : mailbox_name_(directory.path() + "/box"),
        port_(listen()),
        process_([=, this](Gate&) { return serve(script, login); }) {
    listener_.Close();
  }

  int port() const { return port_; }
  Child& process() { return process_; }
  int asked() const { return log_->count; }
  const _VEMROMSG& request(int number) const { return log_->requests.at(static_cast<std::size_t>(number)); }

  Database open(const TempDirectory& directory, int mode = ZT_MODE_READ_WRITE) const {
    Database db;
    db.opened = ZtOpenDb(db.out(), directory.path().c_str(), "d", version_text, mode, port_, true, 0, 0, 1);
    if (db.opened) finish_open(db);
    return db;
  }

  static bool welcome(VemroTcpChanel& chanel, const std::string& mailbox_name) {
    _VEMROMSG answer{};
    fill(answer, CMD_CONNECT_OK, std::string(sizeof(_CONNECT_OK), '\0'));
    mailbox_name.copy(answer.body.connectok.name, sizeof answer.body.connectok.name - 1);
    answer.body.connectok.keyid = keyid;
    return chanel.Send(&answer);
  }

  static void answer(Cztmemchanel& mailbox, char command, const std::string& body = {}) {
    _VEMROMSG message{};
    fill(message, command, body);
    mailbox.PutAnswer(&message);
  }
  static void refuse(Cztmemchanel& mailbox, int code, const std::string& text) {
    answer(mailbox, CMD_ERROR, ints({code}) + padded(text, sizeof _ERRORMSG::errmsg));
  }
  static void stored_at(Cztmemchanel& mailbox, std::uint64_t offset) {
    answer(mailbox, CMD_INSERT_OK, {reinterpret_cast<const char*>(&offset), sizeof offset});
  }

 private:
  struct Log {
    int count;
    std::array<_VEMROMSG, 64> requests;
  };

  int listen() {
    EXPECT_TRUE(listener_.Create(true) && listener_.Listen(0, true));
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(listener_.m_socket, reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
  }

  void remember(const _VEMROMSG& request) {
    log_->requests.at(static_cast<std::size_t>(log_->count) % log_->requests.size()) = request;
    ++log_->count;
  }

  int serve(const Script& script, const Login& login) {
    char peer[16];
    VemroTcpChanel chanel;
    chanel.AttachSocket(listener_.Accept(peer, true), true);
    _VEMROMSG request{};
    if (!chanel.Recv(&request)) return 1;
    remember(request);
    Cztmemchanel mailbox;
    if (!mailbox.Create(mailbox_name_.c_str(), keyid, VEMRO_FRAME_BYTES, 10)) return 2;
    if (!login(chanel, mailbox_name_)) return 0;
    for (;;) {
      request = {};
      if (mailbox.GetRequest(&request, 20) == 1) {
        remember(request);
        script(mailbox, request);
      } else if (chanel.Wait(0)) {
        return 0;  // the client has gone: it says nothing else over TCP
      }
    }
  }

  std::string mailbox_name_;
  Shared<Log> log_;
  VemroTcpChanel listener_;
  int port_;
  Child process_;
};

}  // namespace cachet::test

#endif
