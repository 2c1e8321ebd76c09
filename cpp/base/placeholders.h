// The placeholders of a printf format, read at compile time and held against the types of the arguments.
#ifndef CACHET_CPP_BASE_PLACEHOLDERS_H
#define CACHET_CPP_BASE_PLACEHOLDERS_H

#include <cstddef>
#include <string_view>
#include <type_traits>

namespace cachet::message {

// The first position from `start` on whose character is not in `set`, or the end. (std::string_view::find and
// its kin are no constant expressions under g++ 12 with its undefined-behaviour sanitizer.)
constexpr std::size_t skip(std::string_view text, std::size_t start, std::string_view set) {
  const auto is_in_set = [set](char character) {
    for (const char each : set) {
      if (each == character) return true;
    }
    return false;
  };
  while (start < text.size() && is_in_set(text[start])) ++start;
  return start;
}

// Takes the next placeholder off the format and returns its length modifier and conversion ("s", "lld"), "%"
// for one that is cut short; empty when none is left. "%%" is no placeholder.
constexpr std::string_view next_conversion(std::string_view& format) {
  while (!format.empty()) {
    if (format[0] != '%') {
      format.remove_prefix(1);
      continue;
    }
    const std::size_t modifier = skip(format, 1, "-+ #0123456789.");
    const std::size_t conversion = skip(format, modifier, "hljzt");
    if (conversion == format.size()) return "%";
    const std::string_view letters = format.substr(modifier, conversion + 1 - modifier);
    format.remove_prefix(conversion + 1);
    if (letters != "%") return letters;
  }
  return {};
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
