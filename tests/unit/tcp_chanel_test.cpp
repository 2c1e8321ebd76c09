// The TCP channel over real sockets of this host, and what peers can do to it.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "support/child_process.h"
#include "tcpchanel.h"
#include "vemroprotocol/frame.h"

namespace cachet::test {
namespace {

char loopback[] = "127.0.0.1";

short port_of(const VemroTcpChanel& channel) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  getsockname(channel.m_socket, reinterpret_cast<sockaddr*>(&address), &length);
  return static_cast<short>(ntohs(address.sin_port));
}

bool is_open(int socket) {
  return fcntl(socket, F_GETFD) != -1;
}

bool is_blocking(int socket) {
  return (fcntl(socket, F_GETFL) & O_NONBLOCK) == 0;
}

int option(int socket, int level, int name) {
  int value = -1;
  socklen_t length = sizeof value;
  getsockopt(socket, level, name, &value, &length);
  return value;
}

int unread_bytes(const VemroTcpChanel& channel) {
  int count = -1;
  ioctl(channel.m_socket, FIONREAD, &count);
  return count;
}

struct Listener : VemroTcpChanel {
  explicit Listener(bool block = true) { EXPECT_TRUE(Create(true) && Listen(0, block)); }
};

// Both ends of a connection.
struct Connection {
  VemroTcpChanel client;
  VemroTcpChanel server;

