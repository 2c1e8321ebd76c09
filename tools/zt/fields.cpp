#include "zt/fields.h"

#include <fmt/format.h>

#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

namespace zt {

namespace inspect = cachet::inspect;

namespace {

constexpr std::size_t least_stored_bytes = 8;  // what the library reads of a double, however narrow its slot

[[noreturn]] void refuse(std::string_view field, const std::string& why) {
  throw BadValue(tr("field {}: {}", field, why));
}

template <class Number>
Number number_at(const char* bytes) {
  Number number;
  std::memcpy(&number, bytes, sizeof number);
  return number;
}

template <class Number>
std::string bytes_of(Number number) {
  return {reinterpret_cast<const char*>(&number), sizeof number};
}

// Without the plus sign that from_chars does not know.
std::string_view without_plus(std::string_view text) {
  const bool plus = text.size() > 1 && text[0] == '+' && text[1] != '-';
  return plus ? text.substr(1) : text;
}

template <class Number>
std::string stored_integer(const std::string& field, int type, std::string_view text) {
  const std::string_view digits = without_plus(text);
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (error == std::errc::invalid_argument || end != digits.data() + digits.size())
    refuse(field, tr("\"{}\" is no whole number", text));
  const std::int64_t least = std::numeric_limits<Number>::min();
  const std::int64_t most = std::numeric_limits<Number>::max();
  if (error != std::errc() || number < least || number > most) {
    refuse(field, tr("{} is out of range, {} holds {} to {}", text, inspect::type_name(type), least, most));
  }
  return bytes_of(static_cast<Number>(number));
}

// `rounded`: what the library rounds is finite, or it would become no number at all.
std::string stored_double(const std::string& field, bool rounded, bool indexed, std::string_view text) {
  const std::string_view digits = without_plus(text);
  double number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (error == std::errc::invalid_argument || end != digits.data() + digits.size())
    refuse(field, tr("\"{}\" is no number", text));
  if (error != std::errc()) refuse(field, tr("{} is beyond what DOUBLE holds", text));
  if (!std::isfinite(number) && rounded)
    refuse(field, tr("{} cannot be rounded to the field's decimals", text));
  if (std::isnan(number) && indexed) refuse(field, tr("{} has no place in the order of an index", text));
  return bytes_of(number);
}

int digit_of(char character) {
  if (character >= '0' && character <= '9') return character - '0';
  const char lower = static_cast<char>(character | 0x20);
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

// The bytes of hexadecimal digits; none when they are something else.
std::optional<std::string> bytes_of_digits(std::string_view digits) {
  std::string bytes;
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
    const int high = digit_of(digits[i]), low = digit_of(digits[i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    bytes += static_cast<char>(high * 16 + low);
  }
  return digits.size() % 2 == 0 ? std::optional(bytes) : std::nullopt;
}

std::string stored_bytes(const std::string& field, std::size_t width, std::string_view text) {
  const auto bytes = bytes_of_digits(text);
  if (!bytes || bytes->size() != width) {
    refuse(field, tr("\"{}\" is not its {} bytes in {} hexadecimal digits", text, width, 2 * width));
  }
  return *bytes;
}

std::string digits_of_bytes(std::string_view bytes) {
  std::string digits;
  for (const char byte : bytes) digits += fmt::format("{:02x}", static_cast<unsigned char>(byte));
  return digits;
}

Kind kind_of(int type) {
  switch (type) {
    case FIELD_SHORT:
    case FIELD_USHORT:
    case FIELD_INT:
    case FIELD_UINT:
    case FIELD_INT8:
      return Kind::integer;
    case FIELD_DOUBLE:
      return Kind::exact;
    default:
      return Kind::text;
  }
}

}  // namespace

int natural_bytes(int type) {
  switch (type) {
    case FIELD_CHAR:
    case FIELD_UCHAR:
      return 1;
    case FIELD_SHORT:
    case FIELD_USHORT:
      return 2;
    case FIELD_INT:
    case FIELD_UINT:
      return 4;
    case FIELD_DOUBLE:
    case FIELD_INT8:
      return 8;
    default:
      return -1;
  }
}

Fields::Fields(const Encoding& encoding, const inspect::Table& table) : encoding_(encoding) {
  for (const inspect::Field& each : table.fields) {
    Field& field = fields_.emplace_back();
    static_cast<inspect::Field&>(field) = each;
    field.shown_name = encoding.from_stored(each.name);
    field.raw = each.type != FIELD_STRING && natural_bytes(each.type) != each.length_bytes;
  }
  for (const inspect::Index& index : table.indexes) {
    for (const int field : index.fields) fields_[static_cast<std::size_t>(field)].indexed = true;
  }
}

int Fields::id_of(std::string_view utf8_name) const {
  for (int id = 0; id < count(); ++id) {
    if (name(id) == utf8_name) return id;
  }
  return -1;
}

std::vector<Column> Fields::columns() const {
  std::vector<Column> columns;
  for (const Field& field : fields_)
    columns.push_back({field.shown_name, field.raw ? Kind::text : kind_of(field.type)});
  return columns;
}

std::string Fields::stored_text(const Field& field, std::string_view utf8) const {
  const auto text = encoding_.to_stored(utf8);
  if (!text) refuse(field.shown_name, tr("\"{}\" has a character that the database's encoding lacks", utf8));
  if (text->find('\0') != std::string::npos) refuse(field.shown_name, tr("a text cannot hold a NUL"));
  const std::size_t room = field.length_bytes > 0 ? static_cast<std::size_t>(field.length_bytes) - 1 : 0;
  if (text->size() > room) {
    refuse(field.shown_name, tr("\"{}\" takes {} bytes in the database's encoding, there is room for {}",
                                utf8, text->size(), room));
  }
  return *text;
}

std::string Fields::stored_character(const Field& field, std::string_view utf8) const {
  if (utf8.empty()) return std::string(1, '\0');
  if (utf8.size() == 4 && utf8.substr(0, 2) == "\\x") {
    if (const auto byte = bytes_of_digits(utf8.substr(2))) return *byte;
  }
  const auto text = encoding_.to_stored(utf8);
  if (!text || text->size() != 1) {
    refuse(field.shown_name, tr("\"{}\" is not one character of one byte in the database's encoding, nor "
                                "\"\\xNN\"",
                                utf8));
  }
  return *text;
}

std::string Fields::stored(int id, std::string_view utf8) const {
  const Field& field = fields_[static_cast<std::size_t>(id)];
  const auto width = static_cast<std::size_t>(field.length_bytes);
  const auto in_stored_form = [&]() -> std::string {
    if (field.raw) return stored_bytes(field.shown_name, width, utf8);
    switch (field.type) {
      case FIELD_SHORT:
        return stored_integer<std::int16_t>(field.shown_name, field.type, utf8);
      case FIELD_USHORT:
        return stored_integer<std::uint16_t>(field.shown_name, field.type, utf8);
      case FIELD_INT:
        return stored_integer<std::int32_t>(field.shown_name, field.type, utf8);
      case FIELD_UINT:
        return stored_integer<std::uint32_t>(field.shown_name, field.type, utf8);
      case FIELD_INT8:
        return stored_integer<std::int64_t>(field.shown_name, field.type, utf8);
      case FIELD_DOUBLE:
        return stored_double(field.shown_name, field.decimals >= 0, field.indexed, utf8);
      case FIELD_STRING:
        return stored_text(field, utf8);
      default:
        return stored_character(field, utf8);
    }
  };
  std::string bytes = in_stored_form();
  bytes.resize(std::max(width, least_stored_bytes), '\0');
  return bytes;
}

bool Fields::set(ZtDbHandle database, ZtRecordHandle record, int id, std::string_view utf8) const {
  return ZtSetField(database, record, id, stored(id, utf8).data());
}

Cell Fields::cell(int id, const char* bytes) const {
  const Field& field = fields_[static_cast<std::size_t>(id)];
  const auto width = static_cast<std::size_t>(field.length_bytes);
  if (field.raw) return digits_of_bytes({bytes, width});
  switch (field.type) {
    case FIELD_SHORT:
      return std::int64_t{number_at<std::int16_t>(bytes)};
    case FIELD_USHORT:
      return std::int64_t{number_at<std::uint16_t>(bytes)};
    case FIELD_INT:
      return std::int64_t{number_at<std::int32_t>(bytes)};
    case FIELD_UINT:
      return std::int64_t{number_at<std::uint32_t>(bytes)};
    case FIELD_INT8:
      return number_at<std::int64_t>(bytes);
    case FIELD_DOUBLE:
      return number_at<double>(bytes);
    default:
      return encoding_.from_stored({bytes, strnlen(bytes, width)});
  }
}

void Fields::append_cells(ZtDbHandle database, ZtRecordHandle record, Row& row) const {
  for (int id = 0; id < count(); ++id) {
    int type = 0;
    const char* const bytes = ZtGetField(database, record, id, &type);
    row.push_back(bytes != nullptr ? cell(id, bytes) : Cell());
  }
}

Row Fields::cells(ZtDbHandle database, ZtRecordHandle record) const {
  Row row;
  append_cells(database, record, row);
  return row;
}

}  // namespace zt
