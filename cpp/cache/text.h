// Field values as text, and back: what text files, binary files and dumps are made of.
#ifndef CACHET_CPP_CACHE_TEXT_H
#define CACHET_CPP_CACHE_TEXT_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cache/value.h"

namespace cachet {

// What a character field that holds 0 is written as: nothing, or the byte itself.
enum class ZeroCharacter { left_out, written };

// Appends the value as text. A type without a text form appends nothing.
void append_value(std::string& line, const ZtDataField& field, const Value& value, ZeroCharacter zero);

// One line of `name=value` pairs. A pair begins at the start of the line or behind a blank, a tab or a ";",
// its value ends before the next ";" or with the line. Nothing is unescaped, and a line ends at its first
// NUL.
class Pairs {
 public:
  // Looks at `line` from now on, which the caller keeps.
  void look_at(std::string_view line);
  // The value of the first pair with this name.
  std::optional<std::string_view> value_of(std::string_view name) const;

 private:
  std::string_view line_;
  std::vector<std::size_t> equals_signs_;  // where they are
};

// Texts in the stored form of their fields, one at a time.
class StoredForm {
 public:
  // The value with zeros behind it, as many bytes as the field is wide at least, until the next call. A text
  // is handed on as it is, with its NUL. Null for a type without a text form.
  const char* of(const ZtDataField& field, std::string_view text);

 private:
  void hold(const void* bytes, std::size_t size, const ZtDataField& field);
  template <class Number>
  const char* hold_number(Number number, const ZtDataField& field);
  const char* text_of(std::string_view text);

  std::vector<char> bytes_;
  std::string text_;
};

}  // namespace cachet

#endif