  Connection() {
    Listener listener;
    char address[16];
    EXPECT_TRUE(client.Create(true) && client.Connect(loopback, port_of(listener)));
    server.AttachSocket(listener.Accept(address, true), true);
  }
};

_VEMROMSG message(char command, int length) {
  _VEMROMSG msg{};
  msg.head.cmd = command;
  msg.head.length = length;
  for (int i = 0; i < length; ++i) msg.body.buffer[i] = static_cast<char>(i * 3 + 1);
  return msg;
}

std::string sealed(_VEMROMSG msg) {
  EXPECT_TRUE(frame::seal_wire(&msg));
  return {reinterpret_cast<const char*>(&msg), static_cast<std::size_t>(frame::bytes_of(&msg))};
}

// ---- connecting ----

TEST(TcpListen, SetsItsOptionsAndMode) {
  for (const bool block : {true, false}) {
    const Listener listener(block);
    for (const int name : {SO_KEEPALIVE, SO_REUSEADDR, SO_REUSEPORT}) {
      EXPECT_EQ(option(listener.m_socket, SOL_SOCKET, name), 1);
    }
    EXPECT_EQ(is_blocking(listener.m_socket), block);
  }
}

TEST(TcpListen, KeepsTheReasonOfAFailure) {
  VemroTcpChanel first;
  ASSERT_TRUE(first.Create(true));
  sockaddr_in any{};
  any.sin_family = AF_INET;
  ASSERT_EQ(bind(first.m_socket, reinterpret_cast<const sockaddr*>(&any), sizeof any), 0);
  VemroTcpChanel second;
  ASSERT_TRUE(second.Create(true));
  EXPECT_FALSE(second.Listen(port_of(first), true));
  EXPECT_EQ(second.m_errno, EADDRINUSE);
}

TEST(TcpAccept, TellsThePeerAndSetsUpItsSocket) {
  for (const bool blocked : {true, false}) {
    Listener listener;
    VemroTcpChanel client;
    ASSERT_TRUE(client.Create(true) && client.Connect(loopback, port_of(listener)));
    EXPECT_EQ(option(client.m_socket, IPPROTO_TCP, TCP_NODELAY), 1);
    char address[17];
    address[16] = '#';
    VemroTcpChanel server;
    server.AttachSocket(listener.Accept(address, blocked), true);
    EXPECT_STREQ(address, "127.0.0.1");
    EXPECT_EQ(address[16], '#');
    EXPECT_EQ(option(server.m_socket, IPPROTO_TCP, TCP_NODELAY), 1);
    EXPECT_EQ(is_blocking(server.m_socket), blocked);
  }
  Listener nobody_calls(false);
  char address[16];
  EXPECT_EQ(nobody_calls.Accept(address, true), -1);
  EXPECT_EQ(nobody_calls.m_errno, EAGAIN);
}

TEST(TcpConnect, ResolvesNamesAndTellsFailuresApart) {
  Listener listener;
  char localhost[] = "localhost";
  VemroTcpChanel by_name;
  EXPECT_TRUE(by_name.Create(true) && by_name.Connect(localhost, port_of(listener)));

  char nowhere[] = "..";
  for (const int timeout : {-1, 100}) {
    VemroTcpChanel unknown;
    ASSERT_TRUE(unknown.Create(true));
    unknown.m_errno = EINPROGRESS;
    EXPECT_FALSE(unknown.Connect2(nowhere, port_of(listener), timeout));
    EXPECT_EQ(unknown.m_errno, EINPROGRESS);
  }

  const short port = port_of(listener);
  listener.Close();
  for (const int timeout : {-1, 1000}) {
    VemroTcpChanel refused;
    ASSERT_TRUE(refused.Create(true));
    EXPECT_FALSE(refused.Connect2(loopback, port, timeout));
    EXPECT_TRUE(is_blocking(refused.m_socket));
  }
}

TEST(TcpConnect2, EndsWithItsTimeLimit) {
  Listener listener;
  std::vector<std::unique_ptr<VemroTcpChanel>> waiting;  // as many as the system lets wait for an Accept
  bool connected = true;
  while (connected && waiting.size() < 20) {
    waiting.push_back(std::make_unique<VemroTcpChanel>());
    ASSERT_TRUE(waiting.back()->Create(true));
    connected = waiting.back()->Connect2(loopback, port_of(listener), waiting.size() > 1 ? 50 : 1000);
    EXPECT_TRUE(is_blocking(waiting.back()->m_socket));
  }
  ASSERT_FALSE(connected);
  EXPECT_GT(waiting.size(), 1U);
  EXPECT_EQ(waiting.back()->m_errno, EINPROGRESS);

  VemroTcpChanel at_once;
  EXPECT_TRUE(at_once.Create(true));
  EXPECT_FALSE(at_once.Connect2(loopback, port_of(listener), 0));
  // A wait that fails is not told from one that found the connection without an error.
  VemroTcpChanel negative;
  EXPECT_TRUE(negative.Create(true) && negative.Connect2(loopback, port_of(listener), -500));
}

// ---- waiting ----

TEST(TcpWait, IsFalseOnlyWhenTheTimeRanOut) {
  Connection both;
  EXPECT_FALSE(both.server.Wait(0));
  EXPECT_FALSE(both.server.Wait(20));
  char byte = 'x';
  EXPECT_EQ(both.client.Send(&byte, 1), 1);
  EXPECT_TRUE(both.server.Wait(-1));
  EXPECT_TRUE(both.server.Recv());
  EXPECT_FALSE(both.server.Wait(0));
  both.client.Close();
  EXPECT_TRUE(both.server.Wait(10000)) << "the end of the stream";
}

TEST(TcpWait, CountsItsOwnFailureAsReadable) {
  Connection both;
  for (const int ms : {-2, -999, -1000, INT_MIN}) {
    EXPECT_TRUE(both.server.Wait(ms)) << ms;
    EXPECT_EQ(both.server.GetLastError(), EINVAL);
  }
  VemroTcpChanel no_socket;
  EXPECT_TRUE(no_socket.Wait(-1));
  EXPECT_EQ(no_socket.GetLastError(), EBADF);
  close(both.client.m_socket);
  errno = 0;
  EXPECT_TRUE(both.client.Wait(-1));
  EXPECT_EQ(both.client.GetLastError(), EBADF);
  both.client.Init();
}

// ---- bytes ----

TEST(TcpSend, WithoutASocketOrAPeerFails) {
  char bytes[3000] = {};
  VemroTcpChanel never_made;
  never_made.m_errno = 77;
  EXPECT_EQ(never_made.Send(bytes, 5), -1);
  EXPECT_EQ(never_made.m_errno, 77);
  auto msg = message(CMD_OK, 0);
  EXPECT_FALSE(never_made.Send(&msg));
  EXPECT_EQ(never_made.SendBuf(bytes, 5), -1);
  EXPECT_EQ(never_made.m_errno, EBADF);

  std::signal(SIGPIPE, SIG_DFL);  // whoever started the tests may have it ignored
  Connection both;
  both.server.Close();
  int sent = 0;
  for (int i = 0; i < 100 && sent != -1; ++i) sent = both.client.Send(bytes, sizeof bytes);
  EXPECT_EQ(sent, -1);
  EXPECT_TRUE(both.client.m_errno == EPIPE || both.client.m_errno == ECONNRESET) << both.client.m_errno;
}

TEST(TcpSend, OfNothingSendsNothing) {
  Connection both;
  char byte = 'x';
  EXPECT_EQ(both.client.Send(&byte, 0), 0);
  EXPECT_EQ(both.client.Send(&byte, -5), 0);
  EXPECT_EQ(both.client.SendBuf(&byte, 0), -1);
  EXPECT_EQ(both.client.SendBuf(&byte, -5), -1);
  EXPECT_FALSE(both.server.Wait(0));
}

TEST(TcpRecv, TakesExactlyWhatIsAskedFor) {
  Connection both;
  std::string sent(10000, 'a');
  sent += "12345";
  ASSERT_EQ(both.client.Send(sent.data(), static_cast<int>(sent.size())), 10005);
  std::string received(10000, '\0');
  EXPECT_EQ(both.server.Recv(received.data(), 10000), 10000);
  EXPECT_EQ(received, sent.substr(0, 10000));
  EXPECT_EQ(both.server.Recv(received.data(), 0), 0);
  EXPECT_EQ(both.server.Recv(received.data(), -1), 0);
  EXPECT_EQ(unread_bytes(both.server), 5);
  EXPECT_TRUE(both.server.Recv());
  both.client.Close();
  EXPECT_EQ(both.server.Recv(received.data(), 1), -1);
  EXPECT_FALSE(both.server.Recv());
}

TEST(TcpChanel, ClosesOnlyWhatItOwnsAndNeverDescriptor0) {
  Connection both;
  const int socket = both.server.m_socket;
  {
    VemroTcpChanel borrower;
    borrower.AttachSocket(socket, false);
  }
  EXPECT_TRUE(is_open(socket));
  Child child([&](Gate&) {
    dup2(socket, STDIN_FILENO);
    { VemroTcpChanel().AttachSocket(STDIN_FILENO, true); }
    EXPECT_TRUE(is_open(STDIN_FILENO));
    { VemroTcpChanel().AttachSocket(socket, true); }
    EXPECT_FALSE(is_open(socket));
    return 0;
  });
  EXPECT_EQ(child.exit_status(), 0);
}

// ---- frames ----

TEST(TcpFrames, ArriveOneByOneWhateverTheirLength) {
  Connection both;
  const std::vector<int> lengths = {0, 1, 8, 1014, 1015, 8191, 8192, 0};
  for (const int length : lengths) {
    auto msg = message(CMD_INSERT, length);
    EXPECT_TRUE(both.client.Send(&msg));
    EXPECT_EQ(msg.head.lorn, VEMRO_NET);
  }
  for (const int length : lengths) {
    auto msg = message(CMD_OK, 0);
    ASSERT_TRUE(both.server.Recv(&msg)) << length;
    EXPECT_EQ(msg.head.lorn, VEMRO_LOCAL);
    const auto sent = message(CMD_INSERT, length);
    EXPECT_EQ(msg.head.length, length);
    EXPECT_EQ(std::memcmp(msg.body.buffer, sent.body.buffer, static_cast<std::size_t>(length)), 0);
  }
  auto too_long = message(CMD_INSERT, 0);
  too_long.head.length = 8193;
  EXPECT_FALSE(both.client.Send(&too_long));
  EXPECT_FALSE(both.server.Wait(0));
}

// A peer of its own that connects, sends the bytes in pieces, and goes when told to.
class Peer {
 public:
  Peer(Listener& listener, const std::string& bytes, std::size_t piece)
      : child_([&, bytes, piece](Gate& gate) {
          VemroTcpChanel out;
          if (!out.Create(true) || !out.Connect(loopback, port_of(listener))) return 1;
          for (std::size_t at = 0; at < bytes.size(); at += piece) {
            const std::string next = bytes.substr(at, piece);
            send(out.m_socket, next.data(), next.size(), MSG_NOSIGNAL);
          }
          gate.tell('s');
          gate.wait_for('g');
          return 0;
        }) {
    char address[16];
    channel.AttachSocket(listener.Accept(address, true), true);
  }
  void goes() {
    child_.wait_for('s');
    child_.tell('g');
  }

