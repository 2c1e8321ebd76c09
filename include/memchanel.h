// Cztmemchanel: a request box and an answer box in shared memory, between an isolated client and its manager.
#ifndef CACHET_MEMCHANEL_H
#define CACHET_MEMCHANEL_H

#include "cachet.h"
#include "spinlock.h"
#include "ztmem.h"
#include "ztsema.h"

class CACHET_API Cztmemchanel {
 public:
  Cztmemchanel();
  // Closes and deletes; an object that was never opened removes nothing.
  virtual ~Cztmemchanel();
  Cztmemchanel(const Cztmemchanel&) = delete;
  Cztmemchanel& operator=(const Cztmemchanel&) = delete;

  void Close();
  void Delete();

  Cztshamem m_shmem_r;
  Cztshamem m_shmem_a;
  Cztsema m_sema_r;
  Cztsema m_sema_a;
  Cspinlock m_lock_r;
  Cspinlock m_lock_a;
};

#endif
