#include "zt/dispatch.h"

#include <cachet.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <utility>

#include "inspect/attachment.h"
#include "inspect/stop.h"
#include "zt/commands.h"
#include "zt/usage.h"

namespace zt {
namespace {

template <class Error>
bool is(const std::exception& error) {
  return dynamic_cast<const Error*>(&error) != nullptr;
}

Status status_of(const std::exception& error) {
  if (is<UsageError>(error)) return Status::usage;
  if (is<cachet::inspect::NotFound>(error)) return Status::not_found;
  if (is<cachet::inspect::Damaged>(error)) return Status::damaged;
  if (is<Refused>(error)) return Status::refused;
  return Status::failure;
}

// A format that the line asks for takes the place of the default one.
Settings with_defaults(Settings settings, const Settings& defaults) {
  if (!settings.has_format()) settings.take_format(defaults);
  return settings;
}

}  // namespace

CommandLine::CommandLine() : CommandLine(Settings{}, "") {}

CommandLine::CommandLine(const Settings& defaults, std::string database)
    : app_("Databases in System V shared memory", "zt"),
      settings_(defaults),
      defaults_(defaults),
      database_(std::move(database)) {
  settings_.take_format({});
  declare_settings();
  app_.set_version_flag("--version", std::string("zt ") + ZtGetLibVersion());
  words_ = app_.add_option("--words", words_for_)->group("");
  declare_commands();
  app_.require_subcommand(0,
                          1);  // behind the first one, a command's name is a name or a value like any other
  app_.footer(
      "Exit status: 0 success, 1 failure, 2 wrong usage, 3 not found, 4 damaged, 5 refused. Manual: zt(1).");
}

void CommandLine::declare_settings() {
  constexpr char group[] = "Output";
  app_.add_flag("--box", settings_.box, "A framed table, as on a terminal")->group(group);
  app_.add_flag("--tsv", settings_.tabs, "Tab-separated, as in a pipe")->group(group);
  app_.add_flag("--json", settings_.json, "JSON")->group(group);
  app_.add_flag("--csv", settings_.csv, "CSV (RFC 4180)")->group(group);
  app_.add_flag("--md", settings_.markdown, "A Markdown table")->group(group);
  app_.add_flag("--line", settings_.line, "One property a line")->group(group);
  app_.add_option("--color", settings_.color, "Colours: auto, always, never")
      ->check(CLI::IsMember({"auto", "always", "never"}))
      ->group(group);
  app_.add_option("--encoding", settings_.encoding, "Encoding to read and print in, instead of the locale's")
      ->group(group);
  app_.add_option("--stored-encoding", settings_.stored_encoding, "Encoding of the database's texts")
      ->capture_default_str()
      ->group(group);
}

void CommandLine::declare_commands() {
  for (const CommandEntry& entry : zt::commands()) {
    if (!database_.empty() && entry.make == make_shell) continue;
    CLI::App* const sub = app_.add_subcommand(entry.name, entry.summary)->group(entry.group);
    sub->fallthrough();
    called_.push_back({entry.make(), sub});
    called_.back().command->declare(*sub);
  }
}

const CLI::App* CommandLine::command(const std::string& name) const {
  const auto found =
      std::ranges::find_if(called_, [&](const Called& each) { return each.app->get_name() == name; });
  return found == called_.end() ? nullptr : found->app;
}

void CommandLine::put_database_in(std::vector<std::string>& words) {
  const auto name =
      std::ranges::find_if(words, [&](const std::string& word) { return command(word) != nullptr; });
  if (name == words.end() || command(*name)->get_option_no_throw(database_argument) == nullptr) return;
  words.insert(name + 1, database_);
}

Status CommandLine::run(std::vector<std::string> words) {
  if (!database_.empty()) put_database_in(words);
  std::ranges::reverse(words);  // the parser takes the last one first
  try {
    app_.parse(std::move(words));
    return run_parsed();
  } catch (const CLI::Success& success) {
    app_.exit(success);
    return Status::ok;
  } catch (const CLI::ParseError& error) {
    Context(Settings{}).say(usage_text(error));
    return Status::usage;
  } catch (const UsageError& error) {
    Context(Settings{}).say(error.what());
    return Status::usage;
  }
}

Status CommandLine::run_parsed() {
  if (words_->count() > 0) {
    print_words();
    return Status::ok;
  }
  const auto called = std::ranges::find_if(called_, [](const Called& each) { return each.app->parsed(); });
  if (called == called_.end()) {
    std::fputs(app_.help().c_str(), stderr);
    return Status::usage;
  }
  Context context(with_defaults(settings_, defaults_));
  try {
    return called->command->run(context);
  } catch (const std::exception& error) {
    if (is<cachet::inspect::Stopped>(error) && isatty(STDERR_FILENO) != 0)
      std::fputs("\n", stderr);  // behind ^C
    context.say(error.what());
    return status_of(error);
  }
}

// For completion by another shell: the commands (of no command), or the options of one, one a line.
void CommandLine::print_words() const {
  if (words_for_.empty()) {
    for (const CommandEntry& entry : zt::commands()) std::puts(entry.name);
    return;
  }
  const auto print_options = [](const CLI::App& of) {
    for (const CLI::Option* const option : of.get_options()) {
      for (const std::string& name : option->get_lnames()) std::puts(("--" + name).c_str());
    }
  };
  if (const CLI::App* const sub = command(words_for_)) print_options(*sub);
  print_options(app_);
}

std::vector<std::string> names_of(const CLI::Option& option) {
  std::vector<std::string> names;
  for (const std::string& name : option.get_lnames()) names.push_back("--" + name);
  for (const std::string& name : option.get_snames()) names.push_back("-" + name);
  return names;
}

}  // namespace zt