  VemroTcpChanel channel;

 private:
  Child child_;
};

struct Hostile {
  const char* what;
  std::string bytes;
  bool must_go;  // before the receiver can know
  int unread;    // of the bytes, afterwards
};

std::string with_length(int length, const std::string& rest) {
  auto msg = message(CMD_INSERT, 0);
  std::string bytes = sealed(msg);
  std::memcpy(bytes.data(), &length, sizeof length);
  return bytes + rest;
}

std::string with_damage(std::string bytes, std::size_t at) {
  bytes[at] = static_cast<char>(bytes[at] ^ 0x10);
  return bytes;
}

std::vector<Hostile> hostile_peers() {
  const std::string frame = sealed(message(CMD_INSERT, 300));
  const std::string body(8193, 'b');
  return {
      {"a body of 8193 bytes", with_length(8193, body), false, 8193},
      {"a body of -1 bytes", with_length(-1, body), false, 8193},
      {"the most negative length", with_length(INT_MIN, "b"), false, 1},
      {"the largest length", with_length(INT_MAX, ""), false, 0},
      {"half a head", frame.substr(0, 5), true, 0},
      {"a head alone", frame.substr(0, 10), true, 0},
      {"half a body", frame.substr(0, 160), true, 0},
      {"a wrong check", with_damage(frame, 6), false, 0},
      {"a damaged body", with_damage(frame, 200), false, 0},
      {"another command", with_damage(frame, 4), false, 0},
      {"silence", "", true, 0},
  };
}

TEST(TcpFrames, OfHostilePeersAreRefused) {
  for (const Hostile& hostile : hostile_peers()) {
    Listener listener;
    Peer peer(listener, hostile.bytes, 4096);
    // Room for nothing but a message: what is written behind it is found by a sanitizer.
    const auto msg = std::make_unique<_VEMROMSG>();
    if (hostile.must_go) peer.goes();
    EXPECT_FALSE(peer.channel.Recv(msg.get())) << hostile.what;
    if (!hostile.must_go) peer.goes();
    EXPECT_EQ(unread_bytes(peer.channel), hostile.unread) << hostile.what;
  }
}

TEST(TcpFrames, MayComeByteByByte) {
  Listener listener;
  Peer peer(listener, sealed(message(CMD_INSERT, 300)) + sealed(message(CMD_ERASE, 8)), 1);
  auto msg = message(CMD_OK, 0);
  EXPECT_TRUE(peer.channel.Recv(&msg) && msg.head.cmd == CMD_INSERT);
  EXPECT_TRUE(peer.channel.Recv(&msg) && msg.head.cmd == CMD_ERASE);
  peer.goes();
}

}  // namespace
}  // namespace cachet::test
