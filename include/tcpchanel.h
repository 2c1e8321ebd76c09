// VemroTcpChanel: one IPv4 TCP socket, the way to a manager process.
//
// An object is used by one thread at a time; only host-name look-ups are serialised, over the whole process.
#ifndef CACHET_TCPCHANEL_H
#define CACHET_TCPCHANEL_H

#include "cachet.h"

class CACHET_API VemroTcpChanel {
 public:
  VemroTcpChanel();
  virtual ~VemroTcpChanel();  // closes the socket if this channel owns it
  VemroTcpChanel(const VemroTcpChanel&) = delete;
  VemroTcpChanel& operator=(const VemroTcpChanel&) = delete;

  void Init();
  // Makes the socket; false with the system's error in m_errno.
  bool Create(bool blocked);
  // Connects to a dotted address or host name. False with m_errno set, or as it was when the name is unknown.
  bool Connect(char* host, short port);
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
