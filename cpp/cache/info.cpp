// Small questions about the library and a database.
#include "cache/error.h"
#include "cache/record.h"

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

// The constants are the room of a record's header, its list node and its index nodes.
void ZtTableSize(ZtDbHandle database, int tableid, const long& count, const long& size) {
  long records = 0;
  long bytes_each = 0;
  if (const ZtTable* const table = cachet::loaded_table(database, tableid)) {
    records = cachet::load_relaxed<int>(&cachet::catalog_of(database, tableid)->recordcount);
    bytes_each = cachet::stored_bytes(*table) + 74;
    for (const ZtIndexDescrible& index : table->indexdescrible) {
      bytes_each += 12 * static_cast<long>(index.indexdescrible.size()) + 86;
    }
  }
  const_cast<long&>(count) = records;
  const_cast<long&>(size) = records * bytes_each;
}
