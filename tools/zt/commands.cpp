// The table of commands. The help, the completion and the dispatch read it, and nothing else knows what there is.
#include "zt/commands.h"

#include <array>

namespace zt {
namespace {

constexpr char looking[] = "Look at databases (zt-look(1))";
constexpr char data[] = "Make and fill databases (zt-data(1))";
constexpr char health[] = "Health (zt-check(1))";
constexpr char moving[] = "Move data (zt-move(1))";
constexpr char shell[] = "All of them (zt-shell(1))";
constexpr char processes[] = "Processes and locks (zt-locks(1))";

constexpr auto table = std::to_array<CommandEntry>({
    {"ls", looking, "List the databases of this host", make_ls},
    {"info", looking, "Show sizes, fill, version and creator of a database", make_info},
    {"schema", looking, "Show tables, fields and indexes", make_schema},
    {"tables", looking, "Count records, live and deleted, and the keys of each index", make_tables},
    {"stat", looking, "Show what is done in a database, second by second", make_stat},
    {"top", looking, "Watch a database on the full screen", make_top},
    {"create", data, "Make an empty database by a schema file", make_create},
    {"get", data, "Print rows: all of a table, or those that an index finds", make_get},
    {"count", data, "Count rows: all of a table, or those that an index finds", make_count},
    {"insert", data, "Store a row", make_insert},
    {"set", data, "Change fields of stored rows", make_set},
    {"delete", data, "Delete rows", make_delete},
    {"ps", processes, "List the processes and sessions of a database", make_ps},
    {"locks", processes, "Show who holds the locks, and who waits for whom", make_locks},
    {"reap", processes, "Clear what dead processes left", make_reap},
    {"import", moving, "Store the rows of a file in a table", make_import},
    {"export", moving, "Write the rows of a table to a file", make_export},
    {"save", moving, "Save a database as a folder of files with checksums", make_save},
    {"load", moving, "Load a saved database", make_load},
    {"bench", moving, "Measure the library's own speed on this host, in ten seconds", make_bench},
    {"verify", health, "Check every tree, list and counter of a database", make_verify},
    {"doctor", health, "Say what is wrong with this host or a database, and how to mend it", make_doctor},
    {"rm", health, "Remove a database that nobody uses", make_rm},
    {"shell", shell, "Type commands line by line, with history and completion", make_shell},
});

}  // namespace

std::span<const CommandEntry> commands() {
  return table;
}

}  // namespace zt
