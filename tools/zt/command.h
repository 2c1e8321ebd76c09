// One command of the tool. A command is made, declares its options and arguments, and, if it is the one that was
// called, runs. It lives in one file of commands/, with one line in the table of commands.cpp.
#ifndef CACHET_TOOLS_ZT_COMMAND_H
#define CACHET_TOOLS_ZT_COMMAND_H

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <memory>
#include <span>
#include <string>

#include "zt/context.h"
#include "zt/status.h"

namespace zt {

class Command {
 public:
  Command() = default;
  Command(const Command&) = delete;
  Command& operator=(const Command&) = delete;
  virtual ~Command() = default;

  virtual void declare(CLI::App& app) = 0;
  virtual Status run(Context& context) = 0;
};

struct CommandEntry {
  const char* name;
  const char* group;  // heading in the help; each has a manual page
  const char* summary;
  std::unique_ptr<Command> (*make)();
};

// In the order of the help.
std::span<const CommandEntry> commands();

// The argument that nearly every command begins with. A line of the shell has it already.
inline constexpr char database_argument[] = "database";
inline void declare_database(CLI::App& app, std::string& path) {
  app.add_option(database_argument, path, "The database: its directory and name")
      ->required()
      ->type_name("DIR/NAME");
}

// And what those on one table go on with.
inline void declare_table(CLI::App& app, std::string& table) {
  app.add_option("table", table, "The table")->required()->type_name("TABLE");
}

}  // namespace zt

#endif
