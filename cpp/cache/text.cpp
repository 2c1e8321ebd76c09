#include "cache/text.h"

#include <algorithm>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstdlib>

namespace cachet {

namespace {

constexpr int default_decimals = 6;  // of a field whose decimals are not set

void append_integer(std::string& line, long long number) {
  char digits[24];
  line.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

// As printf's "%.*f" does it, but whatever the locale: 309 digits before the point and 127 behind it at most.
void append_double(std::string& line, double number, int decimals) {
  char digits[512];
  const auto end = std::to_chars(digits, digits + sizeof digits, number, std::chars_format::fixed,
                                 decimals < 0 ? default_decimals : decimals);
  line.append(digits, end.ptr);
}

void append_character(std::string& line, const Value& value, ZeroCharacter zero) {
  const char character = number_in<char>(value);
  if (character != 0 || zero == ZeroCharacter::written) line.push_back(character);
}

// In the C locale, as it was written.
double parse_double(const char* text) {
  static const locale_t c_locale = newlocale(LC_ALL_MASK, "C", nullptr);
  return strtod_l(text, nullptr, c_locale);
}

bool is_separator(char character) {
  return character == ' ' || character == '\t' || character == ';';
}

}  // namespace

void append_value(std::string& line, const ZtDataField& field, const Value& value, ZeroCharacter zero) {
  switch (field.type) {
    case FIELD_SHORT:
      return append_integer(line, number_in<std::int16_t>(value));
    case FIELD_USHORT:
      return append_integer(line, number_in<std::uint16_t>(value));
    case FIELD_INT:
    case FIELD_UINT:  // as signed, on purpose
      return append_integer(line, number_in<std::int32_t>(value));
    case FIELD_INT8:
      return append_integer(line, number_in<std::int64_t>(value));
    case FIELD_CHAR:
    case FIELD_UCHAR:
      return append_character(line, value, zero);
    case FIELD_STRING:
      line.append(value.data, strnlen(value.data, value.length));
      return;
    case FIELD_DOUBLE:
      return append_double(line, number_in<double>(value), field.decimal);
    default:
      return;
  }
}

void Pairs::look_at(std::string_view line) {
  line_ = line.substr(0, line.find('\0'));
  equals_signs_.clear();
  for (auto at = line_.find('='); at != std::string_view::npos; at = line_.find('=', at + 1)) {
    equals_signs_.push_back(at);
  }
}

std::optional<std::string_view> Pairs::value_of(std::string_view name) const {
  for (const std::size_t equals_sign : equals_signs_) {
    if (equals_sign < name.size()) continue;
    const std::size_t begin = equals_sign - name.size();
    if (begin > 0 && !is_separator(line_[begin - 1])) continue;
    if (line_.compare(begin, name.size(), name) != 0) continue;
    const std::string_view rest = line_.substr(equals_sign + 1);
    return rest.substr(0, rest.find(';'));
  }
  return std::nullopt;
}

void StoredForm::hold(const void* bytes, std::size_t size, const ZtDataField& field) {
  const std::size_t needed = std::max<std::size_t>(size, field.length);
  if (bytes_.size() < needed) bytes_.resize(needed);
  if (size > 0) std::memcpy(bytes_.data(), bytes, size);
  std::memset(bytes_.data() + size, 0, needed - size);
}

template <class Number>
const char* StoredForm::hold_number(Number number, const ZtDataField& field) {
  hold(&number, sizeof number, field);
  return bytes_.data();
}

const char* StoredForm::text_of(std::string_view text) {
  text_.assign(text);
  return text_.c_str();
}

const char* StoredForm::of(const ZtDataField& field, std::string_view text) {
  constexpr int decimal = 10;
  const auto parsed = [&] { return std::strtol(text_of(text), nullptr, decimal); };
  switch (field.type) {
    case FIELD_SHORT:
    case FIELD_USHORT:
      return hold_number(static_cast<std::int16_t>(parsed()), field);
    case FIELD_INT:
    case FIELD_UINT:
      return hold_number(static_cast<std::int32_t>(parsed()), field);
    case FIELD_INT8:
      return hold_number(static_cast<std::int64_t>(parsed()), field);
    case FIELD_DOUBLE:
      return hold_number(parse_double(text_of(text)), field);
    case FIELD_CHAR:
    case FIELD_UCHAR:
    case FIELD_STRING:
      hold(text.data(), text.size(), field);
      return bytes_.data();
    default:
      return nullptr;
  }
}

}  // namespace cachet
