// The check of one table: its trees, the two lists under every key, and that each live record stands under its own key
// in every index, once.
#ifndef CACHET_TOOLS_INSPECT_TABLE_CHECK_H
#define CACHET_TOOLS_INSPECT_TABLE_CHECK_H

#include <map>

#include "inspect/findings.h"
#include "inspect/schema.h"

namespace cachet::inspect {

// Flat offset by record id.
using RecordOffsets = std::map<std::int64_t, std::int64_t>;

// Returns the live records of the record-id tree.
RecordOffsets check_table(const Rb_base* view, const Table& table, Findings& findings);

}  // namespace cachet::inspect

#endif
