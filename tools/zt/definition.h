// The definition of a database's tables as a file: what zt create reads, and zt schema --as writes. One structure in
// two notations, TOML and JSON:
//
//   tables = [ { name, fields = [ { name, type, length, decimals } ... ],
//                indexes = [ { name, unique, fields = [ names ] } ... ] } ... ]
//
// Names are UTF-8 there and stored text here.
#ifndef CACHET_TOOLS_ZT_DEFINITION_H
#define CACHET_TOOLS_ZT_DEFINITION_H

#include <string>

#include "inspect/schema.h"
#include "zt/output/encoding.h"

namespace zt {

enum class Notation { toml, json };

// Every name fits, every width belongs to its type, every index has fields that exist: nothing of it is refused by the
// library. Throws UsageError, which says where in the file what is wrong.
cachet::inspect::Schema read_definition(const std::string& file, const Encoding& encoding);

// In UTF-8. What it writes is read back the same, as far as its types and names are such as read_definition takes.
std::string write_definition(const cachet::inspect::Schema& schema, Notation notation,
                             const Encoding& encoding);

}  // namespace zt

#endif
