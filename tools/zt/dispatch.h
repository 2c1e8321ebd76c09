// One command line: what may stand on it, by the table of commands; parsed, run, and every error turned into a message
// and an exit status. The program has one; its shell makes a new one for each line.
#ifndef CACHET_TOOLS_ZT_DISPATCH_H
#define CACHET_TOOLS_ZT_DISPATCH_H

#include <memory>
#include <string>
#include <vector>

#include "zt/command.h"

namespace zt {

class CommandLine {
 public:
  CommandLine();
  // A line of a shell: the settings hold where it has none of its own, and the database is put in where a command wants
  // one first; there is no shell in it.
  CommandLine(const Settings& defaults, std::string database);
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;

  // The words behind the program's name, in the encoding outside. Prints whatever there is to say.
  Status run(std::vector<std::string> words);

  // The parser's view of the commands, in the order of the help: names, summaries, options, arguments.
  std::vector<const CLI::App*> commands() const {
    return app_.get_subcommands([](const CLI::App*) { return true; });
  }
  // Null without one of this name.
  const CLI::App* command(const std::string& name) const;
  const CLI::App& app() const { return app_; }

 private:
  struct Called {
    std::unique_ptr<Command> command;
    CLI::App* app = nullptr;
  };

  void declare_settings();
  void declare_commands();
  void put_database_in(std::vector<std::string>& words);
  Status run_parsed();
  void print_words() const;

  CLI::App app_;
  Settings settings_, defaults_;
  std::string database_;  // empty outside a shell
  std::string words_for_;
  CLI::Option* words_ = nullptr;
  std::vector<Called> called_;
};

// The names of an option as they are typed: "--limit", "-n".
std::vector<std::string> names_of(const CLI::Option& option);

}  // namespace zt

#endif
