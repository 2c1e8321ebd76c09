// zt: the databases of this host, in the hands of whoever sits at a terminal. Reads the command line, runs the one
// command that it names, and turns every error into a message and an exit status.
#include <cachet.h>
#include <fmt/format.h>

#include <clocale>
#include <cstdio>

#include "inspect/attachment.h"
#include "zt/command.h"

namespace {

using zt::Status;

struct Called {
  std::unique_ptr<zt::Command> command;
  CLI::App* app = nullptr;
};

void declare_settings(CLI::App& app, zt::Settings& settings) {
  constexpr char group[] = "Output";
  app.add_flag("--box", settings.box, "A framed table, as on a terminal")->group(group);
  app.add_flag("--tsv", settings.tabs, "Tab-separated, as in a pipe")->group(group);
  app.add_flag("--json", settings.json, "JSON")->group(group);
  app.add_flag("--csv", settings.csv, "CSV (RFC 4180)")->group(group);
  app.add_flag("--md", settings.markdown, "A Markdown table")->group(group);
  app.add_flag("--line", settings.line, "One property a line")->group(group);
  app.add_option("--color", settings.color, "Colours: auto, always, never")
      ->check(CLI::IsMember({"auto", "always", "never"}))
      ->group(group);
  app.add_option("--encoding", settings.encoding, "Encoding to read and print in, instead of the locale's")
      ->group(group);
  app.add_option("--stored-encoding", settings.stored_encoding, "Encoding of the database's texts")
      ->capture_default_str()
      ->group(group);
}

std::vector<Called> declare_commands(CLI::App& app) {
  std::vector<Called> called;
  for (const zt::CommandEntry& entry : zt::commands()) {
    CLI::App* const sub = app.add_subcommand(entry.name, entry.summary)->group(entry.group);
    sub->fallthrough();
    called.push_back({entry.make(), sub});
    called.back().command->declare(*sub);
  }
  return called;
}

// For the shell's completion: the commands (of no command), or the options of one, one a line.
void print_words(CLI::App& app, const std::string& command) {
  const auto print_options = [](CLI::App& of) {
    for (const CLI::Option* const option : of.get_options()) {
      for (const std::string& name : option->get_lnames()) std::puts(("--" + name).c_str());
    }
  };
  if (command.empty()) {
    for (const zt::CommandEntry& entry : zt::commands()) std::puts(entry.name);
    return;
  }
  for (CLI::App* const sub : app.get_subcommands(nullptr)) {
    if (sub->get_name() == command) print_options(*sub);
  }
  print_options(app);
}

Status run(zt::Command& command, zt::Context& context) {
  using namespace cachet::inspect;
  try {
    return command.run(context);
  } catch (const zt::UsageError& error) {
    context.say(error.what());
    return Status::usage;
  } catch (const NotFound& error) {
    context.say(error.what());
    return Status::not_found;
  } catch (const Damaged& error) {
    context.say(error.what());
    return Status::damaged;
  } catch (const zt::Refused& error) {
    context.say(error.what());
    return Status::refused;
  } catch (const std::exception& error) {
    context.say(error.what());
    return Status::failure;
  }
}

Status tool(int argc, char** argv) {
  CLI::App app("Databases in System V shared memory", "zt");
  zt::Settings settings;
  declare_settings(app, settings);
  app.set_version_flag("--version", std::string("zt ") + ZtGetLibVersion());
  std::string words_for;
  CLI::Option* const words = app.add_option("--words", words_for)->group("");
  const std::vector<Called> called = declare_commands(app);
  app.require_subcommand(0, 1);  // behind the first one, a command's name is a name or a value like any other
  app.footer(
      "Exit status: 0 success, 1 failure, 2 wrong usage, 3 not found, 4 damaged, 5 refused. Manual: zt(1).");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? Status::ok : Status::usage;
  }
  if (words->count() > 0) {
    print_words(app, words_for);
    return Status::ok;
  }
  zt::Context context(settings);
  for (const Called& each : called) {
    if (each.app->parsed()) return run(*each.command, context);
  }
  std::fputs(app.help().c_str(), stderr);
  return Status::usage;
}

}  // namespace

int main(int argc, char** argv) {
  std::setlocale(LC_CTYPE, "");
  Status status = Status::failure;
  try {
    status = tool(argc, argv);
  } catch (const zt::UsageError& error) {
    std::fprintf(stderr, "zt: %s\n", error.what());
    status = Status::usage;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "zt: %s\n", error.what());
  }
  const bool written = std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
  return static_cast<int>(written || status != Status::ok ? status : Status::failure);
}
