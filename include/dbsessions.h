// DBSessions: the table of threads that hold or wait for a slot of the cross-process lock.
//
// It lies in a shared segment "<name>_session_shmname" of 4 MiB: four areas of 1024 entries, one per session
// type.
//
//   entry   0          2048                     (WTREAD, INREAD, WTWRITE, INWRITE: entry 1024 x type)
//           +----------+----------+----------+----------+ . . . . .
//           | WTREAD   | INREAD   | WTWRITE  | INWRITE  |   unused
//           +----------+----------+----------+----------+ . . . . .
//   byte    0          69632      139264     208896     278528      4194304
//
// Entries change only under a spin lock of the lock page. With tracking off (mode 0) nothing is written.
#ifndef CACHET_DBSESSIONS_H
#define CACHET_DBSESSIONS_H

#include <cstddef>
#include <vector>

#include "cachet.h"
#include "ztmem.h"

enum SessionType { WTREAD = 0, INREAD = 1, WTWRITE = 2, INWRITE = 3 };

#pragma pack(push, 1)
struct TransInfo {
  char sid[48];   // "%024lu%024lu" of process id and thread id, no terminator
  char info[16];  // local time of entry, "%Y%m%d%H%M%S"
};

struct MemBlock {
  TransInfo trans;
  int status;  // 1 = in use, 0 = free
};
#pragma pack(pop)

static_assert(sizeof(TransInfo) == 64 && offsetof(TransInfo, info) == 48);
static_assert(sizeof(MemBlock) == 68 && offsetof(MemBlock, status) == 64);

class CACHET_API DBSessions {
 public:
  DBSessions();

  // Makes the segment, zeroed. False after one line on standard output.
  bool CreateContainer(const char* name, int mode);
  // Attaches an existing segment. False after one line on standard output.
  bool OpenContainer(const char* name, int mode);

  // Enters the calling thread. False, after a message, when all 1024 entries of the type are in use.
  bool InsertSession(SessionType type);
  // Removes the first entry of `sid` (48 characters; null: the calling thread). False, after a message,
  // without one.
  bool EraseSession(SessionType type, char* sid);
  // Appends the used entries of area `stype`, in table order. False for an unknown type or without a segment.
  bool GetSessions(std::vector<TransInfo>& sessions, int stype);

  // Writes the calling thread's 48 characters, no terminator.
  void GetCurSid(char* sid);
  // Prints the four areas on standard output.
  void PrintSession();
  // True when a signal could be sent to the process.
  bool ProcessIsAlive(unsigned long pid);

  // Detaches; the last process removes the segment.
  void Close();
  // Removes the key file.
  void Delete();

  MemBlock* wtread_ssions_;
  MemBlock* inread_ssions_;
  MemBlock* wtwrite_ssions_;
  MemBlock* inwrite_ssions_;
  Cztshamem container_shm_;
  char* shm_base_addr_;
  int db_session_mode_;
};

#endif
