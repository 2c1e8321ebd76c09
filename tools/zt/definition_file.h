// The two notations of a definition, TOML and JSON, brought to one.
#ifndef CACHET_TOOLS_ZT_DEFINITION_FILE_H
#define CACHET_TOOLS_ZT_DEFINITION_FILE_H

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace zt {

// JSON when it begins with "{", which no TOML does; else TOML. Throws UsageError with the place where the notation is
// wrong, or when there is no such file.
nlohmann::json read_definition_file(const std::string& file);

}  // namespace zt

#endif
