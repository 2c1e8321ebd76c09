// The table of commands. The help, the completion and the dispatch read it, and nothing else knows what there is.
#include "zt/commands.h"

#include <array>

namespace zt {
namespace {

constexpr char looking[] = "Look at databases (zt-look(1))";
constexpr char health[] = "Health (zt-check(1))";
constexpr char processes[] = "Processes and locks (zt-locks(1))";

constexpr auto table = std::to_array<CommandEntry>({
    {"ls", looking, "List the databases of this host", make_ls},
    {"info", looking, "Show sizes, fill, version and creator of a database", make_info},
    {"schema", looking, "Show tables, fields and indexes", make_schema},
    {"tables", looking, "Count records, live and deleted, and the keys of each index", make_tables},
    {"ps", processes, "List the processes and sessions of a database", make_ps},
    {"verify", health, "Check every tree, list and counter of a database", make_verify},
});

}  // namespace

std::span<const CommandEntry> commands() {
  return table;
}

}  // namespace zt
