// The check of everything in a database that nobody changes meanwhile: every tree ordered, threaded and balanced, every
// list whole in both directions, every live record under its own keys in every index, and, when nobody is in the middle
// of anything, every count, mark and session gone.
#ifndef CACHET_TESTS_SUPPORT_WHOLE_CHECK_H
#define CACHET_TESTS_SUPPORT_WHOLE_CHECK_H

#include <cstring>
#include <map>

#include "caches.h"

namespace cachet::test {

using LiveRecords = std::map<ZTINT8, const ZtRecord*>;  // by record id

// Checks a table's trees and lists; returns what lives in it.
LiveRecords check_table(ZtDbHandle db, int tableid);

// Checks that no change is under way in a table: no record and no table marked. Holds behind every clearing.
void check_unmarked(ZtDbHandle db, int tableid);

// Checks that nobody holds or waits, no session is entered, and no work is left over.
void check_idle(ZtDbHandle db);

template <class T>
T field_of(ZtDbHandle db, int tableid, const ZtRecord* record, int field) {
  T value;
  const ZtTable& table = db->database[static_cast<std::size_t>(tableid)];
  const ZtDataField& place = table.fielddescrible[static_cast<std::size_t>(field)];
  std::memcpy(&value, record->data + place.offset, sizeof value);
  return value;
}

}  // namespace cachet::test

#endif
