#include "zt/shell/completion.h"

#include <algorithm>
#include <filesystem>
#include <optional>

#include "inspect/schema.h"
#include "zt/dispatch.h"
#include "zt/shell/words.h"

namespace zt {

using namespace cachet::inspect;

namespace {

using Texts = std::vector<std::string>;

bool takes_value(const CLI::Option& option) {
  return option.get_items_expected_max() > 0;
}

// The one of a command, or of all commands, with this name.
const CLI::Option* option_named(const CommandLine& line, const CLI::App& command, const std::string& name) {
  if (name.size() < 2 || name.front() != '-') return nullptr;
  const CLI::Option* const own = command.get_option_no_throw(name);
  return own != nullptr ? own : line.app().get_option_no_throw(name);
}

// Of the arguments that the line has to give, the one at this place; the last one takes all that follow.
const CLI::Option* argument_at(const CLI::App& command, std::size_t place) {
  const CLI::Option* argument = nullptr;
  for (const CLI::Option* const each : command.get_options()) {
    if (!each->get_positional() || each->get_name() == database_argument) continue;
    argument = each;
    if (place-- == 0) return argument;
  }
  return argument != nullptr && argument->get_items_expected_max() > 1 ? argument : nullptr;
}

// What the last word is, by those before it: the value of an option, or an argument.
struct Place {
  const CLI::Option* option = nullptr;  // that it is a value of; null when nothing is expected
  std::string table;                    // that was named before
};

Place place_behind(const CommandLine& line, const CLI::App& command, const std::vector<Word>& words) {
  Place place;
  std::size_t arguments = 0;
  const CLI::Option* open = nullptr;  // an option that has not had its value yet
  for (std::size_t i = 1; i < words.size(); ++i) {
    const std::string& word = words[i].text;
    if (open != nullptr) {
      open = nullptr;
    } else if (const CLI::Option* const option = option_named(line, command, word)) {
      open = takes_value(*option) ? option : nullptr;
    } else if (!word.starts_with('-')) {
      const CLI::Option* const argument = argument_at(command, arguments++);
      if (argument != nullptr && argument->get_type_name() == "TABLE") place.table = word;
    }
  }
  place.option = open != nullptr ? open : argument_at(command, arguments);
  return place;
}

Schema schema_of(const Context& context, const std::string& database) {
  try {
    Look look(context, database);
    return read_schema(*look->view());  // of the names alone something is used once the look has ended
  } catch (const std::exception&) {
    return {};
  }
}

// Tables, or the fields or indexes of one table, of all when it is not known.
Texts names_of_schema(const Context& context, const std::string& database, const Place& place,
                      const std::string& type) {
  Texts names;
  for (const Table& table : schema_of(context, database).tables) {
    const std::string name = context.from_stored(table.name);
    if (type.starts_with("TABLE")) names.push_back(name);
    if (!place.table.empty() && place.table != name) continue;
    for (const Field& field : table.fields) {
      if (type.starts_with("FIELD")) names.push_back(context.from_stored(field.name));
    }
    for (const Index& index : table.indexes) {
      if (type.starts_with("INDEX")) names.push_back(context.from_stored(index.name));
    }
  }
  return names;
}

Texts files(const Encoding& encoding, const std::string& beginning) {
  Texts found;
  const std::string folder = beginning.substr(0, beginning.rfind('/') + 1);
  std::error_code error;
  for (const auto& entry :
       std::filesystem::directory_iterator(folder.empty() ? "." : encoding.to_outside(folder), error)) {
    found.push_back(folder + encoding.from_outside(entry.path().filename().string()) +
                    (entry.is_directory(error) ? "/" : ""));
  }
  return found;
}

// "…:{auto,always,never}"
Texts choices_in(const std::string& type) {
  Texts choices;
  const std::size_t begin = type.find('{');
  const std::size_t end = type.find('}', begin);
  if (begin == std::string::npos || end == std::string::npos) return choices;
  for (std::size_t at = begin; at != end;) {
    const std::size_t next = std::min(type.find(',', at + 1), end);
    choices.push_back(type.substr(at + 1, next - at - 1));
    at = next;
  }
  return choices;
}

Texts values_at(const Context& context, const std::string& database, const Place& place,
                const std::string& beginning) {
  if (place.option == nullptr) return {};
  const std::string type = place.option->get_type_name();
  if (type.starts_with("FILE") || type.starts_with("FOLDER")) return files(context.encoding(), beginning);
  Texts texts = choices_in(type);
  if (!texts.empty()) return texts;
  texts = names_of_schema(context, database, place, type);
  if (type.starts_with("FIELD=")) {
    for (std::string& each : texts) each += '=';
  }
  return texts;
}

Texts options_of(const CommandLine& line, const CLI::App& command) {
  Texts texts;
  for (const CLI::App* const app : {&command, &line.app()}) {
    for (const CLI::Option* const option : app->get_options()) {
      if (option->get_group().empty()) continue;  // hidden
      for (const std::string& name : option->get_lnames()) texts.push_back("--" + name);
    }
  }
  return texts;
}

Texts command_names(const CommandLine& line) {
  Texts texts;
  for (const CLI::App* const each : line.commands()) texts.push_back(each->get_name());
  return texts;
}

Texts first_words(const CommandLine& line, const OwnWords& own_words) {
  Texts texts = command_names(line);
  for (const auto& [word, behind] : own_words) texts.push_back(word);
  return texts;
}

Texts candidates(const Context& context, const std::string& database, const OwnWords& own_words,
                 const std::vector<Word>& before, const std::string& beginning) {
  const CommandLine line(context.settings(), database);
  if (before.empty()) return first_words(line, own_words);
  if (const auto own = own_words.find(before.front().text); own != own_words.end()) {
    return before.size() > 1 ? Texts{} : own->first == "help" ? command_names(line) : own->second;
  }
  const CLI::App* const command = line.command(before.front().text);
  if (command == nullptr) return {};
  const std::size_t equals = beginning.find('=');
  if (beginning.starts_with("--") && equals != std::string::npos) {
    const std::string name = beginning.substr(0, equals + 1);
    Place place = place_behind(line, *command, before);
    place.option = option_named(line, *command, beginning.substr(0, equals));
    Texts texts = values_at(context, database, place, beginning.substr(equals + 1));
    for (std::string& each : texts) each.insert(0, name);
    return texts;
  }
  if (beginning.starts_with('-')) return options_of(line, *command);
  return values_at(context, database, place_behind(line, *command, before), beginning);
}

}  // namespace

Completion complete(const Context& context, const std::string& database, const OwnWords& own_words,
                    const std::string& line) {
  Words words = words_of(line);
  Completion completion;
  completion.begin = line.size();
  std::string beginning;
  if (words.in_comment) return completion;
  if (words.in_word) {
    completion.begin = words.list.back().begin;
    beginning = words.list.back().text;
    words.list.pop_back();
  }
  for (const std::string& each : candidates(context, database, own_words, words.list, beginning)) {
    if (each.starts_with(beginning)) completion.texts.push_back(as_word(each));
  }
  std::ranges::sort(completion.texts);
  completion.texts.erase(std::unique(completion.texts.begin(), completion.texts.end()),
                         completion.texts.end());
  const auto goes_on = [](const std::string& text) { return text.ends_with('/') || text.ends_with('='); };
  completion.ends_word = std::ranges::none_of(completion.texts, goes_on);
  return completion;
}

}  // namespace zt
