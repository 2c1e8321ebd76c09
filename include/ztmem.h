// Cztshamem: one System V shared-memory segment, found through a key file, attached read-write.
//
// The segment lives until the last attached process closes it. Destroying an object releases nothing in the
// system.
#ifndef CACHET_ZTMEM_H
#define CACHET_ZTMEM_H

#include "cachet.h"

class CACHET_API Cztshamem {
 public:
  Cztshamem();
  virtual ~Cztshamem();

  // Makes key file (0600) and segment of `size` bytes and attaches it. An unattached segment of the same key
  // is replaced; over an attached one it fails and leaves the key file alone. `name`: at most 199 bytes.
  // `portable_shm` is not used, here and below.
  bool Create(const char* name, int keyid, int size, bool portable_shm);
  // Attaches an existing segment of at least 4096 bytes; the key file must exist.
  bool Open(const char* name, int keyid, bool portable_shm);
  // The number of attachments, of all processes; 0 without a segment.
  int usercount();
  // The segment's size; 0 without one.
  long bytes() const;
  // Whether the key file leads to this very segment now: the file may have been removed, or made anew.
  bool is_named() const;
  // Detaches; the last one removes segment and key file.
  void Close(bool portable_shm);
  // Removes the key file.
  void Delete();

  int m_shamemid;
  char m_name[200];
  int m_hfile;
  char* m_p;

 private:
  int m_keyid;
};

#endif
