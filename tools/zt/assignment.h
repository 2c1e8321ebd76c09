// FIELD=VALUE, as the commands that write take it.
#ifndef CACHET_TOOLS_ZT_ASSIGNMENT_H
#define CACHET_TOOLS_ZT_ASSIGNMENT_H

#include <string>
#include <vector>

#include "zt/table.h"

namespace zt {

struct Assignment {
  int field = 0;
  std::string value;  // in its stored form
};

// From words of the command line. Throws UsageError for a word that is none, and for a field that is named twice,
// NotFound for one that is not there, BadValue.
std::vector<Assignment> assignments(const Context& context, const Table& table,
                                    const std::vector<std::string>& words);

// Gives the row these values. Throws Failure with the library's refusal.
void assign(const Database& database, const Table& table, ZtRecordHandle record,
            const std::vector<Assignment>& assignments);

}  // namespace zt

#endif
