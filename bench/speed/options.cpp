// See options.h.
#include "options.h"

#include <map>
#include <sstream>
#include <stdexcept>

namespace bench {
namespace {

constexpr std::int64_t quick_rows = 100000;
constexpr std::int64_t min_rows = 1000;

std::int64_t number(const std::string& text, std::int64_t least) {
  std::size_t end = 0;
  const std::int64_t value = std::stoll(text, &end);
  if (end != text.size() || value < least)
    throw std::invalid_argument("'" + text + "' is too small, or no number");
  return value;
}

std::vector<std::string> split(const std::string& text) {
  std::vector<std::string> words;
  std::istringstream in(text);
  for (std::string word; std::getline(in, word, ',');) words.push_back(word);
  return words;
}

Order order(const std::string& text) {
  if (text == "random") return Order::random;
  if (text == "sorted") return Order::sorted;
  throw std::invalid_argument("there is no order '" + text + "'");
}

using Setter = void (*)(Options&, const std::string&);

const std::map<std::string, Setter> setters = {
    {"--rows", [](Options& options, const std::string& text) { options.rows = number(text, min_rows); }},
    {"--rounds",
     [](Options& options, const std::string& text) { options.rounds = static_cast<int>(number(text, 1)); }},
    {"--order", [](Options& options, const std::string& text) { options.order = order(text); }},
    {"--systems", [](Options& options, const std::string& text) { options.systems = split(text); }},
    {"--json", [](Options& options, const std::string& text) { options.json_file = text; }},
    {"--markdown", [](Options& options, const std::string& text) { options.markdown_file = text; }},
    {"--folder", [](Options& options, const std::string& text) { options.folder = text; }},
};

}  // namespace

Options parse(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    if (word == "--quick") {
      options.rows = quick_rows;
      continue;
    }
    const auto setter = setters.find(word);
    if (setter == setters.end()) throw std::invalid_argument("what is '" + word + "'?");
    if (++i == argc) throw std::invalid_argument(word + " needs a value");
    setter->second(options, argv[i]);
  }
  return options;
}

}  // namespace bench
