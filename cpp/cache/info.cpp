// Small questions about the library and a database.
#include "caches.h"

const char VEMRO_BULID_VERSION[] = "Vemro_Version V2.3.1 Feb 27 2020 16:27:08";

const char* ZtGetLibVersion(void) {
  return VEMRO_BULID_VERSION;
}

const char* ZtGetDbVersion(ZtDbHandle database) {
  return database->base.memory != nullptr ? database->base.memory->version : nullptr;
}

void ZtMemoryInfo(ZtDbHandle database, ZTINT8* size, ZTINT8* used) {
  const Rb_memory* const memory = database->base.memory;
  *size = 0;
  *used = 0;
  if (memory == nullptr) return;
  *size = memory->size;
  *used = cachet::load_acquire<ZTINT8>(&memory->nodeoffset) +
          (memory->size - cachet::load_acquire<ZTINT8>(&memory->dataoffset));
}
