// zt shell: commands on one database, line by line. Each line is an ordinary command line with the database left out,
// run in this process; nothing of the database is held between two lines.
#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <map>

#include "inspect/base_path.h"
#include "zt/commands.h"
#include "zt/dispatch.h"
#include "zt/shell/completion.h"
#include "zt/shell/editor.h"
#include "zt/shell/words.h"
#include "zt/stop.h"
#include "zt/translation.h"

namespace zt {
namespace {

const OwnWords own_words{{".format", {"auto", "box", "tsv", "json", "csv", "md", "line"}},
                         {"exit", {}},
                         {"help", {}},
                         {"quit", {}}};

class Shell final : public Command {
 public:
  void declare(CLI::App& app) override {
    declare_database(app, path_);
    app.add_flag("--keep-going", keep_going_, "Of a script, run also the lines behind one that fails");
  }

  Status run(Context& context) override {
    settings_ = context.settings();
    outlive_stop_signals();
    const bool with_a_user = isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0;
    return with_a_user ? converse(context) : run_script(context);
  }

 private:
  Status converse(const Context& context) {
    // What is typed comes in the locale's encoding, whatever else was asked for.
    const Encoding typed(Encoding::of_locale(), settings_.stored_encoding);
    Editor editor("zt " + cachet::inspect::BasePath::parse(path_).name + "> ",
                  [&](const std::string& line) { return complete_typed(context, typed, line); });
    say_welcome(context);
    std::string line;
    while (!quits_) {
      const Editor::Read read = editor.read(line);
      if (read == Editor::Read::end) break;
      if (read == Editor::Read::line) {
        if (!words_of(line).list.empty() && line.front() != ' ') editor.remember(line);
        run_line(context, typed.from_outside(line));
      }
      if (!cachet::inspect::forget_interrupt()) break;
    }
    return Status::ok;
  }

  void say_welcome(const Context& context) const {
    context.print(tr("Commands go without DIR/NAME here; help lists them, Tab completes, Ctrl-D leaves.") +
                  "\n");
    try {
      const Look look(context, path_);
    } catch (const std::exception& error) {
      context.say(error.what());  // it may be made from here
    }
  }

  Completion complete_typed(const Context& context, const Encoding& typed, const std::string& line) const {
    const std::string utf8 = typed.from_outside(line);
    Completion completion = complete(context, path_, own_words, utf8);
    completion.begin = typed.to_outside(utf8.substr(0, completion.begin)).size();
    for (std::string& each : completion.texts) each = typed.to_outside(each);
    return completion;
  }

  // Until a line fails; then the rest is left out, unless it is to keep going. Returns the first failure.
  Status run_script(const Context& context) {
    Status first = Status::ok;
    std::string line;
    for (long number = 1; !quits_ && std::getline(std::cin, line); ++number) {
      const Status status = run_line(context, context.encoding().from_outside(line));
      if (stop_asked()) break;
      if (status == Status::ok) continue;
      context.say(tr("line {} failed: {}", number, context.encoding().from_outside(line)));
      if (first == Status::ok) first = status;
      if (!keep_going_) return first;
    }
    if (!stop_asked()) return first;
    context.say(tr("interrupted"));
    return first == Status::ok ? Status::failure : first;
  }

  Status run_line(const Context& context, const std::string& utf8) {
    const Words words = words_of(utf8);
    if (words.open_quote) {
      context.say(tr("a quote is not closed"));
      return Status::usage;
    }
    if (words.list.empty()) return Status::ok;
    std::vector<std::string> arguments;
    for (const Word& each : words.list) arguments.push_back(context.encoding().to_outside(each.text));
    const Status status = run_words(context, std::move(arguments));
    std::fflush(stdout);
    return status;
  }

  Status run_words(const Context& context, std::vector<std::string> words) {
    const std::string& first = words.front();
    if (first == "quit" || first == "exit") {
      quits_ = true;
      return Status::ok;
    }
    if (first == ".format") return choose_format(context, words);
    if (first == "help" && words.size() == 1) {
      print_help();
      return Status::ok;
    }
    if (first == "help") words = {words[1], "--help"};
    return CommandLine(settings_, path_).run(std::move(words));
  }

  Status choose_format(const Context& context, const std::vector<std::string>& words) {
    Settings chosen;
    const std::map<std::string, bool*> formats{
        {"box", &chosen.box},     {"tsv", &chosen.tabs},  {"json", &chosen.json}, {"csv", &chosen.csv},
        {"md", &chosen.markdown}, {"line", &chosen.line}, {"auto", nullptr}};
    const auto format = formats.find(words.back());
    if (words.size() != 2 || format == formats.end()) {
      context.say(tr("the format is one of: auto box tsv json csv md line"));
      return Status::usage;
    }
    if (format->second != nullptr) *format->second = true;
    settings_.take_format(chosen);
    return Status::ok;
  }

  void print_help() const {
    const CommandLine line(settings_, path_);
    std::string group;
    for (const CLI::App* const each : line.commands()) {
      if (each->get_group() != group) std::printf("%s:\n", each->get_group().c_str());
      group = each->get_group();
      std::printf("  %-10s %s\n", each->get_name().c_str(), each->get_description().c_str());
    }
    std::puts("Of the shell (no command takes the database here):");
    std::printf("  %-10s %s\n", "help", "Describe a command: help COMMAND");
    std::printf("  %-10s %s\n", ".format", "Choose how to print: auto box tsv json csv md line");
    std::printf("  %-10s %s\n", "quit", "Leave; so do exit and Ctrl-D");
  }

  std::string path_;
  bool keep_going_ = false;
  Settings settings_;  // of the lines
  bool quits_ = false;
};

}  // namespace

std::unique_ptr<Command> make_shell() {
  return std::make_unique<Shell>();
}

}  // namespace zt
