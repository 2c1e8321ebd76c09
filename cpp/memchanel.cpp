#include "memchanel.h"

Cztmemchanel::Cztmemchanel() : m_opener(0), m_seen_other(false) {}

Cztmemchanel::~Cztmemchanel() {
  Close();
  Delete();
}

void Cztmemchanel::Close() {
  m_shmem_r.Close(false);
  m_shmem_a.Close(false);
  m_sema_r.Close();
  m_sema_a.Close();
}

void Cztmemchanel::Delete() {
  m_shmem_r.Delete();
  m_shmem_a.Delete();
  m_sema_r.Delete();
  m_sema_a.Delete();
}
