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
  char info[16];  // local time of entry, "%Y%m%d%H%M%S" and its NUL; the last byte is the lock slot
};

struct MemBlock {
  TransInfo trans;
  int status;  // 1 = in use, 0 = free, -thread id = on its way in or out
};
#pragma pack(pop)

static_assert(sizeof(TransInfo) == 64 && offsetof(TransInfo, info) == 48);
static_assert(sizeof(MemBlock) == 68 && offsetof(MemBlock, status) == 64);

namespace cachet {
struct ThreadIdentity;
}

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

  // The same in steps, for a caller that records each one before it takes it (-1: none). An entry is a number
  // over all four areas; `slot` is the lock slot it belongs to, kept in the last byte of `info`.
  int FreeEntry(SessionType type) const;
  // Enters the calling thread there; false when somebody else was faster.
  bool ClaimEntry(int entry, int slot);
  int EntryOf(SessionType type, const cachet::ThreadIdentity& owner, int slot) const;
  // Removes the entry if it is the owner's on this slot, or half-way in or out by thread `mover`; else does
  // nothing.
  void ClearEntry(int entry, const cachet::ThreadIdentity& owner, int slot, int mover);
  static int SlotOf(const TransInfo& session);
  static cachet::ThreadIdentity OwnerOf(const char* sid);
  static void ReportFull();
  static void ReportMissing();
  bool Tracks() const { return db_session_mode_ != 0 && shm_base_addr_ != nullptr; }

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
