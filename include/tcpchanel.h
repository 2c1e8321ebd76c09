// VemroTcpChanel: one IPv4 TCP socket, the way between an isolated client and its manager.
//
// An object is used by one thread at a time; only host-name look-ups are serialised, over the whole process. No call
// raises SIGPIPE. A call that fails keeps the system's error in m_errno, unless it says otherwise.
#ifndef CACHET_TCPCHANEL_H
#define CACHET_TCPCHANEL_H

#include "cachet.h"
#include "vemroprotocol.h"

class CACHET_API VemroTcpChanel {
 public:
  VemroTcpChanel();
  virtual ~VemroTcpChanel();  // closes the socket if this channel owns it
  VemroTcpChanel(const VemroTcpChanel&) = delete;
  VemroTcpChanel& operator=(const VemroTcpChanel&) = delete;

  void Init();
  // Makes the socket.
  bool Create(bool blocked);
  // Adopts a descriptor, such as Accept gives; `owned` tells whether the destructor closes it. A socket that the
  // channel had before stays open.
  void AttachSocket(int socket, bool owned);

  // Binds to `port` of every local address and listens.
  bool Listen(short port, bool block);
  // Waits for a peer, whose dotted address it writes to `address` (16 bytes). The descriptor is the caller's; -1 on
  // failure.
  int Accept(char* address, bool blocked);

  // Connects to a dotted address or host name. m_errno stays as it was when the name is unknown;
  // boost::lock_error ("boost: mutex lock failed in pthread_mutex_lock") when look-ups cannot be serialised.
  bool Connect(char* host, short port);
  // The same within `timeout` milliseconds (-1: without limit); leaves the socket blocking. When the time runs out,
  // m_errno is EINPROGRESS.
  bool Connect2(char* host, short port, int timeout);

  // Waits at most `ms` milliseconds (-1: without limit) for something to read. False only when the time ran out: a
  // failed wait counts as readable.
  bool Wait(int ms);
  // Exactly `length` bytes, waiting without limit for the first even when none is asked. `length`, 0 for none asked, or
  // -1: what had come is lost then. On a socket that does not block, also the rest must be there, or it fails.
  int Recv(char* buffer, int length);
  // Throws up to 8192 bytes away, waiting for the first.
  bool Recv();
  // All bytes, in pieces of at most 1024. The number, or -1; without a socket m_errno stays as it was.
  int Send(char* ptr, int nDesignedSize);
  // As many bytes as the system takes at once. The number, or -1.
  int SendBuf(char* ptr, int datalength);

  // Seals and sends a message; leaves it in wire order. False also, with nothing sent, for a length that does not fit.
  bool Send(_VEMROMSG* msg);
  // Receives a message in host order. False for a length that does not fit (no body byte is read then), a wrong check
  // or version, a lost connection; the stream is out of step after the first and the last.
  bool Recv(_VEMROMSG* msg);

  bool SetNoneBlock();
  bool SetBlock();
  void Close();
  // The calling thread's errno.
  int GetLastError();

  int m_errno;
  int m_socket;
  bool m_bind;  // whether the destructor closes the socket
};

#endif
