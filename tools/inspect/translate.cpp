#include "inspect/translate.h"

#include <libintl.h>

#include <clocale>

namespace cachet::inspect {
namespace {

constexpr char domain[] = "zt";

bool is_digit(char character) {
  return character >= '0' && character <= '9';
}

// "{}" is the next argument, "{2}" the third one.
std::string filled(std::string_view pattern, const std::vector<std::string>& arguments) {
  std::string text;
  for (std::size_t next = 0; !pattern.empty();) {
    const std::size_t digits = pattern.size() > 2 && is_digit(pattern[1]) ? 1 : 0;
    const bool place = pattern.size() > 1 + digits && pattern.front() == '{' && pattern[1 + digits] == '}';
    if (!place) {
      text += pattern.front();
      pattern.remove_prefix(1);
      continue;
    }
    const std::size_t index = digits == 0 ? next++ : static_cast<std::size_t>(pattern[1] - '0');
    if (index < arguments.size()) text += arguments[index];
    pattern.remove_prefix(2 + digits);
  }
  return text;
}

}  // namespace

void choose_language(const std::string& catalogues) {
  std::setlocale(LC_MESSAGES, "");
  bindtextdomain(domain, catalogues.c_str());
  // The system's own texts (strerror) likewise: everything is UTF-8 until it is printed.
  for (const char* const each : {domain, "libc"}) bind_textdomain_codeset(each, "UTF-8");
}

std::string translation::fill(const char* english, const std::vector<std::string>& arguments) {
  return filled(dgettext(domain, english), arguments);
}

std::string translation::fill(const char* one, const char* many, unsigned long count,
                              const std::vector<std::string>& arguments) {
  return filled(dngettext(domain, one, many, count), arguments);
}

}  // namespace cachet::inspect
