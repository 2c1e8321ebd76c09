// Cztsema: one System V semaphore, a member of a set of ten that one key file stands for.
//
// The key file is "<name><semid / 10>.sem", the member semid % 10. New semaphores start at 0 (taken).
// Destroying an object releases nothing in the system.
#ifndef CACHET_ZTSEMA_H
#define CACHET_ZTSEMA_H

#include <string>

#include "cachet.h"

class CACHET_API Cztsema {
 public:
  Cztsema();
  virtual ~Cztsema();

  // Makes the key file (0600) and the set if they are missing. `maxvalue` is not used. False, with one line
  // on standard output when the set is refused, and without a key file then.
  bool Create(const char* name, int keyid, int semid, int maxvalue);
  // Finds an existing set; makes the key file if it is missing.
  bool Open(const char* name, int keyid, int semid);
  // Takes one unit, waiting at most `ms` milliseconds (-1: without limit), in one system call.
  // 1 = taken, 0 = timed out or the set is gone, -1 = other failure, an interrupted wait among them; errno
  // tells.
  int Wait(int ms);
  // Adds one unit.
  bool Release();
  // Removes the whole set from the system.
  void Close();
  // Removes the key file.
  void Delete();

  int m_sempid;
  int m_sempno;
  std::string m_name;
};

#endif
