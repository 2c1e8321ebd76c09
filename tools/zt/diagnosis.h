// The diagnoses of zt doctor: what it looked at, how it stands, and what mends it.
#ifndef CACHET_TOOLS_ZT_DIAGNOSIS_H
#define CACHET_TOOLS_ZT_DIAGNOSIS_H

#include <cstdint>
#include <string>
#include <vector>

#include "zt/context.h"

namespace zt {

struct Diagnosis {
  std::string check;
  std::string state;  // "ok", "warning", "fault"
  std::string detail;
  std::string remedy;
};

// Bytes that must be free before the library inserts anything.
inline constexpr std::int64_t least_room_of_an_insert = 81920;

using Diagnoses = std::vector<Diagnosis>;

// Limits and settings of this host.
void examine_host(Diagnoses& diagnoses);
// One database: key files, objects, locks, marks, room. False when there is none.
bool examine_database(const Context& context, const std::string& path, Diagnoses& diagnoses);

}  // namespace zt

#endif
