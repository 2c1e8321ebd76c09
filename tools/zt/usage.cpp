#include "zt/usage.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <string_view>

#include "zt/translation.h"

namespace zt {
namespace {

// What lies between the two in the text, if it has both.
std::string between(std::string_view text, std::string_view begin, std::string_view end) {
  const std::size_t at = text.find(begin);
  if (at == std::string_view::npos || !text.ends_with(end)) return {};
  text.remove_prefix(at + begin.size());
  text.remove_suffix(end.size());
  return std::string(text);
}

template <class Error>
bool is(const CLI::ParseError& error) {
  return dynamic_cast<const Error*>(&error) != nullptr;
}

}  // namespace

std::string usage_text(const CLI::ParseError& error) {
  const std::string text = error.what();
  if (is<CLI::RequiredError>(error)) {
    const std::string missing = between(text, "", " is required");
    if (!missing.empty()) return tr("{} is missing; for help: --help", missing);
  }
  if (is<CLI::ExtrasError>(error)) {
    const std::string extra = between(text, "not expected: ", "");
    if (!extra.empty()) return tr("not expected here: {}; for help: --help", extra);
  }
  if (is<CLI::ConversionError>(error)) {
    const std::string value = between(text, "Could not convert: ", "");
    if (!value.empty()) return tr("not a value of its kind: {}", value);
  }
  if (is<CLI::ArgumentMismatch>(error)) {
    const std::string option = text.substr(0, text.find(':'));
    if (option != text) return tr("{} wants a value ({})", option, text);
  }
  return tr("the command line is wrong: {}", text);
}

}  // namespace zt
