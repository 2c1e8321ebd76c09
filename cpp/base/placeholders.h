// The placeholders of a printf format, read at compile time and held against the types of the arguments.
#ifndef CACHET_CPP_BASE_PLACEHOLDERS_H
#define CACHET_CPP_BASE_PLACEHOLDERS_H

#include <cstddef>
#include <string_view>
#include <type_traits>

namespace cachet::message {

// Takes the next placeholder off the format and returns its length modifier and conversion ("s", "lld"), "%"
// for one that is cut short; empty when none is left. "%%" is no placeholder.
constexpr std::string_view next_conversion(std::string_view& format) {
  constexpr std::string_view flags_and_widths = "-+ #0123456789.";
  constexpr std::string_view length_modifiers = "hljzt";
  while (true) {
    const std::size_t percent = format.find('%');
    if (percent == std::string_view::npos) return {};
    const std::size_t modifier = format.find_first_not_of(flags_and_widths, percent + 1);
    const std::size_t conversion = format.find_first_not_of(length_modifiers, modifier);
    if (modifier == std::string_view::npos || conversion == std::string_view::npos) {
      format = {};
      return "%";
    }
    const std::string_view letters = format.substr(modifier, conversion + 1 - modifier);
    format.remove_prefix(conversion + 1);
    if (letters != "%") return letters;
  }
}

// Whether an argument of type T may be printed with the conversion.
template <class T>
constexpr bool accepts(std::string_view conversion) {
  if constexpr (std::is_same_v<T, const char*>) return conversion == "s";
  if constexpr (std::is_same_v<T, const void*>) return conversion == "p";
  if constexpr (std::is_same_v<T, char>) return conversion == "c";
  if constexpr (std::is_same_v<T, int>) return conversion == "d";
  if constexpr (std::is_same_v<T, long>) return conversion == "ld";
  if constexpr (std::is_same_v<T, long long>) return conversion == "lld";
  if constexpr (std::is_same_v<T, unsigned>) return conversion == "u" || conversion == "x";
  if constexpr (std::is_same_v<T, unsigned long>) return conversion == "lu" || conversion == "zu";
  if constexpr (std::is_same_v<T, unsigned long long>) return conversion == "llu";
  if constexpr (std::is_same_v<T, double>) return conversion == "f";
  return false;
}

// Whether the format takes exactly arguments of these types, in this order.
template <class... Args>
constexpr bool placeholders_match(std::string_view format) {
  return (accepts<Args>(next_conversion(format)) && ...) && next_conversion(format).empty();
}

}  // namespace cachet::message

#endif
