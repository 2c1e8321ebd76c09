// What the tool says to people, in the language of the locale where there is a catalogue for it, else in English, as it
// stands in the code. Texts are UTF-8, whatever the locale's encoding.
//
//   tr("{} of {} pages are taken", taken, all)
//   trn("{} row", "{} rows", count)
//
// The catalogues are tools/zt/po/LANGUAGE.po; a test holds them against the code. In a translation "{0}", "{1}" take
// arguments out of order.
#ifndef CACHET_TOOLS_INSPECT_TRANSLATE_H
#define CACHET_TOOLS_INSPECT_TRANSLATE_H

#include <concepts>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace cachet::inspect {

// Makes tr translate, with the catalogues below the folder (DIR/zh_CN/LC_MESSAGES/zt.mo). To be called once, before
// there are threads.
void choose_language(const std::string& catalogues);

// An English text with "{}" for each of so many arguments; counted when it is compiled.
template <std::size_t arguments>
struct Pattern {
  consteval Pattern(const char* pattern)
      : text(pattern) {  // NOLINT(google-explicit-constructor): a literal is one
    std::size_t places = 0;
    for (const char* at = pattern; *at != '\0'; ++at) places += at[0] == '{' && at[1] == '}' ? 1 : 0;
    if (places != arguments) throw "the text has not as many places as there are arguments";
  }
  const char* text;
};

namespace translation {

std::string fill(const char* english, const std::vector<std::string>& arguments);
std::string fill(const char* one, const char* many, unsigned long count,
                 const std::vector<std::string>& arguments);

template <class T>
std::string text_of(const T& value) {
  if constexpr (std::is_convertible_v<T, std::string_view>) {
    return std::string(std::string_view(value));
  } else {
    return std::to_string(value);
  }
}

}  // namespace translation

// Arguments are texts and whole numbers.
template <class... Arguments>
std::string tr(Pattern<sizeof...(Arguments)> text, const Arguments&... arguments) {
  return translation::fill(text.text, {translation::text_of(arguments)...});
}

// The form for a count, which is the first argument.
template <std::integral Count, class... Arguments>
std::string trn(Pattern<1 + sizeof...(Arguments)> one, Pattern<1 + sizeof...(Arguments)> many, Count count,
                const Arguments&... arguments) {
  return translation::fill(one.text, many.text, static_cast<unsigned long>(count),
                           {translation::text_of(count), translation::text_of(arguments)...});
}

}  // namespace cachet::inspect

#endif
